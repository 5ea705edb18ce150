// The last that is told of a watch whose file is gone.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <atomic>

namespace KELP::Test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FileObserverGone : public FileObserverTest {
 protected:
  int watch(const std::filesystem::path& path, std::uint32_t mask, const Recorder& recorder) {
    return observer_.addWatch(path, mask, recorder.callback(), nullptr);
  }

  std::filesystem::path file_ = directory_ / "file";
  FileObserver observer_;
  Sentinel sentinel_{observer_};
  Recorder recorder_;
};

TEST_F(FileObserverGone, EndsWithInIgnoredAfterWhichThereIsNoWatch) {
  touch(file_);
  const int wd = watch(file_, IN_DELETE_SELF, recorder_);
  ASSERT_GE(wd, 1);
  std::filesystem::remove(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(recorder_.seen(), ElementsAre(Seen{wd, IN_DELETE_SELF, 0, 0, "", nullptr},
                                            Seen{wd, IN_IGNORED, 0, 0, "", nullptr}));
  EXPECT_FALSE(observer_.rmWatch(wd));
}

TEST_F(FileObserverGone, IsTheSameForADirectory) {
  std::filesystem::create_directory(directory_ / "sub");
  const int wd = watch(directory_ / "sub", IN_DELETE_SELF | IN_CREATE | IN_DELETE, recorder_);
  touch(directory_ / "sub" / "file");
  std::filesystem::remove_all(directory_ / "sub");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(masksOf(recorder_.seen()),
              ElementsAre(IN_CREATE, IN_DELETE, IN_DELETE_SELF, IN_IGNORED));
  EXPECT_FALSE(observer_.rmWatch(wd));
}

TEST_F(FileObserverGone, IsToldInItsCallbackThatThereIsNoWatch) {
  touch(file_);
  std::atomic<int> removedInIgnored = -1;
  const int wd = observer_.addWatch(
      file_, IN_ATTRIB,
      [&](inotify_event* event, void*) {
        if ((event->mask & IN_IGNORED) != 0) {
          removedInIgnored = observer_.rmWatch(event->wd) ? 1 : 0;
        }
      },
      nullptr);
  ASSERT_GE(wd, 1);
  std::filesystem::remove(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_EQ(removedInIgnored, 0);
}

TEST_F(FileObserverGone, IsNotToldAfterTheWatchWasGivenUp) {
  touch(file_);
  const int wd = watch(file_, IN_DELETE_SELF, recorder_);
  Blocker blocker(observer_);
  ASSERT_TRUE(blocker.block());
  std::filesystem::remove(file_);
  EXPECT_FALSE(observer_.rmWatch(wd)) << "its file is gone";
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(recorder_.seen(), IsEmpty());
}

TEST_F(FileObserverGone, EndsAWatchForOneEventAlone) {
  const int wd = watch(directory_.path(), IN_CREATE | IN_ONESHOT, recorder_);
  touch(file_);
  touch(directory_ / "second");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(masksOf(recorder_.seen()), ElementsAre(IN_CREATE, IN_IGNORED));
  EXPECT_FALSE(observer_.rmWatch(wd));
}

TEST_F(FileObserverGone, LeavesThePathToANewFile) {
  touch(file_);
  const int before = watch(file_, IN_ATTRIB, recorder_);
  Blocker blocker(observer_);
  ASSERT_TRUE(blocker.block());
  std::filesystem::remove(file_);
  touch(file_);
  Recorder ofNew;
  const int after = watch(file_, IN_ATTRIB, ofNew);
  ASSERT_GE(after, 1);
  EXPECT_NE(after, before);
  blocker.release();
  changeMode(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(masksOf(recorder_.seen()), Contains(IN_IGNORED));
  EXPECT_THAT(ofNew.seen(), ElementsAre(Seen{after, IN_ATTRIB, 0, 0, "", nullptr}));
  EXPECT_FALSE(observer_.rmWatch(before));
  EXPECT_TRUE(observer_.rmWatch(after));
}

}  // namespace
}  // namespace KELP::Test
