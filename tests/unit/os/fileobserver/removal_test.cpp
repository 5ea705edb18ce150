// rmWatch(): what it ends, and what it answers.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <limits>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FileObserverRemoval : public FileObserverTest {
 protected:
  FileObserverRemoval() {
    std::filesystem::create_directory(one_);
    std::filesystem::create_directory(two_);
  }

  int watch(const std::filesystem::path& path, const Recorder& recorder) {
    return observer_.addWatch(path, IN_CREATE, recorder.callback(), nullptr);
  }

  std::filesystem::path one_ = directory_ / "one";
  std::filesystem::path two_ = directory_ / "two";
  FileObserver observer_;
  Sentinel sentinel_{observer_};
  Recorder ofOne_;
  Recorder ofTwo_;
};

TEST_F(FileObserverRemoval, EndsThatWatchAlone) {
  const int one = watch(one_, ofOne_);
  const int two = watch(two_, ofTwo_);
  ASSERT_GE(one, 1);
  ASSERT_GE(two, 1);
  ASSERT_NE(one, two);
  touch(one_ / "before");
  ASSERT_TRUE(sentinel_.pass());

  EXPECT_TRUE(observer_.rmWatch(one));
  touch(one_ / "after");
  touch(two_ / "after");
  ASSERT_TRUE(sentinel_.pass());
  // Not even the kernel's last word on the watch, IN_IGNORED, reaches the callback.
  EXPECT_THAT(namesOf(ofOne_.seen()), ElementsAre("before"));
  EXPECT_THAT(namesOf(ofTwo_.seen()), ElementsAre("after"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverRemoval, DropsWhatWaitsBehindAnotherCallback) {
  const int one = watch(one_, ofOne_);
  watch(two_, ofTwo_);
  Blocker blocker(observer_);
  ASSERT_TRUE(blocker.block());
  touch(one_ / "1");
  touch(two_ / "2");
  touch(one_ / "3");
  touch(two_ / "4");
  EXPECT_TRUE(observer_.rmWatch(one));
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(ofOne_.seen(), IsEmpty());
  EXPECT_THAT(namesOf(ofTwo_.seen()), ElementsAre("2", "4"));
}

TEST_F(FileObserverRemoval, DoesNotWaitForItsOwnCallback) {
  Flag entered;
  Flag released;
  std::vector<std::string> names;
  const int wd = observer_.addWatch(
      one_, IN_CREATE,
      [&](inotify_event* event, void*) {
        names.emplace_back(static_cast<const char*>(event->name));
        entered.set();
        released.hold();
      },
      nullptr);
  touch(one_ / "first");
  ASSERT_TRUE(entered.wait());
  touch(one_ / "second");
  EXPECT_TRUE(observer_.rmWatch(wd));
  EXPECT_FALSE(observer_.rmWatch(wd));
  released.set();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(names, ElementsAre("first"));
}

TEST_F(FileObserverRemoval, DropsWhatWaitsThoughTheFileIsWatchedAgain) {
  const int before = watch(one_, ofOne_);
  Blocker blocker(observer_);
  ASSERT_TRUE(blocker.block());
  touch(one_ / "dropped");
  ASSERT_TRUE(observer_.rmWatch(before));
  const int after = watch(one_, ofTwo_);
  EXPECT_NE(after, before);
  touch(one_ / "seen");
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(ofOne_.seen(), IsEmpty());
  EXPECT_THAT(ofTwo_.seen(), ElementsAre(::testing::AllOf(::testing::Field(&Seen::wd, after),
                                                          ::testing::Field(&Seen::name, "seen"))));
}

TEST_F(FileObserverRemoval, OfWhatIsNoWatchIsFalse) {
  const int wd = watch(one_, ofOne_);
  for (const int none : {-1, 0, wd + 1, wd + 1000, std::numeric_limits<int>::max(),
                         std::numeric_limits<int>::min()}) {
    EXPECT_FALSE(observer_.rmWatch(none)) << none;
  }
  EXPECT_TRUE(observer_.rmWatch(wd));
  EXPECT_FALSE(observer_.rmWatch(wd));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverRemoval, OfWhatIsNoWatchLeavesTheOthers) {
  const int wd = watch(one_, ofOne_);
  observer_.rmWatch(-1);
  observer_.rmWatch(0);
  observer_.rmWatch(wd + 1000);
  touch(one_ / "file");
  EXPECT_THAT(namesOf(ofOne_.waitFor(1)), ElementsAre("file"));
}

TEST_F(FileObserverRemoval, IsOfThisObserverAlone) {
  FileObserver other;
  const int wd = other.addWatch(one_, IN_CREATE, ofOne_.callback(), nullptr);
  Sentinel sentinelOfOther(other);
  for (int here = 1; here < 100; ++here) {
    observer_.rmWatch(here);
  }
  touch(one_ / "file");
  EXPECT_THAT(namesOf(ofOne_.waitFor(1)), ElementsAre("file"));
  EXPECT_TRUE(other.rmWatch(wd));
}

}  // namespace
}  // namespace KELP::Test
