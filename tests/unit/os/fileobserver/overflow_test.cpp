// The kernel's queue overflows all the same: here because nobody gets to read it.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/systemcalls.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <string>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Seen kOverflow{-1, IN_Q_OVERFLOW, 0, 0, "", nullptr};

class FileObserverOverflow : public FileObserverTest {
 protected:
  FileObserverOverflow() {
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kernelHolds_;
    for (const std::string& file : files_) {
      touch(directory_ / file);
    }
  }

  /** More events than the kernel keeps. @return the names in their order. */
  std::vector<std::string> overflow() {
    std::vector<std::string> caused;
    while (caused.size() < kernelHolds_ + 1000) {
      caused.push_back(files_.at(caused.size() % files_.size()));
      changeMode(directory_ / caused.back());
    }
    return caused;
  }

  /** How many of @p seen come before the only overflow. Checks that they are the first of
   *  @p caused. */
  static std::size_t checkBeforeOverflow(const std::vector<Seen>& seen,
                                         const std::vector<std::string>& caused) {
    const auto at = std::ranges::find(seen, kOverflow);
    EXPECT_EQ(std::ranges::count(seen, kOverflow), 1);
    const auto before = static_cast<std::size_t>(at - seen.begin());
    EXPECT_GT(before, 0U);
    EXPECT_LT(before, caused.size());
    EXPECT_TRUE(
        std::ranges::equal(namesOf({seen.begin(), at}),
                           std::vector(caused.begin(), caused.begin() + (at - seen.begin()))));
    return before;
  }

  std::array<std::string, 3> files_{"a", "b", "c"};
  std::size_t kernelHolds_ = 0;
  TemporaryDirectory quietDirectory_;
};

TEST_F(FileObserverOverflow, IsToldOnceToEachWatchInItsPlace) {
  FileObserver observer;
  PollGate gate;
  Recorder busy;
  Recorder quiet;
  Recorder removed;
  ASSERT_GE(observer.addWatch(directory_.path(), IN_ATTRIB, busy.callback(), nullptr), 1);
  ASSERT_GE(observer.addWatch(quietDirectory_.path(), IN_CREATE, quiet.callback(), nullptr), 1);
  TemporaryDirectory removedDirectory;
  ASSERT_TRUE(observer.rmWatch(
      observer.addWatch(removedDirectory.path(), IN_CREATE, removed.callback(), nullptr)));
  const std::vector<std::string> caused = overflow();
  touch(quietDirectory_ / "lost");
  gate.open();

  ASSERT_THAT(quiet.waitFor(1), ElementsAre(kOverflow));
  touch(quietDirectory_ / "later");
  changeMode(directory_ / "a");
  Sentinel sentinel(observer);
  ASSERT_TRUE(sentinel.pass());
  EXPECT_THAT(namesOf(quiet.seen()), ElementsAre("", "later"));
  const std::vector<Seen> seen = busy.seen();
  const std::size_t before = checkBeforeOverflow(seen, caused);
  ASSERT_EQ(seen.size(), before + 2);
  EXPECT_EQ(seen.back().name, "a");
  EXPECT_EQ(seen.back().mask, static_cast<std::uint32_t>(IN_ATTRIB));
  EXPECT_THAT(removed.seen(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverOverflow, IsToldAgainWhenItComesAgain) {
  FileObserver observer;
  Recorder quiet;
  ASSERT_GE(observer.addWatch(
                directory_.path(), IN_ATTRIB, [](inotify_event*, void*) {}, nullptr),
            1);
  ASSERT_GE(observer.addWatch(quietDirectory_.path(), IN_CREATE, quiet.callback(), nullptr), 1);
  for (std::size_t time = 1; time <= 2; ++time) {
    {
      const PollGate gate;
      overflow();
    }
    ASSERT_THAT(quiet.waitFor(time), ::testing::SizeIs(time));
  }
  Sentinel sentinel(observer);
  ASSERT_TRUE(sentinel.pass());
  EXPECT_THAT(quiet.seen(), ElementsAre(kOverflow, kOverflow));
}

TEST_F(FileObserverOverflow, IsNotToldToAWatchThatIsRemovedBefore) {
  std::atomic<int> wd = 0;
  std::atomic<bool> isRemoved = false;
  std::atomic<int> overflows = 0;
  FileObserver observer;
  PollGate gate;
  Recorder quiet;
  observer.addWatch(
      directory_.path(), IN_ATTRIB,
      [&](inotify_event* event, void*) {
        if (!isRemoved.exchange(true)) {
          EXPECT_TRUE(observer.rmWatch(wd));
        }
        overflows += event->mask == IN_Q_OVERFLOW ? 1 : 0;
      },
      nullptr);
  wd = observer.addWatch(quietDirectory_.path(), IN_CREATE, quiet.callback(), nullptr);
  overflow();
  gate.open();
  ASSERT_TRUE(waitUntil([&] { return overflows > 0; }));
  Sentinel sentinel(observer);
  ASSERT_TRUE(sentinel.pass());
  EXPECT_EQ(overflows, 1);
  EXPECT_THAT(quiet.seen(), IsEmpty());
}

TEST_F(FileObserverOverflow, PassesTheUserDataOfTheWatch) {
  FileObserver observer;
  PollGate gate;
  int userData = 0;
  Recorder quiet;
  observer.addWatch(
      directory_.path(), IN_ATTRIB, [](inotify_event*, void*) {}, nullptr);
  observer.addWatch(quietDirectory_.path(), IN_CREATE, quiet.callback(), &userData);
  overflow();
  gate.open();
  EXPECT_THAT(quiet.waitFor(1), ElementsAre(Seen{-1, IN_Q_OVERFLOW, 0, 0, "", &userData}));
}

}  // namespace
}  // namespace KELP::Test
