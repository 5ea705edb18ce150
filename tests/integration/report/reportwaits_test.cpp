#include "integration/report/actor.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::IsEmpty;

/** The least time that @p count failed attempts take: 1, 2, 4 ... 256, 256 ms between them. */
milliseconds leastTime(std::size_t count) {
  milliseconds sum{0};
  for (std::size_t i = 0; i + 1 < count; ++i) {
    sum += milliseconds(1 << std::min<std::size_t>(i, 8));
  }
  return sum;
}

/** Time by the steady clock, less what the wall clock, which the waits go by, may have been moved
 *  to keep it right. */
constexpr milliseconds kSlack = 20ms;

/** Another process holds the write lock of the report until it is told otherwise. */
class WaitsForAnotherProcess : public ReportTest {
 protected:
  WaitsForAnotherProcess() {
    EXPECT_EQ(holder_.ask(std::string("create ") + kIdText), "ok");
    report_ = open();
    EXPECT_EQ(holder_.ask("write-lock"), "ok");
  }

  /** Expects that at least five attempts failed so, and that their pauses fit into @p elapsed. */
  void expectFailedAttempts(const std::vector<LogLine>& lines, const std::string& message,
                            steady_clock::duration elapsed) {
    const LogLine line = errorLine(message + ". errno = 11 (Resource temporarily unavailable)");
    EXPECT_THAT(lines, testing::Each(line));
    EXPECT_GE(lines.size(), 5U);
    EXPECT_LE(lines.size(), 12U) << "the eleventh pause passes the limit of a second";
    EXPECT_GE(elapsed, 1000ms - kSlack);
    EXPECT_GE(elapsed, leastTime(lines.size()) - kSlack);
  }
  /** Lets the holder release its lock as soon as an attempt has failed. */
  [[nodiscard]] std::thread releaseAfterAnAttempt() {
    return std::thread([this] {
      while (log_.lines().empty()) {
        std::this_thread::sleep_for(1ms);
      }
      EXPECT_EQ(holder_.ask("release"), "ok");
    });
  }

  Actor holder_{root_};
  ReportPtr report_;
};

TEST_F(WaitsForAnotherProcess, EndWithTheLimit) {
  const auto start = steady_clock::now();
  EXPECT_THAT(report_->waitForAndAquireReadLock(1000),
              FailsWith(systemCode(EWOULDBLOCK), "Failed acquire read lock for report"));
  expectFailedAttempts(log_.take(), "Failed acquire read lock for report",
                       steady_clock::now() - start);
}

TEST_F(WaitsForAnotherProcess, EndWithTheLimitForWritersToo) {
  const auto start = steady_clock::now();
  EXPECT_THAT(report_->waitForAndAquireWriteLock(1000),
              FailsWith(systemCode(EWOULDBLOCK), "Failed acquire write lock for report"));
  expectFailedAttempts(log_.take(), "Failed acquire write lock for report",
                       steady_clock::now() - start);
}

TEST_F(WaitsForAnotherProcess, EndWithTheRelease) {
  std::thread release = releaseAfterAnAttempt();
  EXPECT_THAT(report_->waitForAndAquireWriteLock(60'000), Succeeds());
  release.join();
  EXPECT_THAT(log_.take(),
              testing::Each(errorLine("Failed acquire write lock for report. errno = 11 (Resource "
                                      "temporarily unavailable)")));
  EXPECT_EQ(holder_.ask("try-read-lock"), "error 11 Failed acquire read lock for report");
}

TEST_F(WaitsForAnotherProcess, OfOpeningEndAfterASecondAndOpenAllTheSame) {
  ASSERT_EQ(holder_.ask("describe written"), "ok");
  const auto start = steady_clock::now();
  const auto opened = open();
  const auto elapsed = steady_clock::now() - start;
  ASSERT_NE(opened, nullptr);
  std::vector<LogLine> lines = log_.take();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(),
            errorLine("Unable to acquire opening read lock for report " + lockFile().string()));
  lines.pop_back();
  expectFailedAttempts(lines, "Failed acquire read lock for report", elapsed);
  EXPECT_EQ(opened->getDescription(), "written");
  EXPECT_EQ(holder_.ask("touch"), "ok") << "the holder kept its lock all the time";
}

TEST_F(WaitsForAnotherProcess, OfOpeningEndWithTheRelease) {
  std::thread release = releaseAfterAnAttempt();
  const auto opened = open();
  release.join();
  EXPECT_NE(opened, nullptr);
  // On a machine that stands still for a second the opening may also have gone on without the lock.
  EXPECT_EQ(log_.take().front(), errorLine("Failed acquire read lock for report. errno = 11 "
                                           "(Resource temporarily unavailable)"));
  EXPECT_EQ(holder_.ask("try-write-lock"), "ok") << "opening leaves no lock behind";
}

TEST_F(WaitsForAnotherProcess, DoNotConcernAnOpeningBesideAReader) {
  ASSERT_EQ(holder_.ask("read-lock"), "ok");
  EXPECT_NE(open(), nullptr);
  EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
