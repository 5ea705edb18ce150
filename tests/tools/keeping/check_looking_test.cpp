// Looking at directories.

#include "base/files.h"
#include "support/temporarydirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <system_error>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Tool::entriesOf;
using Tool::Entry;
using Tool::entryAt;
using Tool::forEachBelow;

class Looking : public ::testing::Test {
 protected:
  Looking() {
    fs::create_directories(top() / "b" / "c");
    writeFile(top() / "a", "12345");
    writeFile(top() / "b" / "c" / "d", "678");
    fs::create_directory_symlink(top(), directory_ / "link");
    fs::create_directory_symlink(directory_.path(), top() / "b" / "up");
  }

  [[nodiscard]] fs::path top() const { return directory_ / "top"; }

  TemporaryDirectory directory_;
};

std::vector<std::string> namesOf(const std::vector<Entry>& entries) {
  std::vector<std::string> names;
  for (const Entry& entry : entries) {
    names.push_back(entry.path.filename());
  }
  return names;
}

TEST_F(Looking, ListsADirectoryByName) {
  std::error_code error = std::make_error_code(std::errc::io_error);
  EXPECT_THAT(namesOf(entriesOf(top(), error)), ::testing::ElementsAre("a", "b"));
  EXPECT_FALSE(error);
  EXPECT_EQ(Tool::sizeBelow(top()), 8U);
}

TEST_F(Looking, FollowsNoLinkAtTheTop) {
  std::error_code error;
  EXPECT_THAT(entriesOf(directory_ / "link", error), ::testing::IsEmpty());
  EXPECT_FALSE(error);
  EXPECT_FALSE(forEachBelow(directory_ / "link", [](const Entry&) { FAIL(); }));
  EXPECT_EQ(Tool::sizeBelow(directory_ / "link"), 0U);
  EXPECT_EQ(Tool::openDirectory(AT_FDCWD, (directory_ / "link").c_str()), nullptr);
}

TEST_F(Looking, FollowsNoLinkBelow) {
  std::vector<std::string> seen;
  EXPECT_FALSE(forEachBelow(
      top(), [&](const Entry& entry) { seen.push_back(entry.path.lexically_relative(top())); }));
  EXPECT_THAT(seen, ::testing::UnorderedElementsAre("a", "b", "b/c", "b/c/d", "b/up"));
}

TEST_F(Looking, WhatIsNotThereIsNoError) {
  fs::create_symlink("loop", directory_ / "loop");
  for (const fs::path& path : {top() / "nothing", top() / "a" / "below", directory_ / "loop" / "x",
                               top() / std::string(300, 'n')}) {
    std::error_code error = std::make_error_code(std::errc::io_error);
    EXPECT_FALSE(entryAt(path, error).has_value());
    EXPECT_FALSE(error) << path;
  }
  std::error_code error;
  EXPECT_THAT(entriesOf(top() / "nothing", error), ::testing::IsEmpty());
  EXPECT_FALSE(error);
  EXPECT_THAT(entriesOf(top() / "a", error), ::testing::IsEmpty());
  EXPECT_FALSE(error);
}

TEST_F(Looking, WhatCannotBeKnownIsAnError) {
  fs::path path = top();
  for (int level = 0; level < 25; ++level) {
    path /= std::string(200, 'd');
  }
  std::error_code error;
  EXPECT_FALSE(entryAt(path, error).has_value());
  EXPECT_EQ(error, std::errc::filename_too_long);
  EXPECT_FALSE(entryAt(path).has_value());
  error.clear();
  EXPECT_THAT(entriesOf(path, error), ::testing::IsEmpty());
  EXPECT_EQ(error, std::errc::filename_too_long);
  EXPECT_EQ(forEachBelow(path, [](const Entry&) { FAIL(); }), std::errc::filename_too_long);
}

}  // namespace
}  // namespace KELP::Test
