// Names of files and properties, and where they lead.

#include "unit/contents/files/filesfixture.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
using testing::StartsWith;
namespace fs = std::filesystem;

const std::string kLongest(255, 'n');
const std::string kTooLong(256, 'n');

/** A property's name and a file's, which may begin with "@" for the directory of everything or "~"
 *  for the report's, and the place below the report where the file must be; not used where it is
 *  refused. */
struct NameCase : NamedCase {
  std::string property;
  std::string file;
  std::string place;
};

class FileNamesTest : public FilesTest, public testing::WithParamInterface<NameCase> {
 protected:
  void SetUp() override {
    if (property_ != kProperty) {
      ASSERT_THAT(report().createReportFileProperty(property_, "", {}), Succeeds());
    }
  }

  Result copyCase() {
    return report().copyFileToFileProperty(property_, kLevel, source_, file_, false);
  }

  /** The path that the names make, as the path builders make it. */
  [[nodiscard]] fs::path path() const {
    return dir() / ("contentfiles" / fs::path(property_) / std::to_string(kLevel) /
                    (file_.empty() ? property_ : file_));
  }

  [[nodiscard]] std::string filled(std::string text) const {
    if (text.starts_with('@')) return directory_.path().string() + text.substr(1);
    if (text.starts_with('~')) return dir().string() + text.substr(1);
    return text;
  }

  const std::string property_ = filled(GetParam().property);
  const std::string file_ = filled(GetParam().file);
  const fs::path source_ = makeSource("content");
};

class AcceptedFileNames : public FileNamesTest {};

TEST_P(AcceptedFileNames, LeadIntoTheReport) {
  const DiskState before = now();
  ASSERT_THAT(copyCase(), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_EQ(readFile(dir() / GetParam().place), "content");
  EXPECT_THAT(changesSince(before), Each(Key(StartsWith(entry("")))));
  EXPECT_THAT(report().getReportFileVariation(property_, kLevel)->relative_path, path().string());
  EXPECT_THAT(report().getReportFileVariationPath(property_, kLevel), Holds(path()));
  EXPECT_EQ(readFile(path()), "content");
}

INSTANTIATE_TEST_SUITE_P(
    All, AcceptedFileNames,
    testing::Values(
        NameCase{{"Plain"}, "log", "b.txt", "contentfiles/log/2/b.txt"},
        NameCase{{"Empty"}, "log", "", "contentfiles/log/2/log"},
        NameCase{{"Nested"}, "log", "sub/deeper/b", "contentfiles/log/2/sub/deeper/b"},
        NameCase{{"ClimbingWithinTheContents"}, "log", "../../x", "contentfiles/x"},
        NameCase{{"ClimbingToTheReport"}, "log", "../../../x", "x"},
        NameCase{
            {"ClimbingOutAndBackIn"}, "log", std::string("../../../../") + kIdText + "/x", "x"},
        NameCase{{"DotsInsideAName"}, "log", "..b..", "contentfiles/log/2/..b.."},
        NameCase{{"ThreeDots"}, "log", "...", "contentfiles/log/2/..."},
        NameCase{{"AbsoluteInside"}, "log", "~/contentfiles/other/x", "contentfiles/other/x"},
        NameCase{{"Longest"}, "log", kLongest, "contentfiles/log/2/" + kLongest},
        NameCase{{"Space"}, "log", " ", "contentfiles/log/2/ "},
        NameCase{{"Newline"}, "log", "a\nb", "contentfiles/log/2/a\nb"},
        NameCase{{"Format"}, "log", "%n%s%d", "contentfiles/log/2/%n%s%d"},
        NameCase{{"Quotes"}, "log", R"(a"\b)", R"(contentfiles/log/2/a"\b)"},
        NameCase{{"Unicode"},
                 "log",
                 "gr\xc3\xbc\xc3\x9f\xe2\x82\xac\xf0\x9f\x98\x80",
                 "contentfiles/log/2/gr\xc3\xbc\xc3\x9f\xe2\x82\xac\xf0\x9f\x98\x80"},
        NameCase{{"EmptyProperty"}, "", "b", "contentfiles/2/b"},
        NameCase{{"NestedProperty"}, "a/b", "c", "contentfiles/a/b/2/c"},
        NameCase{{"NestedPropertyWithoutAName"}, "a/b", "", "contentfiles/a/b/2/a/b"},
        NameCase{{"ClimbingPropertyThatStays"}, "../x", "b", "x/2/b"},
        NameCase{{"PropertyWithASeparator"}, "log/", "b", "contentfiles/log/2/b"},
        NameCase{{"LongestProperty"}, kLongest, "", "contentfiles/" + kLongest + "/2/" + kLongest},
        NameCase{{"AbsolutePropertyInside"}, "~/contentfiles/abs", "b", "contentfiles/abs/2/b"}),
    CaseName());

class ClimbingFileNames : public FileNamesTest {};

TEST_P(ClimbingFileNames, AreRefusedAndChangeNothing) {
  const DiskState before = now();
  EXPECT_THAT(copyCase(), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(), outsideLines(path(), dir(), kNoDestinationLine));
  expectNothingChanged(before);
}

INSTANTIATE_TEST_SUITE_P(
    All, ClimbingFileNames,
    testing::Values(
        NameCase{{"OutOfTheReport"}, "log", "../../../../x", ""},
        NameCase{{"OntoTheDecoy"}, "log", "../../../../../decoy", ""},
        NameCase{{"FarOut"}, "log", "../../../../../../../../../../../../kelp-x", ""},
        NameCase{{"ByWayOfAMissingDirectory"}, "log", "missing/../../../../../x", ""},
        NameCase{{"IntoANeighbour"}, "log", std::string("../../../../") + kOtherIdText + "/x", ""},
        NameCase{
            {"IntoALongerNeighbour"}, "log", std::string("../../../../") + kIdText + "0/x", ""},
        NameCase{{"TheReportItself"}, "log", "../../../", ""},
        NameCase{{"Absolute"}, "log", "@/outside/x", ""},
        NameCase{{"AbsoluteOntoTheDecoy"}, "log", "@/decoy", ""},
        NameCase{{"AbsoluteByWayOfTheReport"}, "log", "~/../x", ""},
        NameCase{{"Root"}, "log", "/", ""}, NameCase{{"Dot"}, "log", ".", ""},
        NameCase{{"DotDot"}, "log", "..", ""}, NameCase{{"EndsInDotDot"}, "log", "a/..", ""},
        NameCase{{"ClimbingProperty"}, "../../x", "b", ""},
        NameCase{{"ClimbingPropertyByItsName"}, "../../x", "", ""},
        NameCase{{"ClimbingByTheNameOfAProperty"}, "a/../../../../../x", "", ""},
        NameCase{{"AbsoluteProperty"}, "@/outside", "b", ""},
        NameCase{{"AbsolutePropertyByItsName"}, "@/outside", "", ""}),
    CaseName());

/** The paths are only resolved as far as there is something. */
class OverlongNames : public FileNamesTest {
 protected:
  void SetUp() override {
    FileNamesTest::SetUp();
    ASSERT_EQ(path().parent_path().string().find(kTooLong),
              path().parent_path().string().size() - kTooLong.size());
  }
};

TEST_P(OverlongNames, OfDirectoriesThatAreLookedAtAreRefusedAndChangeNothing) {
  fs::create_directories(path().parent_path().parent_path());
  const DiskState before = now();
  EXPECT_THAT(copyCase(), Refuses(kNotWithinReport));
  auto lines = errorLines({"Error File name too long while attempting to resolve path: " +
                           path().parent_path().string()});
  for (const LogLine& line : outsideLines(path(), dir(), kNoDestinationLine)) {
    lines.push_back(line);
  }
  EXPECT_EQ(log_.take(), lines);
  expectNothingChanged(before);
}

TEST_P(OverlongNames, OfDirectoriesThatAreNotLookedAtCannotBeMade) {
  std::error_code expected(ENAMETOOLONG, std::generic_category());
  const DiskState before = now();
  EXPECT_THAT(copyCase(),
              FailsWith(expected, "Failed to create directory for report file variation"));
  EXPECT_EQ(log_.take(), errorLines({"Failed to create directory for report file variation"}));
  EXPECT_THAT(changesSince(before), Each(Key(StartsWith(entry("contentfiles")))));
  EXPECT_THAT(recordsSince(before.records), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, OverlongNames,
                         testing::Values(NameCase{{"Directory"}, "log", kTooLong + "/b", ""},
                                         NameCase{{"Nested"}, "log", "a/" + kTooLong + "/b", ""}),
                         CaseName());

/** Names of which no file can be made. */
class UnusableFileNames : public FilesTest {};

TEST_F(UnusableFileNames, APropertyWithATooLongNameCanHaveNoDirectory) {
  ASSERT_THAT(report().createReportFileProperty(kTooLong, "", {}), Succeeds());
  const fs::path source = makeSource("content");
  for (const bool looksAtIt : {false, true}) {
    if (looksAtIt) fs::create_directory(dir() / "contentfiles");
    const DiskState before = now();
    EXPECT_FALSE(
        report().copyFileToFileProperty(kTooLong, kLevel, source, kFileName, false).has_value());
    fs::remove(dir() / "contentfiles");
    EXPECT_THAT(changesSince(before),
                testing::AnyOf(IsEmpty(), ElementsAre(Pair(entry("contentfiles"), "gone"))));
    EXPECT_THAT(recordsSince(before.records), IsEmpty());
  }
}

TEST_F(UnusableFileNames, APathThatIsTooLongAsAWholeIsRefusedOrCannotBeMade) {
  std::string deep;
  for (int i = 0; i < 20; ++i)
    deep += kLongest + '/';
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_FALSE(copy(source, deep + 'x').has_value());
  EXPECT_EQ(log_.take().size(), 3U);
  expectNothingChanged(before);
}

TEST_F(UnusableFileNames, TooLongIsAFailureToCopy) {
  fs::create_directories(variationDirectory());
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_THAT(copy(source, kTooLong),
              FailsWith(std::error_code(ENAMETOOLONG, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": File name too long"}));
  expectOnlyStamped(before);
}

TEST_F(UnusableFileNames, ATrailingSeparatorMakesADirectoryWhichNoFileReplaces) {
  fs::create_directories(variationDirectory());
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_THAT(copy(source, "b/"),
              FailsWith(std::error_code(EINVAL, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": Invalid argument"}));
  EXPECT_THAT(changesSince(before), ElementsAre(Key(entry("contentfiles/log/2/b"))));
  EXPECT_THAT(recordsSince(before.records), ElementsAre(stamp()));
}

TEST_F(UnusableFileNames, NeitherThePropertyNorTheFileHasAName) {
  ASSERT_THAT(report().createReportFileProperty("", "", {}), Succeeds());
  fs::create_directories(dir() / "contentfiles/2");
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_THAT(report().copyFileToFileProperty("", kLevel, source, "", false),
              FailsWith(std::error_code(EINVAL, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": Invalid argument"}));
  expectOnlyStamped(before);
}

TEST_F(UnusableFileNames, DirectoriesThatCannotBeExaminedAreAnException) {
  fs::create_directories(variationDirectory());
  fs::create_symlink("loop", variationDirectory() / "loop");
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_THROW(static_cast<void>(copy(source, "loop/")), fs::filesystem_error);
  EXPECT_THROW(static_cast<void>(copy(source, kTooLong + '/')), fs::filesystem_error);
  EXPECT_THAT(log_.take(), IsEmpty());
  expectNothingChanged(before);
}

/** The system ends a name at its first NUL, where the text goes on. */
class NamesWithNul : public FilesTest {
 protected:
  /** Expects that neither of the two ways to read the name leads out of the report. */
  void expectNothingOutside(const std::string& property, const std::string& file) {
    const fs::path source = makeSource("content");
    const DiskState before = now();
    EXPECT_FALSE(
        report().copyFileToFileProperty(property, kLevel, source, file, false).has_value());
    EXPECT_THAT(changesSince(before), Each(Key(StartsWith(entry("")))));
  }

  const std::string nul_ = std::string(1, '\0');
};

TEST_F(NamesWithNul, OfFilesDoNotLeadOut) {
  const std::string back = nul_ + "/../" + kIdText + "/contentfiles/x";
  expectNothingOutside(kProperty, "../../../../made" + back);
  expectNothingOutside(kProperty, "../../../../../decoy" + back);
  expectNothingOutside(kProperty, "../../../../made" + nul_);
}

TEST_F(NamesWithNul, OfPropertiesDoNotLeadOut) {
  const std::string property = "../../made" + nul_ + "/../" + kIdText + "/contentfiles/x";
  ASSERT_THAT(report().createReportFileProperty(property, "", {}), Succeeds());
  expectNothingOutside(property, "b");
  expectNothingOutside(property, "");
}

TEST_F(NamesWithNul, OfRecordedFilesDoNotLeadOut) {
  const std::string path =
      dir().string() + "/../made" + nul_ + "/../" + kIdText + "/contentfiles/x";
  storeVariations({fileVariation(path, kLevel)});
  ASSERT_EQ(property().variations.size(), 1U);
  const fs::path source = makeSource("content");
  const DiskState before = now();
  EXPECT_FALSE(copy(source, "", true).has_value());
  EXPECT_THAT(changesSince(before), Each(Key(StartsWith(entry("")))));
}

}  // namespace
}  // namespace KELP::Diagnostic
