#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
namespace fs = std::filesystem;

struct Builder {
  std::string name;
  std::function<DiagnosticReport::PathResult(const DiagnosticReport&)> build;
  std::string below;
};

void PrintTo(const Builder& builder, std::ostream* out) {
  *out << builder.name;
}

/** All builders of paths below the report's directory. */
std::vector<Builder> builders() {
  using R = DiagnosticReport;
  return {
      {"Relative", [](const R& r) { return r._getReportRelativePath("some/where"); }, "some/where"},
      {"Lock", [](const R& r) { return r._getReportLockPath(); }, "lock"},
      {"Metadata", [](const R& r) { return r._getReportMetadataPath(); }, "metadata.db"},
      {"Tmp", [](const R& r) { return r._getReportTmpDirPath(); }, "tmp"},
      {"ContentFiles", [](const R& r) { return r._getReportContentFilesDirPath(); },
       "contentfiles"},
      {"ContentFile", [](const R& r) { return r._getReportContentFileDirPath("log"); },
       "contentfiles/log"},
      {"VariationDir", [](const R& r) { return r._getReportFileVariationDirPath("log", 30); },
       "contentfiles/log/30"},
      {"NegativeLevel", [](const R& r) { return r._getReportFileVariationDirPath("log", -7); },
       "contentfiles/log/-7"},
      {"LowestLevel",
       [](const R& r) { return r._getReportFileVariationDirPath("log", -2147483647 - 1); },
       "contentfiles/log/-2147483648"},
      {"VariationFile",
       [](const R& r) { return r._getReportFileVariationFilePath("log", 2, "a.txt"); },
       "contentfiles/log/2/a.txt"},
      {"EmptyPropertyName", [](const R& r) { return r._getReportContentFileDirPath(""); },
       "contentfiles/"},
      {"EmptyNameWithLevel", [](const R& r) { return r._getReportFileVariationDirPath("", 2); },
       "contentfiles/2"},
      {"EmptyFileName", [](const R& r) { return r._getReportFileVariationFilePath("log", 2, ""); },
       "contentfiles/log/2/"},
      {"ClimbingNameThatStays",
       [](const R& r) { return r._getReportContentFileDirPath("../lock"); },
       "contentfiles/../lock"},
      {"NestedName", [](const R& r) { return r._getReportContentFileDirPath("a/b"); },
       "contentfiles/a/b"},
      {"PercentSigns", [](const R& r) { return r._getReportContentFileDirPath("%s%n%d"); },
       "contentfiles/%s%n%d"},
  };
}

class ReportPathBuilders : public ReportTest, public testing::WithParamInterface<Builder> {};

TEST_P(ReportPathBuilders, AppendToTheReportDirectory) {
  const auto report = create();
  const auto path = GetParam().build(*report);
  ASSERT_TRUE(path.has_value());
  EXPECT_EQ(path.value().string(), (dir() / GetParam().below).string());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportPathBuilders, CreateNothing) {
  const auto report = create();
  const Tree before = treeOf(root_);
  ASSERT_TRUE(GetParam().build(*report).has_value());
  EXPECT_EQ(treeOf(root_), before);
}

TEST_P(ReportPathBuilders, RefuseANullIdentifier) {
  const DiagnosticReport report;
  EXPECT_THAT(GetParam().build(report), Refuses(kNullIdLine));
  EXPECT_EQ(log_.take(), errorLines({kNullIdLine, kUnknownDirectoryLine}));
}

TEST_P(ReportPathBuilders, RefuseADirectoryThatCannotBeResolved) {
  const auto report = create();
  fs::rename(dir(), root_ / "aside");
  fs::create_symlink(kIdText, dir());
  EXPECT_THAT(GetParam().build(*report), Refuses("Path is not within report directory"));
  const std::vector<LogLine> lines = log_.take();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), errorLine("Path: " + (dir() / GetParam().below).string() +
                                    ", is not within report directory: " + dir().string()));
}

INSTANTIATE_TEST_SUITE_P(All, ReportPathBuilders, testing::ValuesIn(builders()),
                         [](const auto& all) { return all.param.name; });

class ReportPaths : public ReportTest {
 protected:
  /** Expects that @p result refuses @p candidate, with one line. */
  void expectOutside(const DiagnosticReport::PathResult& result, const std::string& candidate) {
    EXPECT_THAT(result, Refuses("Path is not within report directory"));
    EXPECT_EQ(log_.take(), errorLines({"Path: " + candidate +
                                       ", is not within report directory: " + dir().string()}));
  }
};

TEST_F(ReportPaths, DirectoryIsRootAndLowerCaseIdentifier) {
  ASSERT_TRUE(id_.parse("0B3AD2A0-5C1E-4A8E-9F57-D2B1C3E4F5A6"));
  const auto report = create();
  EXPECT_THAT(report->_getReportDirPath(), Holds(root_ / kIdText));
  EXPECT_THAT(report->getReportDirPath(), Holds(root_ / kIdText));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportPaths, DirectoryIsRefusedForANullIdentifier) {
  const DiagnosticReport report;
  EXPECT_THAT(report._getReportDirPath(), Refuses(kNullIdLine));
  EXPECT_EQ(log_.take(), errorLines({kNullIdLine}));
  EXPECT_THAT(report.getReportDirPath(), Refuses(kNullIdLine));
  EXPECT_EQ(log_.take(), errorLines({kNullIdLine}));
}

TEST_F(ReportPaths, NamesOnDiskAreFixed) {
  EXPECT_STREQ(DiagnosticReport::kReportLockFilename, "lock");
  EXPECT_STREQ(DiagnosticReport::kReportMetadataFilename, "metadata.db");
  EXPECT_STREQ(DiagnosticReport::kReportTmpDirectoryName, "tmp");
  EXPECT_STREQ(DiagnosticReport::kReportContentFilesDirectoryName, "contentfiles");
}

TEST_F(ReportPaths, AbsolutePathWithinTheReportIsAccepted) {
  const auto report = create();
  const fs::path inside = dir() / "contentfiles/log/2/a.txt";
  EXPECT_THAT(report->_getReportRelativePath(inside), Holds(inside));
  EXPECT_THAT(report->_getReportContentFileDirPath(inside), Holds(inside));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportPaths, AbsolutePathElsewhereIsRefused) {
  const auto report = create();
  expectOutside(report->_getReportRelativePath("/etc/passwd"), "/etc/passwd");
  expectOutside(report->_getReportContentFileDirPath("/etc/passwd"), "/etc/passwd");
  const fs::path sibling = root_ / (std::string(kIdText) + "0") / "file";
  expectOutside(report->_getReportRelativePath(sibling), sibling);
}

TEST_F(ReportPaths, TheReportDirectoryItselfIsNotWithinIt) {
  const auto report = create();
  expectOutside(report->_getReportRelativePath(dir()), dir());
  expectOutside(report->_getReportRelativePath(""), dir().string() + "/");
}

TEST_F(ReportPaths, NamesThatClimbOutAreRefused) {
  const auto report = create();
  const std::string contents = dir().string() + "/contentfiles/";
  expectOutside(report->_getReportFileVariationFilePath("../../x", 2, "a.txt"),
                contents + "../../x/2/a.txt");
  expectOutside(report->_getReportContentFileDirPath("../../x"), contents + "../../x");
  expectOutside(report->_getReportFileVariationDirPath("../../x", 2), contents + "../../x/2");
  expectOutside(report->_getReportFileVariationFilePath("log", 2, "../../../../x"),
                contents + "log/2/../../../../x");
  expectOutside(report->_getReportRelativePath("../x"), dir().string() + "/../x");
}

TEST_F(ReportPaths, NamesThatEndInDotsAreRefused) {
  const auto report = create();
  const std::string contents = dir().string() + "/contentfiles/";
  expectOutside(report->_getReportContentFileDirPath(".."), contents + "..");
  expectOutside(report->_getReportContentFileDirPath("."), contents + ".");
  expectOutside(report->_getReportFileVariationFilePath("log", 2, ".."), contents + "log/2/..");
}

TEST_F(ReportPaths, LinkThatLeadsOutOfTheReportIsRefused) {
  const auto report = create();
  fs::create_directories(dir() / "contentfiles");
  const fs::path outside = directory_ / "outside";
  fs::create_directory(outside);
  fs::create_directory_symlink(outside, dir() / "contentfiles/log");
  expectOutside(report->_getReportFileVariationDirPath("log", 2),
                dir().string() + "/contentfiles/log/2");
  // Only what leads to the last name is resolved: the link itself lies within the report.
  EXPECT_THAT(report->_getReportContentFileDirPath("log"), Holds(dir() / "contentfiles/log"));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportPaths, LinkThatStaysInTheReportIsAccepted) {
  const auto report = create();
  fs::create_directories(dir() / "contentfiles/real");
  fs::create_directory_symlink(dir() / "contentfiles/real", dir() / "contentfiles/log");
  EXPECT_THAT(report->_getReportFileVariationDirPath("log", 2),
              Holds(dir() / "contentfiles/log/2"));
}

TEST_F(ReportPaths, PathThatCannotBeResolvedIsRefused) {
  const auto report = create();
  fs::create_symlink("loop", dir() / "loop");
  const std::string candidate = dir().string() + "/loop/x";
  EXPECT_THAT(report->_getReportRelativePath("loop/x"),
              Refuses("Path is not within report directory"));
  EXPECT_EQ(
      log_.take(),
      errorLines({"Error Too many levels of symbolic links while attempting to resolve path: " +
                      dir().string() + "/loop",
                  "Path: " + candidate + ", is not within report directory: " + dir().string()}));
}

TEST_F(ReportPaths, RootMayBeALink) {
  createAndClose();
  const fs::path link = directory_ / "link";
  fs::create_directory_symlink(root_, link);
  const auto report = DiagnosticData(link).openReport(id_);
  ASSERT_NE(report, nullptr);
  EXPECT_THAT(report->_getReportTmpDirPath(), Holds(link / kIdText / "tmp"));
  EXPECT_THAT(log_.take(), IsEmpty());
}

// Where the way to the root leads is its owner's choice, as for whoever makes it.
TEST_F(ReportPaths, RootMayGoBackFromWhatIsMissingToALink) {
  fs::create_directory(directory_ / "elsewhere");
  fs::create_directory_symlink(directory_ / "elsewhere", directory_ / "link");
  DiagnosticData data(directory_ / "missing/../link");
  ASSERT_NE(data.createReport(id_, 1, 2, 3, "device", "session"), nullptr);
  EXPECT_NE(data.openReport(id_), nullptr);
  EXPECT_TRUE(fs::exists(directory_ / "elsewhere" / kIdText / "metadata.db"));
  EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
