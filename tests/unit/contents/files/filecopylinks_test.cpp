// Symbolic links that somebody planted in a report.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::StartsWith;
namespace fs = std::filesystem;

class PlantedLinks : public FilesTest {
 protected:
  /** Puts a link there, with the directories above it. */
  static void plant(const fs::path& place, const fs::path& target) {
    fs::create_directories(place.parent_path());
    fs::remove_all(place);
    fs::create_symlink(target, place);
  }

  /** Expects that the copy is refused because its destination is outside. */
  void expectRefused(const std::string& fileName = kFileName, bool overwrite = false) {
    const DiskState before = now();
    EXPECT_THAT(copy(source_, fileName, overwrite), Refuses(kNotWithinReport));
    EXPECT_EQ(log_.take(),
              outsideLines(variationDirectory() / fileName, dir(), kNoDestinationLine));
    expectNothingChanged(before);
  }

  /** Expects that the copy succeeds, puts a plain file in place, and touches nothing outside. */
  void expectReplaced(bool overwrite) {
    const DiskState before = now();
    EXPECT_THAT(copy(source_, kFileName, overwrite), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(changesSince(before), ElementsAre(Key(entry("contentfiles/log/2/a.txt"))));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(storedFile())));
    EXPECT_EQ(readFile(storedFile()), "content");
    EXPECT_EQ(readFile(decoy()), "decoy");
  }

  const fs::path source_ = makeSource("content");
};

TEST_F(PlantedLinks, ForTheContentsAreRefusedWhenTheyLeadOut) {
  plant(dir() / "contentfiles", outside());
  expectRefused();
}

TEST_F(PlantedLinks, ForAPropertyAreRefusedWhenTheyLeadOut) {
  plant(dir() / "contentfiles/log", outside());
  expectRefused();
}

TEST_F(PlantedLinks, ForALevelAreRefusedWhenTheyLeadOut) {
  plant(variationDirectory(), outside());
  expectRefused();
}

TEST_F(PlantedLinks, BelowALevelAreRefusedWhenTheyLeadOut) {
  plant(variationDirectory() / "out", outside());
  expectRefused("out/x");
}

TEST_F(PlantedLinks, ByARelativeWayAreRefusedWhenTheyLeadOut) {
  plant(dir() / "contentfiles/log", "../../../outside");
  expectRefused();
}

TEST_F(PlantedLinks, OfDirectoriesAreRefusedWhenAFileIsOverwritten) {
  addFile(kLevel, "former");
  fs::create_directory(outside() / "2");
  writeFile(outside() / "2/a.txt", "another decoy");
  plant(dir() / "contentfiles/log", outside());
  expectRefused(kFileName, true);
}

TEST_F(PlantedLinks, ThatStayInTheReportAreFollowed) {
  fs::create_directory(dir() / "elsewhere");
  plant(dir() / "contentfiles/log", "../elsewhere");
  EXPECT_THAT(copy(source_), Succeeds());
  EXPECT_EQ(readFile(dir() / "elsewhere/2/a.txt"), "content");
  EXPECT_THAT(report().getReportFileVariationPath(kProperty, kLevel), Holds(storedFile()));
}

TEST_F(PlantedLinks, InTheFilesPlaceAreReplacedAndWhatTheyNameStays) {
  plant(storedFile(), decoy());
  expectReplaced(false);
}

TEST_F(PlantedLinks, InAStoredFilesPlaceAreReplacedAndWhatTheyNameStays) {
  addFile(kLevel, "former");
  plant(storedFile(), decoy());
  expectReplaced(true);
}

TEST_F(PlantedLinks, ToNothingAreReplacedAndNothingIsMadeThere) {
  plant(storedFile(), outside() / "missing");
  expectReplaced(false);
  EXPECT_THAT(namesIn(outside()), IsEmpty());
}

TEST_F(PlantedLinks, ToADirectoryAreReplaced) {
  plant(storedFile(), outside());
  expectReplaced(false);
  EXPECT_THAT(namesIn(outside()), IsEmpty());
}

TEST_F(PlantedLinks, ToThemselvesAreReplaced) {
  plant(storedFile(), kFileName);
  expectReplaced(false);
}

TEST_F(PlantedLinks, BehindADirectoryThatIsOnlyMadeDoNotLeadOut) {
  plant(dir() / "contentfiles/out", outside());
  plant(dir() / "contentfiles/decoy", decoy());
  for (const char* fileName : {"../../out/x", "missing/../../../out/x", "../../out/deeper/x"}) {
    SCOPED_TRACE(fileName);
    fs::remove_all(dir() / "contentfiles/log");
    storeVariations({});
    const DiskState before = now();
    EXPECT_FALSE(copy(source_, fileName).has_value());
    EXPECT_THAT(changesSince(before), Each(Key(StartsWith(entry("")))));
    EXPECT_THAT(property().variations, IsEmpty());
    static_cast<void>(log_.take());
  }
}

TEST_F(PlantedLinks, NamedWithASeparatorAreNotWrittenThrough) {
  plant(variationDirectory() / "out", outside());
  plant(variationDirectory() / "file", decoy());
  for (const char* fileName : {"out/", "file/"}) {
    SCOPED_TRACE(fileName);
    const DiskState before = now();
    EXPECT_FALSE(copy(source_, fileName).has_value());
    EXPECT_THAT(changesSince(before), IsEmpty());
    EXPECT_THAT(property().variations, IsEmpty());
  }
}

TEST_F(PlantedLinks, DoNotMakeAStoredFileItsOwnSource) {
  const fs::path path = addFile(kLevel, "content");
  fs::create_symlink(path, directory_ / "link");
  fs::create_hard_link(path, directory_ / "same");
  for (const fs::path& source : {path, directory_ / "link", directory_ / "same"}) {
    const DiskState before = now();
    EXPECT_THAT(copy(source, "", true),
                FailsWith(std::error_code(EEXIST, std::generic_category()), kCopyFailure));
    EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": File exists"}));
    EXPECT_THAT(changesSince(before), IsEmpty());
    EXPECT_THAT(keysSince(before), ElementsAre("modified"));
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
