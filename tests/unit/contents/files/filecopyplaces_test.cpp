// Sources and destinations that are no files, or cannot be reached.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kDirectoryFailure = "Failed to create directory for report file variation";

void makeFifo(const fs::path& path) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
}

/** What is put in a place; @p place is where, @p test the fixture. */
using Arrange = std::function<void(FilesTest& test, const fs::path& place)>;

struct PlaceCase : NamedCase {
  Arrange arrange;
  std::errc code;
};

class FilePlaceTest : public FilesTest, public testing::WithParamInterface<PlaceCase> {
 protected:
  /** Expects that @p result is the failure to copy that a bare copy of the same files ends in. */
  void expectCopyFailure(const Result& result, const fs::path& source, const fs::path& place) {
    std::error_code bare;
    fs::copy_file(source, place, fs::copy_options::overwrite_existing, bare);
    EXPECT_EQ(bare, GetParam().code);
    EXPECT_THAT(result, FailsWith(bare, kCopyFailure));
    EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": " + bare.message()}));
  }
};

class UnusableSource : public FilePlaceTest {
 protected:
  UnusableSource() {
    addFile(kLevel, "former");
    GetParam().arrange(*this, source_);
  }

  const fs::path source_ = directory_ / "source";
};

TEST_P(UnusableSource, FailsWithTheSystemsCodeAndAddsNoRecord) {
  fs::create_directories(variationDirectory(3));
  const DiskState before = now();
  const Result result = report().copyFileToFileProperty(kProperty, 3, source_, kFileName, false);
  expectOnlyStamped(before);
  expectCopyFailure(result, source_, storedFile(3));
}

TEST_P(UnusableSource, LeavesTheStoredFileAsItIs) {
  const DiskState before = now();
  const Result result = copy(source_, "", true);
  expectOnlyStamped(before);
  EXPECT_EQ(readFile(storedFile()), "former");
  expectCopyFailure(result, source_, storedFile());
}

TEST_P(UnusableSource, LeavesALinkInTheStoredFilesPlaceAsItIs) {
  fs::remove(storedFile());
  fs::create_symlink(decoy(), storedFile());
  const DiskState before = now();
  EXPECT_FALSE(copy(source_, "", true).has_value());
  expectOnlyStamped(before);
}

INSTANTIATE_TEST_SUITE_P(
    All, UnusableSource,
    testing::Values(
        PlaceCase{
            {"Missing"}, [](FilesTest&, const fs::path&) {}, std::errc::no_such_file_or_directory},
        PlaceCase{{"Directory"},
                  [](FilesTest&, const fs::path& place) { fs::create_directory(place); },
                  std::errc::invalid_argument},
        PlaceCase{{"Fifo"},
                  [](FilesTest&, const fs::path& place) { makeFifo(place); },
                  std::errc::invalid_argument},
        PlaceCase{{"Device"},
                  [](FilesTest&, const fs::path& place) { fs::create_symlink("/dev/zero", place); },
                  std::errc::invalid_argument},
        PlaceCase{{"LinkToNothing"},
                  [](FilesTest&, const fs::path& place) { fs::create_symlink("gone", place); },
                  std::errc::no_such_file_or_directory},
        PlaceCase{{"LinkToItself"},
                  [](FilesTest&, const fs::path& place) { fs::create_symlink("source", place); },
                  std::errc::too_many_symbolic_link_levels}),
    CaseName());

class UnusableDestination : public FilePlaceTest {
 protected:
  UnusableDestination() { fs::create_directories(variationDirectory()); }

  const fs::path source_ = makeSource("content");
};

TEST_P(UnusableDestination, FailsWithTheSystemsCodeAndStays) {
  GetParam().arrange(*this, storedFile());
  const DiskState before = now();
  const Result result = copy(source_);
  expectOnlyStamped(before);
  expectCopyFailure(result, source_, storedFile());
  expectOnlyStamped(before);
}

TEST_P(UnusableDestination, OfARecordFailsWithTheSystemsCodeAndStays) {
  GetParam().arrange(*this, storedFile());
  storeVariations({fileVariation(storedFile(), kLevel)});
  const DiskState before = now();
  const Result result = copy(source_, "", true);
  expectOnlyStamped(before);
  expectCopyFailure(result, source_, storedFile());
}

INSTANTIATE_TEST_SUITE_P(All, UnusableDestination,
                         testing::Values(PlaceCase{{"Directory"},
                                                   [](FilesTest&, const fs::path& place) {
                                                     fs::create_directory(place);
                                                   },
                                                   std::errc::invalid_argument},
                                         PlaceCase{{"DirectoryWithAFile"},
                                                   [](FilesTest&, const fs::path& place) {
                                                     fs::create_directory(place);
                                                     writeFile(place / "kept", "kept");
                                                   },
                                                   std::errc::invalid_argument},
                                         PlaceCase{{"Fifo"},
                                                   [](FilesTest&, const fs::path& place) {
                                                     makeFifo(place);
                                                   },
                                                   std::errc::invalid_argument},
                                         PlaceCase{{"BelowAFile"},
                                                   [](FilesTest& test, const fs::path&) {
                                                     fs::remove(test.variationDirectory());
                                                     writeFile(test.variationDirectory(), "a file");
                                                   },
                                                   std::errc::not_a_directory},
                                         PlaceCase{{"BelowAFifo"},
                                                   [](FilesTest& test, const fs::path&) {
                                                     fs::remove(test.variationDirectory());
                                                     makeFifo(test.variationDirectory());
                                                   },
                                                   std::errc::not_a_directory}),
                         CaseName());

/** Places where the directory of the file cannot be made. */
class UnusableDirectory : public FilePlaceTest {};

TEST_P(UnusableDirectory, FailsWithTheSystemsCodeAndStays) {
  GetParam().arrange(*this, dir() / "contentfiles");
  const fs::path source = makeSource("content");
  std::error_code bare;
  fs::create_directories(variationDirectory(), bare);
  EXPECT_EQ(bare, GetParam().code);
  const DiskState before = now();
  EXPECT_THAT(copy(source), FailsWith(bare, kDirectoryFailure));
  EXPECT_EQ(log_.take(), errorLines({kDirectoryFailure}));
  expectNothingChanged(before);
}

INSTANTIATE_TEST_SUITE_P(
    All, UnusableDirectory,
    testing::Values(PlaceCase{{"File"},
                              [](FilesTest&, const fs::path& place) { writeFile(place, "a file"); },
                              std::errc::not_a_directory},
                    PlaceCase{{"Fifo"},
                              [](FilesTest&, const fs::path& place) { makeFifo(place); },
                              std::errc::not_a_directory},
                    PlaceCase{{"PropertyIsAFile"},
                              [](FilesTest&, const fs::path& place) {
                                fs::create_directory(place);
                                writeFile(place / kProperty, "a file");
                              },
                              std::errc::not_a_directory},
                    PlaceCase{{"LinkOutToNothing"},
                              [](FilesTest& test, const fs::path& place) {
                                fs::create_symlink(test.outside() / "missing", place);
                              },
                              std::errc::file_exists},
                    PlaceCase{{"LevelLinksOutToNothing"},
                              [](FilesTest& test, const fs::path& place) {
                                fs::create_directories(place / kProperty);
                                fs::create_symlink(test.outside() / "missing",
                                                   test.variationDirectory());
                              },
                              std::errc::file_exists}),
    CaseName());

/** What permissions do not allow; the store stays writable for everyone. */
class FileCopyPermissions : public FilesTest {
 protected:
  const Permissions metadata_{metadataFile(), 0666};
};

TEST_F(FileCopyPermissions, ToMakeDirectoriesAreNeeded) {
  const Permissions readOnly(dir(), 0555);
  const fs::path source = makeSource("content");
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(copy(source),
                FailsWith(std::error_code(EACCES, std::generic_category()), kDirectoryFailure));
  }
  EXPECT_EQ(log_.take(), errorLines({kDirectoryFailure}));
  expectNothingChanged(before);
}

TEST_F(FileCopyPermissions, ToReadTheSourceAreNeeded) {
  addFile(kLevel, "former");
  const fs::path source = makeSource("content");
  const Permissions unreadable(source, 0);
  const Permissions writable(storedFile(), 0666);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(copy(source, "", true),
                FailsWith(std::error_code(EACCES, std::generic_category()), kCopyFailure));
  }
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": Permission denied"}));
  EXPECT_THAT(changesSince(before), IsEmpty());
  EXPECT_THAT(keysSince(before), ElementsAre("modified"));
}

TEST_F(FileCopyPermissions, ToReplaceALinkAreNeededElseWhatItNamesWouldBeWritten) {
  addFile(kLevel, "former");
  fs::remove(storedFile());
  fs::create_symlink(decoy(), storedFile());
  const fs::path source = makeSource("content");
  const Permissions writableDecoy(decoy(), 0666);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    const Result result = copy(source, "", true);
    EXPECT_FALSE(result.has_value());
  }
  EXPECT_EQ(readFile(decoy()), "decoy");
  EXPECT_THAT(changesSince(before), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
