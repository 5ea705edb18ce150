// Callbacks get the kernel's own records: compared with those of an instance that the test reads by
// itself.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/** What the kernel tells of one path. */
class Kernel {
 public:
  Kernel(const std::filesystem::path& path, std::uint32_t mask)
      : instance_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
        wd_(::inotify_add_watch(instance_, path.c_str(), mask)) {}
  ~Kernel() { ::close(instance_); }
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  /** All that it has told, as if the watch descriptor were @p wd. */
  [[nodiscard]] std::vector<Seen> read(int wd, void* userData) const {
    EXPECT_GE(wd_, 1);
    std::vector<Seen> told;
    alignas(inotify_event) std::array<char, 65536> buffer{};
    for (ssize_t size = 0; (size = ::read(instance_, buffer.data(), buffer.size())) > 0;) {
      for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
        const auto& event = *reinterpret_cast<const inotify_event*>(buffer.data() + at);
        told.push_back(seenOf(event, userData));
        told.back().wd = wd;
        at += sizeof event + event.len;
      }
    }
    return told;
  }

 private:
  int instance_;
  int wd_;
};

class FileObserverEvents : public FileObserverTest {
 protected:
  FileObserver observer_;
  Sentinel sentinel_{observer_};
  Recorder recorder_;
  int userData_ = 0;
};

/** Something of every kind. No two events that follow each other are alike: the kernel may make one
 *  of them. */
void changeEntries(const std::filesystem::path& directory) {
  const std::filesystem::path file = directory / "file";
  writeFile(file, "content");
  changeMode(file);
  static_cast<void>(readFile(file));
  std::filesystem::rename(file, directory / "renamed");
  std::filesystem::create_directory(directory / "sub");
  std::filesystem::rename(directory / "renamed", directory / "sub" / "moved");
  std::filesystem::rename(directory / "sub" / "moved", directory / "back");
  ::unlink((directory / "back").c_str());
  ::rmdir((directory / "sub").c_str());
  touch(directory / "\xC3\xA9\xFF %s\n");  // Any bytes but "/" and NUL are a name.
}

class FileObserverMasks : public FileObserverEvents,
                          public ::testing::WithParamInterface<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(, FileObserverMasks,
                         ::testing::Values(IN_ALL_EVENTS, 0xF8A, IN_CREATE, IN_DELETE, IN_MOVE,
                                           IN_CLOSE_WRITE, IN_ATTRIB | IN_ONLYDIR));

TEST_P(FileObserverMasks, AreExactlyWhatTheKernelIsAskedForInADirectory) {
  const Kernel kernel(directory_.path(), GetParam());
  const int wd =
      observer_.addWatch(directory_.path(), GetParam(), recorder_.callback(), &userData_);
  ASSERT_GE(wd, 1);

  changeEntries(directory_.path());
  ASSERT_TRUE(sentinel_.pass());

  const std::vector<Seen> told = kernel.read(wd, &userData_);
  ASSERT_FALSE(told.empty());
  EXPECT_THAT(recorder_.seen(), ElementsAreArray(told));
}

TEST_F(FileObserverEvents, OfASingleFileHaveNoName) {
  const std::filesystem::path file = directory_ / "file";
  writeFile(file, "content");
  const Kernel kernel(file, IN_ALL_EVENTS);
  const int wd = observer_.addWatch(file, IN_ALL_EVENTS, recorder_.callback(), &userData_);
  ASSERT_GE(wd, 1);

  std::ofstream(file, std::ios::app) << "more content";  // Cutting it would be a like event.
  changeMode(file);
  std::filesystem::rename(file, directory_ / "renamed");
  std::filesystem::remove(directory_ / "renamed");
  ASSERT_TRUE(sentinel_.pass());

  const std::vector<Seen> seen = recorder_.seen();
  EXPECT_THAT(seen, ElementsAreArray(kernel.read(wd, &userData_)));
  EXPECT_THAT(seen, Each(Field(&Seen::len, 0)));
  ASSERT_GE(seen.size(), 2U);
  EXPECT_EQ(seen[seen.size() - 2].mask, static_cast<std::uint32_t>(IN_DELETE_SELF));
  EXPECT_EQ(seen.back().mask, static_cast<std::uint32_t>(IN_IGNORED));
}

TEST_F(FileObserverEvents, OfOneMoveShareACookie) {
  touch(directory_ / "from");
  ASSERT_GE(observer_.addWatch(directory_.path(), IN_MOVE, recorder_.callback(), nullptr), 1);
  std::filesystem::rename(directory_ / "from", directory_ / "to");

  const std::vector<Seen> seen = recorder_.waitFor(2);
  ASSERT_THAT(namesOf(seen), ElementsAre("from", "to"));
  EXPECT_THAT(masksOf(seen), ElementsAre(IN_MOVED_FROM, IN_MOVED_TO));
  EXPECT_NE(seen[0].cookie, 0U);
  EXPECT_EQ(seen[0].cookie, seen[1].cookie);
}

// While a callback runs, events are taken from the kernel in large pieces, which end between any
// two lengths.
TEST_F(FileObserverEvents, MayHaveNamesOfEveryLength) {
  const Kernel kernel(directory_.path(), IN_CREATE);
  const int wd = observer_.addWatch(directory_.path(), IN_CREATE, recorder_.callback(), nullptr);
  Blocker blocker(observer_);
  ASSERT_TRUE(blocker.block());
  for (std::size_t length = 1; length <= 255; ++length) {
    touch(directory_ / std::string(length, 'n'));
  }
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());

  const std::vector<Seen> told = kernel.read(wd, nullptr);
  ASSERT_THAT(told, SizeIs(255));
  EXPECT_THAT(recorder_.seen(), ElementsAreArray(told));
}

TEST_F(FileObserverEvents, ComeWithTheUserDataOfTheirWatch) {
  std::filesystem::create_directory(directory_ / "one");
  std::filesystem::create_directory(directory_ / "two");
  int other = 0;
  observer_.addWatch(directory_ / "one", IN_CREATE, recorder_.callback(), &userData_);
  observer_.addWatch(directory_ / "two", IN_CREATE, recorder_.callback(), &other);
  observer_.addWatch(directory_.path(), IN_CREATE, recorder_.callback(), nullptr);
  touch(directory_ / "one" / "a");
  touch(directory_ / "two" / "b");
  touch(directory_ / "c");
  touch(directory_ / "one" / "d");

  std::vector<void*> data;
  for (const Seen& seen : recorder_.waitFor(4)) {
    data.push_back(seen.userData);
  }
  EXPECT_THAT(data, ElementsAre(&userData_, &other, nullptr, &userData_));
}

TEST_F(FileObserverEvents, KeepTheirOrderAcrossWatches) {
  constexpr int kDirectories = 7;
  std::vector<int> wds;
  std::deque<TemporaryDirectory> directories(kDirectories);
  for (const TemporaryDirectory& one : directories) {
    wds.push_back(observer_.addWatch(one.path(), IN_CREATE, recorder_.callback(), nullptr));
  }

  std::mt19937 random(4711);
  std::uniform_int_distribution<std::size_t> any(0, kDirectories - 1);
  std::vector<std::pair<int, std::string>> expected;
  for (int number = 0; number < 300; ++number) {
    const std::size_t chosen = any(random);
    touch(directories[chosen] / std::to_string(number));
    expected.emplace_back(wds[chosen], std::to_string(number));
  }

  std::vector<std::pair<int, std::string>> seen;
  for (const Seen& one : recorder_.waitFor(expected.size())) {
    seen.emplace_back(one.wd, one.name);
  }
  EXPECT_EQ(seen, expected);
}

TEST_F(FileObserverEvents, FollowASymbolicLinkToWhatIsWatched) {
  std::filesystem::create_directory(directory_ / "real");
  std::filesystem::create_directory_symlink("real", directory_ / "link");
  const int wd = observer_.addWatch(directory_ / "link", IN_CREATE, recorder_.callback(), nullptr);
  ASSERT_GE(wd, 1);
  touch(directory_ / "real" / "file");
  EXPECT_THAT(namesOf(recorder_.waitFor(1)), ElementsAre("file"));
}

TEST_F(FileObserverEvents, FromBeforeTheWatchAreNotTold) {
  touch(directory_ / "before");
  ASSERT_GE(observer_.addWatch(directory_.path(), IN_CREATE, recorder_.callback(), nullptr), 1);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(recorder_.seen(), IsEmpty());
}

TEST_F(FileObserverEvents, LogNothing) {
  observer_.addWatch(directory_.path(), IN_ALL_EVENTS, recorder_.callback(), nullptr);
  changeEntries(directory_.path());
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(recorder_.seen(), ::testing::Not(IsEmpty()));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Test
