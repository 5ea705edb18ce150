#include "integration/report/actor.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

constexpr const char* kHeld = "Unable to acquire write lock on report";
constexpr const char* kHeldLine =
    "Failed acquire write lock for report. errno = 11 (Resource temporarily unavailable)";

class SharedReport : public ReportTest {
 protected:
  SharedReport() { EXPECT_EQ(actor_.ask(std::string("open ") + kIdText), "ok"); }

  ReportPtr report_ = create();
  Actor actor_{root_};
};

TEST_F(SharedReport, ShowsEachChangeOfAnotherProcessAtOnce) {
  EXPECT_FALSE(report_->isCreationComplete());
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  ASSERT_EQ(actor_.ask("describe first"), "ok");
  EXPECT_EQ(report_->getDescription(), "first");
  ASSERT_EQ(actor_.ask("describe second"), "ok");
  EXPECT_EQ(report_->getDescription(), "second");
  ASSERT_EQ(actor_.ask("set-consent -3"), "ok");
  EXPECT_EQ(report_->getCurrentConsentLevel(), -3);
  ASSERT_EQ(actor_.ask("mark-creation"), "ok");
  EXPECT_TRUE(report_->isCreationComplete());
  EXPECT_TRUE(report_->canCollectData());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(SharedReport, ShowsEachChangeOfWhatProducedItAtOnce) {
  using Libraries = std::vector<std::string>;
  EXPECT_EQ(report_->getPID(), std::nullopt);
  EXPECT_EQ(report_->getProcessName(), std::nullopt);
  EXPECT_EQ(report_->getLoadedLibraries(), std::nullopt);
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  for (const int pid : {1, 2}) {
    const std::string number = std::to_string(pid);
    ASSERT_EQ(actor_.ask("set-pid " + number), "ok");
    EXPECT_EQ(report_->getPID(), pid);
    ASSERT_EQ(actor_.ask("set-process-name name" + number), "ok");
    EXPECT_EQ(report_->getProcessName(), "name" + number);
    ASSERT_EQ(actor_.ask("set-libraries liba.so lib" + number + ".so"), "ok");
    EXPECT_EQ(report_->getLoadedLibraries(), (Libraries{"liba.so", "lib" + number + ".so"}));
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(SharedReport, LetsAFlagOfAnotherProcessDecide) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(report_->markCreationComplete(), Succeeds());
  ASSERT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_EQ(actor_.ask("mark-creation"), "error 0 Report creation is already complete");
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  ASSERT_EQ(actor_.ask("mark-interaction"), "ok");
  EXPECT_THAT(report_->setCurrentConsentLevel(1),
              Refuses("Current report status does not support consent level changes"));
}

TEST_F(SharedReport, IsNotDeletedWhileAnotherProcessReadsIt) {
  ASSERT_EQ(actor_.ask("read-lock"), "ok");
  const Tree before = treeOf(root_);
  for (const bool force : {false, true}) {
    EXPECT_THAT(repository_.deleteReport(id_, force), Refuses(kHeld));
    EXPECT_EQ(log_.take(), errorLines({kHeldLine}));
    EXPECT_EQ(treeOf(root_), before);
  }
  ASSERT_EQ(actor_.ask("release"), "ok");
  EXPECT_THAT(repository_.deleteReport(id_, false), Succeeds());
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

TEST_F(SharedReport, IsDeletedThoughAnotherProcessHasItOpen) {
  ASSERT_EQ(actor_.ask(std::string("repository-delete ") + kIdText), "ok");
  EXPECT_FALSE(std::filesystem::exists(dir()));
  ASSERT_THAT(report_->acquireWriteLock(false), Succeeds()) << "of the lock file that was removed";
  EXPECT_THAT(report_->setDescription("too late"),
              Refuses("Failed to update report modified time"));
  EXPECT_THAT(report_->deleteReport(), Succeeds()) << "nothing is left to remove";
  EXPECT_FALSE(std::filesystem::exists(dir()));
}

TEST_F(SharedReport, IsDeletedByTheProcessThatHoldsItsWriteLock) {
  EXPECT_EQ(actor_.ask("delete"), "error 0 Cannot delete report without a write lock");
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  EXPECT_EQ(actor_.ask("delete"), "ok");
  EXPECT_THAT(namesIn(root_), IsEmpty());
  EXPECT_THAT(openFilesBelow(root_, actor_.pid()), IsEmpty());
  EXPECT_EQ(actor_.ask("delete"), "error 0 Cannot delete report without a write lock");
}

TEST_F(SharedReport, OfAProcessThatWasKilledStaysInOrder) {
  ASSERT_EQ(actor_.ask("write-lock"), "ok");
  ASSERT_EQ(actor_.ask("describe last-words"), "ok");
  actor_.process().signal(SIGKILL);
  static_cast<void>(actor_.process().wait());
  const auto opened = open();
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->getDescription(), "last-words");
  EXPECT_THAT(opened->acquireWriteLock(false), Succeeds());
  EXPECT_THAT(opened->markCreationComplete(), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
