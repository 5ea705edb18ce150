#include "unit/diagnostic/mutators.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

class ReportDescription : public ReportTest {
 protected:
  ReportDescription() { EXPECT_THAT(report_->acquireWriteLock(true), Succeeds()); }

  void expectNothingRecorded(const DiagnosticReport& report) {
    EXPECT_EQ(report.getDescription(), std::nullopt);
    EXPECT_EQ(report.getPID(), std::nullopt);
    EXPECT_EQ(report.getProcessName(), std::nullopt);
    EXPECT_EQ(report.getLoadedLibraries(), std::nullopt);
    EXPECT_THAT(log_.take(), IsEmpty());
  }

  ReportPtr report_ = create();
};

TEST_F(ReportDescription, IsEmptyAtFirst) {
  expectNothingRecorded(*report_);
  expectNothingRecorded(DiagnosticReport());
}

TEST_F(ReportDescription, KeepsTextsByteForByte) {
  for (const std::string& text :
       {std::string(), std::string("a\0b%s\xff\n", 7), std::string(300'000, 'x')}) {
    ASSERT_THAT(report_->setDescription(text), Succeeds());
    EXPECT_EQ(report_->getDescription(), text);
    ASSERT_THAT(report_->setProcessName(text), Succeeds());
    EXPECT_EQ(report_->getProcessName(), text);
  }
}

TEST_F(ReportDescription, KeepsEveryPid) {
  for (const int pid : {0, -1, 1, 2147483647, -2147483647 - 1}) {
    ASSERT_THAT(report_->setPID(pid), Succeeds());
    EXPECT_EQ(report_->getPID(), pid);
  }
}

TEST_F(ReportDescription, ReadsAnUnreadablePidAsNone) {
  store("pid", "many");
  EXPECT_EQ(report_->getPID(), std::nullopt);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportDescription, KeepsLibrariesInOrderWithDuplicates) {
  const std::vector<std::string> libraries{"libz.so", "liba.so", "libz.so", "", "/lib/\"q\".so"};
  ASSERT_THAT(report_->setLoadedLibraries(libraries), Succeeds());
  EXPECT_EQ(report_->getLoadedLibraries(), libraries);
}

TEST_F(ReportDescription, TellsAnEmptyListOfLibrariesFromNone) {
  ASSERT_THAT(report_->setLoadedLibraries({}), Succeeds());
  EXPECT_EQ(stored("loaded_libraries"), "[]");
  EXPECT_EQ(report_->getLoadedLibraries(), std::vector<std::string>());
}

TEST_F(ReportDescription, ReadsUnreadableLibrariesAsNoneWithALine) {
  store("loaded_libraries", "{}");
  EXPECT_EQ(report_->getLoadedLibraries(), std::nullopt);
  const std::vector<LogLine> lines = log_.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].priority, kError);
  EXPECT_THAT(lines[0].text, testing::StartsWith("Failed to parse json data: {}, error: "));
}

TEST_F(ReportDescription, IsReplacedAsAWhole) {
  ASSERT_THAT(report_->setLoadedLibraries({"a", "b"}), Succeeds());
  ASSERT_THAT(report_->setLoadedLibraries({"c"}), Succeeds());
  EXPECT_EQ(report_->getLoadedLibraries(), std::vector<std::string>{"c"});
  ASSERT_THAT(report_->setDescription("long text"), Succeeds());
  ASSERT_THAT(report_->setDescription(""), Succeeds());
  EXPECT_EQ(report_->getDescription(), "");
}

TEST_F(ReportDescription, MayChangeAtAnyStageWhereTheOthersMayNot) {
  ASSERT_THAT(report_->setPID(1), Succeeds());
  ASSERT_THAT(report_->setProcessName("one"), Succeeds());
  ASSERT_THAT(report_->setLoadedLibraries({"one"}), Succeeds());
  storeStages(metadataFile(), stagesOf(31), "0");
  EXPECT_THAT(report_->setDescription("after upload"), Succeeds());
  EXPECT_EQ(report_->getDescription(), "after upload");
  EXPECT_THAT(report_->setPID(2), Refuses("PID can only be set during report creation"));
  EXPECT_THAT(report_->setProcessName("two"),
              Refuses("Process name can only be set during report creation"));
  EXPECT_THAT(report_->setLoadedLibraries({"two"}),
              Refuses("Loaded Libraries list can only be set during report creation"));
  EXPECT_EQ(log_.take(),
            errorLines({"PID can only be set during report creation",
                        "Process name can only be set during report creation",
                        "Loaded Libraries list can only be set during report creation"}));
  EXPECT_EQ(report_->getPID(), 1);
  EXPECT_EQ(report_->getProcessName(), "one");
  EXPECT_EQ(report_->getLoadedLibraries(), std::vector<std::string>{"one"});
}

}  // namespace
}  // namespace KELP::Diagnostic
