#include "integration/report/actor.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

constexpr const char* kWriteRefused = "Failed acquire write lock for report";
constexpr const char* kReadRefused = "Failed acquire read lock for report";
const std::string kWouldBlockText = ". errno = 11 (Resource temporarily unavailable)";
const std::string kActorRefused = "error 11 ";

/** A report of this process, which another process has open too. */
class LocksBetweenProcesses : public ReportTest {
 protected:
  LocksBetweenProcesses() { EXPECT_EQ(actor_.ask(std::string("open ") + kIdText), "ok"); }

  void expectRefused(const DiagnosticReport::Result& result, const std::string& message) {
    EXPECT_THAT(result, FailsWith(systemCode(EWOULDBLOCK), message));
    EXPECT_EQ(log_.take(), errorLines({message + kWouldBlockText}));
  }

  ReportPtr report_ = create();
  Actor actor_{root_};
};

TEST_F(LocksBetweenProcesses, WriterKeepsAllOthersOut) {
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  expectRefused(report_->acquireReadLock(false), kReadRefused);
  expectRefused(report_->acquireWriteLock(false), kWriteRefused);
  ASSERT_EQ(actor_.ask("release"), "ok");
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
  EXPECT_EQ(actor_.ask("try-read-lock"), kActorRefused + kReadRefused);
  EXPECT_EQ(actor_.ask("try-write-lock"), kActorRefused + kWriteRefused);
}

TEST_F(LocksBetweenProcesses, ReadersShareAndKeepWritersOut) {
  ASSERT_EQ(actor_.ask("read-lock"), "ok");
  expectRefused(report_->acquireWriteLock(false), kWriteRefused);
  EXPECT_THAT(report_->acquireReadLock(false), Succeeds());
  EXPECT_EQ(actor_.ask("try-write-lock"), kActorRefused + kWriteRefused);
}

TEST_F(LocksBetweenProcesses, AreConverted) {
  ASSERT_EQ(actor_.ask("read-lock"), "ok");
  ASSERT_EQ(actor_.ask("try-write-lock"), "ok");
  expectRefused(report_->acquireReadLock(false), kReadRefused);
  ASSERT_EQ(actor_.ask("try-read-lock"), "ok");
  EXPECT_THAT(report_->acquireReadLock(false), Succeeds());
  EXPECT_EQ(actor_.ask("touch"), "error 0 Cannot modify report without a write lock");
}

TEST_F(LocksBetweenProcesses, BlockingAcquisitionWaitsForTheHolder) {
  for (const char* command : {"write-lock", "read-lock"}) {
    ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
    actor_.tell(command);
    actor_.awaitBlockedInFlock();
    ASSERT_THAT(report_->releaseLock(), Succeeds());
    EXPECT_EQ(actor_.answer(), "ok");
    ASSERT_EQ(actor_.ask("release"), "ok");
  }
}

TEST_F(LocksBetweenProcesses, SignalsDoNotEndABlockingAcquisition) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  actor_.tell("write-lock");
  for (int i = 0; i < 3; ++i) {
    actor_.awaitBlockedInFlock();
    actor_.interrupt();
  }
  actor_.awaitBlockedInFlock();
  ASSERT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_EQ(actor_.answer(), "ok");
}

TEST_F(LocksBetweenProcesses, EndWithTheReportObject) {
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  ASSERT_EQ(actor_.ask("close"), "ok");
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
}

TEST_F(LocksBetweenProcesses, OfAKilledHolderAreFreeAtOnce) {
  for (const char* command : {"write-lock", "read-lock"}) {
    Actor holder(root_);
    ASSERT_EQ(holder.ask(std::string("open ") + kIdText), "ok");
    ASSERT_EQ(holder.ask(command), "ok");
    expectRefused(report_->acquireWriteLock(false), kWriteRefused);
    holder.process().signal(SIGKILL);
    ASSERT_EQ(holder.process().wait(), 128 + SIGKILL);
    EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
    ASSERT_THAT(report_->releaseLock(), Succeeds());
  }
}

/** The holder of the write lock has executed a program, which still runs. */
class LocksAndExecutedPrograms : public LocksBetweenProcesses {
 protected:
  LocksAndExecutedPrograms() {
    EXPECT_EQ(actor_.ask("write-lock"), "ok");
    program_ = std::stoi(actor_.ask("start-sleeper"));
    awaitExecution();
  }
  ~LocksAndExecutedPrograms() override {
    if (program_ > 0) {
      ::kill(program_, SIGKILL);
    }
  }

  [[nodiscard]] std::string executable() const {
    std::error_code gone;
    return std::filesystem::read_symlink("/proc/" + std::to_string(program_) + "/exe", gone)
        .filename();
  }
  /** Until then it is a copy of its parent, with all of its descriptors. */
  void awaitExecution() const {
    for (int i = 0; executable() == "report_actor" && i < 60'000; ++i) {
      ::usleep(1000);
    }
    EXPECT_NE(executable(), "report_actor");
    EXPECT_NE(executable(), "");
  }

  int program_ = -1;
};

TEST_F(LocksAndExecutedPrograms, ShareNoDescriptor) {
  EXPECT_THAT(openFilesBelow(root_, program_), IsEmpty());
  EXPECT_THAT(openFilesBelow(root_, actor_.pid()), testing::Not(IsEmpty()));
}

TEST_F(LocksAndExecutedPrograms, ReleasedLockIsFree) {
  expectRefused(report_->acquireWriteLock(false), kWriteRefused);
  ASSERT_EQ(actor_.ask("release"), "ok");
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
  EXPECT_NE(executable(), "") << "the program still runs";
}

TEST_F(LocksAndExecutedPrograms, LockOfAnEndedHolderIsFree) {
  actor_.process().closeInput();
  ASSERT_EQ(actor_.process().wait(), 0);
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
  EXPECT_NE(executable(), "") << "the program still runs";
}

TEST_F(LocksAndExecutedPrograms, LockOfAKilledHolderIsFree) {
  actor_.process().signal(SIGKILL);
  ASSERT_EQ(actor_.process().wait(), 128 + SIGKILL);
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
  EXPECT_NE(executable(), "") << "the program still runs";
}

}  // namespace
}  // namespace KELP::Diagnostic
