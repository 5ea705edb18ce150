// The handle of a scratch file by itself, without a report.

#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "unit/diagnostic/disk.h"

#include <diagnostic/reporttemporaryfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
namespace fs = std::filesystem;

class TemporaryFile : public testing::Test {
 protected:
  ~TemporaryFile() override { EXPECT_THAT(log_.take(), IsEmpty()) << "no operation logs"; }

  [[nodiscard]] ReportTemporaryFile make() const { return ReportTemporaryFile(directory_.path()); }

  /** Writes the file, and returns where. */
  static fs::path write(const ReportTemporaryFile& file) {
    writeFile(file.getPath().value(), "content");
    return file.getPath().value();
  }

  const TemporaryDirectory directory_;
  LogCapture log_;
};

TEST_F(TemporaryFile, HasAFreshNameAndIsNotMade) {
  std::set<fs::path> paths;
  for (int i = 0; i < 100; ++i) {
    const ReportTemporaryFile file = make();
    EXPECT_TRUE(file.isValid());
    ASSERT_TRUE(file.getPath().has_value());
    EXPECT_EQ(file.getPath()->parent_path(), directory_.path());
    // A random identifier in lower case: version 4 of the usual variant.
    EXPECT_THAT(
        file.getPath()->filename().string(),
        MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    paths.insert(*file.getPath());
  }
  EXPECT_EQ(paths.size(), 100U);
  EXPECT_THAT(namesIn(directory_.path()), IsEmpty());
}

TEST_F(TemporaryFile, NeedsNoDirectory) {
  const ReportTemporaryFile file(directory_ / "missing");
  EXPECT_EQ(file.getPath()->parent_path(), directory_ / "missing");
  EXPECT_TRUE(file.isValid());
}

TEST_F(TemporaryFile, IsDeletedWithItsHandle) {
  {
    const ReportTemporaryFile file = make();
    EXPECT_TRUE(fs::exists(write(file)));
  }
  EXPECT_THAT(namesIn(directory_.path()), IsEmpty());
}

TEST_F(TemporaryFile, ThatWasNeverWrittenNeedsNoDeletion) {
  writeFile(directory_ / "other", "kept");
  { const ReportTemporaryFile file = make(); }
  EXPECT_THAT(namesIn(directory_.path()), ElementsAre("other"));
}

TEST_F(TemporaryFile, CleanupDeletesItAndEndsTheHandle) {
  ReportTemporaryFile file = make();
  const fs::path path = write(file);
  file.cleanup();
  EXPECT_FALSE(fs::exists(path));
  EXPECT_FALSE(file.isValid());
  EXPECT_EQ(file.getPath(), std::nullopt);
}

TEST_F(TemporaryFile, CleanupHappensOnce) {
  fs::path path;
  {
    ReportTemporaryFile file = make();
    path = write(file);
    file.cleanup();
    writeFile(path, "somebody else's");
    file.cleanup();
  }
  EXPECT_EQ(readFile(path), "somebody else's");
}

TEST_F(TemporaryFile, IsDeletedByTheHandleThatTookItOver) {
  fs::path path;
  {
    std::optional<ReportTemporaryFile> first(directory_.path());
    path = write(*first);
    const ReportTemporaryFile second(std::move(*first));
    EXPECT_FALSE(first->isValid());
    EXPECT_EQ(first->getPath(), std::nullopt);
    EXPECT_TRUE(second.isValid());
    EXPECT_EQ(second.getPath(), path);
    first->cleanup();
    EXPECT_TRUE(fs::exists(path));
    first.reset();
    EXPECT_TRUE(fs::exists(path));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(TemporaryFile, AMoveFromAHandleOfNothingGivesAnother) {
  ReportTemporaryFile nothing{std::nullopt};
  const ReportTemporaryFile moved(std::move(nothing));
  EXPECT_FALSE(moved.isValid());
  EXPECT_EQ(moved.getPath(), std::nullopt);
}

TEST_F(TemporaryFile, LivesAsLongAsAnyOfItsOwners) {
  auto first = std::make_shared<ReportTemporaryFile>(directory_.path());
  auto second = first;
  const fs::path path = write(*first);
  first.reset();
  EXPECT_TRUE(fs::exists(path));
  second.reset();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(TemporaryFile, CleanupByOneOwnerEndsItForAll) {
  const auto first = std::make_shared<ReportTemporaryFile>(directory_.path());
  const auto second = first;
  write(*first);
  first->cleanup();
  EXPECT_FALSE(second->isValid());
  EXPECT_EQ(second->getPath(), std::nullopt);
}

TEST_F(TemporaryFile, OfNoDirectoryOwnsNothingAndSparesTheNullDevice) {
  ASSERT_TRUE(fs::is_character_file("/dev/null"));
  {
    ReportTemporaryFile nothing{std::nullopt};
    EXPECT_FALSE(nothing.isValid());
    EXPECT_EQ(nothing.getPath(), std::nullopt);
    nothing.cleanup();
  }
  {
    ReportTemporaryFile former = make();
    const ReportTemporaryFile next(std::move(former));
  }
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(TemporaryFile, ADirectoryWithSomethingInItsPlaceStays) {
  fs::path path;
  {
    ReportTemporaryFile file = make();
    path = file.getPath().value();
    fs::create_directory(path);
    writeFile(path / "inside", "kept");
    file.cleanup();
    EXPECT_FALSE(file.isValid());
  }
  EXPECT_EQ(readFile(path / "inside"), "kept");
}

TEST_F(TemporaryFile, AnEmptyDirectoryInItsPlaceIsRemoved) {
  const ReportTemporaryFile other = make();
  {
    const ReportTemporaryFile file = make();
    fs::create_directory(file.getPath().value());
  }
  EXPECT_THAT(namesIn(directory_.path()), IsEmpty());
}

TEST_F(TemporaryFile, ALinkInItsPlaceIsRemovedAndWhatItNamesStays) {
  writeFile(directory_ / "named", "kept");
  {
    const ReportTemporaryFile file = make();
    fs::create_symlink(directory_ / "named", file.getPath().value());
  }
  EXPECT_THAT(namesIn(directory_.path()), ElementsAre("named"));
  EXPECT_EQ(readFile(directory_ / "named"), "kept");
}

TEST_F(TemporaryFile, ALinkToNothingInItsPlaceStays) {
  ReportTemporaryFile file = make();
  const fs::path path = file.getPath().value();
  fs::create_symlink(directory_ / "missing", path);
  file.cleanup();
  EXPECT_FALSE(file.isValid());
  EXPECT_TRUE(fs::is_symlink(path)) << "by what it leads to, there is nothing to remove";
}

TEST_F(TemporaryFile, BelowSomethingThatIsNoDirectoryDoesNotExist) {
  writeFile(directory_ / "file", "kept");
  ReportTemporaryFile file(directory_ / "file");
  EXPECT_NO_THROW(file.cleanup());
  EXPECT_EQ(readFile(directory_ / "file"), "kept");
}

/** Directories in which nothing can be examined, also for those whom permissions do not stop. */
class UnexaminableTemporaryFile : public TemporaryFile {
 protected:
  UnexaminableTemporaryFile() { fs::create_symlink("loop", directory_ / "loop"); }

  /** The directory, and what the system says of a file in it. */
  [[nodiscard]] std::vector<std::pair<fs::path, std::errc>> places() const {
    return {{directory_ / "loop", std::errc::too_many_symbolic_link_levels},
            {directory_ / std::string(256, 'x'), std::errc::filename_too_long}};
  }
};

TEST_F(UnexaminableTemporaryFile, CleanupThrowsAndStillEndsTheHandle) {
  for (const auto& [place, expected] : places()) {
    ReportTemporaryFile file(place);
    try {
      file.cleanup();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const fs::filesystem_error& error) {
      EXPECT_EQ(error.code(), expected);
    }
    EXPECT_FALSE(file.isValid());
    EXPECT_EQ(file.getPath(), std::nullopt);
    EXPECT_NO_THROW(file.cleanup());
  }
}

TEST_F(UnexaminableTemporaryFile, DestructionDoesNotThrow) {
  static_assert(std::is_nothrow_destructible_v<ReportTemporaryFile>);
  for (const auto& [place, expected] : places()) {
    // What a destructor threw would end the process.
    EXPECT_NO_THROW(ReportTemporaryFile{place});
  }
}

static_assert(!std::is_copy_constructible_v<ReportTemporaryFile>);
static_assert(!std::is_copy_assignable_v<ReportTemporaryFile>);
static_assert(std::is_nothrow_move_constructible_v<ReportTemporaryFile>);
static_assert(!std::is_move_assignable_v<ReportTemporaryFile>);

}  // namespace
}  // namespace KELP::Diagnostic
