// Directories of a report that are very deep, very wide, or cannot be removed.

#include "faults/hostile/scene.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr int kLevels = 5000;

/** Makes a directory in a directory, one in that, and so on, with a file and a link at each level:
 *  far deeper than a path can name. */
void makeDeep(const fs::path& top, const fs::path& outside) {
  int directory = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < kLevels; ++level) {
    ASSERT_EQ(::mkdirat(directory, "directory", 0777), 0);
    ASSERT_EQ(::symlinkat(outside.c_str(), directory, "link"), 0);
    ASSERT_EQ(::mkfifoat(directory, "fifo", 0666), 0);
    const int next = ::openat(directory, "directory", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(directory);
    directory = next;
  }
  ::close(directory);
}

void makeWide(const fs::path& top, const fs::path& outside) {
  for (int at = 0; at < 1000; ++at) {
    const std::string name = std::to_string(at);
    writeFile(top / ("file " + name), name);
    fs::create_directory_symlink(outside, top / ("link " + name));
    fs::create_directories(top / ("directory " + name) / "below");
  }
}

/** Names of every byte, and others that are easily mistaken. */
void makeOdd(const fs::path& top, const fs::path& outside) {
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/' && byte != '.') {
      fs::create_directories(top / std::string(1, static_cast<char>(byte)) / "below");
      writeFile(top / (std::string(1, static_cast<char>(byte)) + "\n"), "content");
    }
  }
  for (const std::string name : {"-rf", "...", "..x", "\x1b[2J", "a;b", "%s%n"}) {
    fs::create_directory_symlink(outside, top / name);
  }
  writeFile(top / std::string(255, '\xff'), "content");
}

struct Tree {
  const char* name;
  void (*make)(const fs::path& top, const fs::path& outside);
};

std::ostream& operator<<(std::ostream& out, const Tree& tree) {
  return out << tree.name;
}

/** Where a tree is, and what removes it. */
struct Removal {
  const char* operation;
  const char* below;
  const char* removed;
};

constexpr Removal kRemovals[] = {
    {"remove property", "contentfiles/log", "contentfiles/log"},
    {"remove variation", "contentfiles/log/2/a.txt", "contentfiles/log/2/a.txt"},
    {"policy", "contentfiles/log/2/a.txt", "contentfiles/log/2/a.txt"},
    {"purge", "tmp", "tmp"},
    {"delete report", "contentfiles", ""},
    {"delete", ".", ""},
    {"force delete", "contentfiles/log/2", ""},
};

/** Runs with few descriptors and a small stack, as do the processes that it starts. */
class Scarcity {
 public:
  Scarcity() {
    limit(RLIMIT_NOFILE, 64, files_);
    limit(RLIMIT_STACK, 1U << 20, stack_);
  }
  ~Scarcity() {
    ::setrlimit(RLIMIT_NOFILE, &files_);
    ::setrlimit(RLIMIT_STACK, &stack_);
  }
  Scarcity(const Scarcity&) = delete;
  Scarcity& operator=(const Scarcity&) = delete;

 private:
  static void limit(int resource, rlim_t number, rlimit& before) {
    ::getrlimit(static_cast<__rlimit_resource>(resource), &before);
    const rlimit now{number, before.rlim_max};
    ::setrlimit(static_cast<__rlimit_resource>(resource), &now);
  }

  rlimit files_{};
  rlimit stack_{};
};

class HostileTree : public testing::TestWithParam<Tree> {
 protected:
  const Scene scene_;
  const Scarcity scarcity_;
  Actor actor_{scene_};
};

TEST_P(HostileTree, IsRemovedAndWhatItsLinksNameStays) {
  for (const Removal& removal : kRemovals) {
    SCOPED_TRACE(removal.operation);
    scene_.reset();
    const fs::path top = (scene_.subject() / removal.below).lexically_normal();
    if (!fs::is_directory(top)) {
      fs::remove(top);
      fs::create_directory(top);
    }
    GetParam().make(top, scene_.outside());
    const Entries before = scene_.untouchable();
    const Attempt attempt = actor_.attempt(removal.operation);
    ASSERT_TRUE(attempt.isOver) << "it hangs, or crashed";
    EXPECT_EQ(attempt.result, removal.operation == std::string("policy") ? "yes yes" : "yes");
    EXPECT_EQ(attempt.lines, std::vector<std::string>());
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    const fs::path removed =
        *removal.removed == '\0' ? scene_.subject() : scene_.subject() / removal.removed;
    EXPECT_FALSE(fs::exists(fs::symlink_status(removed))) << removed;
  }
}

INSTANTIATE_TEST_SUITE_P(, HostileTree,
                         testing::Values(Tree{"Deep", makeDeep}, Tree{"Wide", makeWide},
                                         Tree{"WithOddNames", makeOdd}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace KELP::Test
