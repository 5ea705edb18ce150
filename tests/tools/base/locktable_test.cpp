// Who holds files, as the kernel tells it.

#include "reports/locktable.h"

#include "support/temporarydirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <sstream>
#include <string>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using KELP::Test::readFile;
using KELP::Test::TemporaryDirectory;
using KELP::Test::writeFile;

/** Holds a file by flock. */
class Holder {
 public:
  Holder(const fs::path& path, int operation)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(::flock(descriptor_, operation), 0);
  }
  ~Holder() { ::close(descriptor_); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

 private:
  int descriptor_;
};

class LockTableTest : public testing::Test {
 protected:
  LockTableTest() {
    writeFile(file_, "");
    writeFile(other_, "");
  }

  TemporaryDirectory directory_;
  fs::path file_ = directory_ / "lock";
  fs::path other_ = directory_ / "other";
};

TEST_F(LockTableTest, TellsReadersAndWriters) {
  EXPECT_EQ(LockTable().stateOf(file_), LockState::Free);
  {
    const Holder reader(file_, LOCK_SH);
    EXPECT_EQ(LockTable().stateOf(file_), LockState::Read);
    EXPECT_EQ(LockTable().stateOf(other_), LockState::Free);
    const Holder second(file_, LOCK_SH);
    EXPECT_EQ(LockTable().stateOf(file_), LockState::Read);
  }
  {
    const Holder writer(file_, LOCK_EX);
    EXPECT_EQ(LockTable().stateOf(file_), LockState::Write);
    EXPECT_EQ(LockTable().stateOf(other_), LockState::Free);
  }
  EXPECT_EQ(LockTable().stateOf(file_), LockState::Free);
}

TEST_F(LockTableTest, IsThatOfItsConstruction) {
  const LockTable before;
  const Holder writer(file_, LOCK_EX);
  EXPECT_EQ(before.stateOf(file_), LockState::Free);
}

TEST_F(LockTableTest, DoesNotCountWhoOnlyWaits) {
  auto reader = std::make_unique<Holder>(file_, LOCK_SH);
  const auto waiting = std::async(std::launch::async, [&] { const Holder writer(file_, LOCK_EX); });
  // It waits when the kernel lists it behind an arrow.
  const std::string inode = ":" + std::to_string([&] {
                              struct stat status {};
                              ::stat(file_.c_str(), &status);
                              return status.st_ino;
                            }()) +
                            " ";
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  bool isWaiting = false;
  while (!isWaiting && std::chrono::steady_clock::now() < end) {
    std::istringstream locks(readFile("/proc/locks"));
    for (std::string line; std::getline(locks, line);) {
      isWaiting |= line.find("->") != std::string::npos && line.find(inode) != std::string::npos;
    }
  }
  EXPECT_TRUE(isWaiting);
  EXPECT_EQ(LockTable().stateOf(file_), LockState::Read);
  reader.reset();
}

TEST_F(LockTableTest, IgnoresLocksOfAnotherKind) {
  const int descriptor = ::open(file_.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(descriptor, F_SETLK, &lock), 0);
  EXPECT_EQ(LockTable().stateOf(file_), LockState::Free);
  ::close(descriptor);
}

TEST_F(LockTableTest, SaysFreeOfAFileThatIsNotThere) {
  EXPECT_EQ(LockTable().stateOf(directory_ / "nothing"), LockState::Free);
}

// An overlay of two file systems gives its files device numbers that the kernel's list does not
// have.
TEST_F(LockTableTest, SeesLocksWhereStatTellsOtherDevices) {
  const TemporaryDirectory place;
  for (const char* const name : {"lower", "upper", "work", "merged"}) {
    fs::create_directory(place / name);
  }
  const fs::path lower = place / "lower";
  if (::mount("tmpfs", lower.c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "nothing can be mounted here";
  }
  const fs::path merged = place / "merged";
  const std::string options = "lowerdir=" + lower.native() +
                              ",upperdir=" + (place / "upper").native() +
                              ",workdir=" + (place / "work").native();
  const bool isMounted = ::mount("overlay", merged.c_str(), "overlay", 0, options.c_str()) == 0;
  if (isMounted) {
    writeFile(merged / "lock", "");
    const Holder writer(merged / "lock", LOCK_EX);
    EXPECT_EQ(LockTable().stateOf(merged / "lock"), LockState::Write);
  }
  ::umount2(merged.c_str(), MNT_DETACH);
  ::umount2(lower.c_str(), MNT_DETACH);
  if (!isMounted) {
    GTEST_SKIP() << "no overlay can be mounted here";
  }
}

TEST(LockStateName, IsAWord) {
  EXPECT_STREQ(nameOf(LockState::Free), "free");
  EXPECT_STREQ(nameOf(LockState::Read), "read");
  EXPECT_STREQ(nameOf(LockState::Write), "write");
}

}  // namespace
}  // namespace KELP::Tool
