// The end of an observer, from outside of its callbacks.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"
#include "unit/os/fileobserver/systemcalls.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace KELP::Test {
namespace {

using ::testing::IsEmpty;

class FileObserverDestruction : public FileObserverTest {
 protected:
  /** Destroys the observer while its callback, which `during_` is a part of, is running. Returns
   *  when both are over. */
  void destroyDuringACallback() {
    Flag entered;
    Flag destroying;
    std::atomic<bool> isOver = false;
    auto observer = std::make_unique<FileObserver>();
    const auto callback = [&, observer = observer.get()](inotify_event*, void*) {
      ++calls_;
      entered.set();
      destroying.hold();
      if (during_) {
        during_(*observer);
      }
      isOver = true;
    };
    ASSERT_GE(observer->addWatch(directory_.path(), IN_CREATE, callback, nullptr), 1);
    touch(directory_ / "first");
    ASSERT_TRUE(entered.wait());
    for (int number = 0; number < 100; ++number) {
      touch(directory_ / std::to_string(number));
    }

    const int joinsBefore = joinsBegun();
    std::thread destroyer([&] {
      observer.reset();
      EXPECT_TRUE(isOver) << "the destructor did not wait";
    });
    EXPECT_TRUE(waitUntil([&] { return joinsBegun() > joinsBefore; }));
    destroying.set();
    destroyer.join();
  }

  std::atomic<int> calls_ = 0;
  std::function<void(FileObserver&)> during_;
  Footprint before_;
};

TEST_F(FileObserverDestruction, LeavesNothingBehind) {
  {
    FileObserver observer;
    observer.addWatch(
        directory_.path(), IN_ALL_EVENTS, [](inotify_event*, void*) {}, nullptr);
  }
  EXPECT_TRUE(before_.isBack());
  { const FileObserver unused; }
  EXPECT_TRUE(before_.isBack());
}

TEST_F(FileObserverDestruction, WaitsForTheCallbackAndDropsWhatWaitsBehindIt) {
  destroyDuringACallback();
  EXPECT_EQ(calls_, 1);
  EXPECT_TRUE(before_.isBack());  // Nobody is left who could call.
  EXPECT_EQ(calls_, 1);
}

TEST_F(FileObserverDestruction, IsNotHeldUpByACallbackThatUsesTheObserver) {
  TemporaryDirectory other;
  int added = 0;
  int error = 0;
  during_ = [&](FileObserver& observer) {
    observer.rmWatch(1);
    errno = 0;
    added = observer.addWatch(
        other.path(), IN_CREATE, [&](inotify_event*, void*) { ++calls_; }, nullptr);
    error = errno;
    touch(other / "file");
    observer.rmWatch(added);
    observer.addWatch(
        other.path(), IN_CREATE, [&](inotify_event*, void*) { ++calls_; }, nullptr);
    touch(other / "second");
  };
  destroyDuringACallback();
  EXPECT_TRUE(added >= 1 || (added == -1 && error == EBADF)) << added << ", error " << error;
  EXPECT_EQ(calls_, 1);
  EXPECT_TRUE(before_.isBack());
  EXPECT_EQ(calls_, 1);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverDestruction, ReleasesWhatACallbackAddedMeanwhile) {
  const auto captured = std::make_shared<int>();
  during_ = [&](FileObserver& observer) {
    observer.addWatch(
        directory_.path(), IN_CREATE, [captured](inotify_event*, void*) {}, nullptr);
  };
  destroyDuringACallback();
  EXPECT_EQ(captured.use_count(), 1);
}

// What a callback holds may itself use the observer when it goes, also if it came too late.
TEST_F(FileObserverDestruction, LetsWhatACallbackAddedMeanwhileUseTheObserver) {
  std::atomic<int> released = 0;
  TemporaryDirectory other;
  during_ = [&](FileObserver& observer) {
    const auto wd = std::make_shared<int>(-1);
    const std::shared_ptr<void> last(nullptr, [&observer, &released, wd](void*) {
      observer.rmWatch(*wd);
      ++released;
    });
    *wd = observer.addWatch(
        other.path(), IN_CREATE, [last](inotify_event*, void*) {}, nullptr);
  };
  destroyDuringACallback();
  EXPECT_EQ(released, 1);
}

TEST_F(FileObserverDestruction, DoesNotTouchAnotherObserver) {
  Recorder recorder;
  FileObserver other;
  Sentinel sentinel(other);
  ASSERT_GE(other.addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr), 1);
  {
    FileObserver observer;
    observer.addWatch(
        directory_.path(), IN_CREATE, [](inotify_event*, void*) {}, nullptr);
  }
  touch(directory_ / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ::testing::ElementsAre("file"));
}

TEST_F(FileObserverDestruction, ComesAThousandTimesWhileFilesChange) {
  const Footprint before;
  auto changer = std::make_unique<FileChanger>(directory_ / "file");
  std::atomic<int> afterTheEnd = 0;
  const auto round = [&](bool waitForEvent) {
    std::atomic<bool> isGone = false;
    Flag called;
    {
      FileObserver observer;
      EXPECT_GE(observer.addWatch(
                    directory_.path(), IN_ALL_EVENTS,
                    [&](inotify_event*, void*) {
                      afterTheEnd += isGone ? 1 : 0;
                      called.set();
                    },
                    nullptr),
                1);
      if (waitForEvent) {
        EXPECT_TRUE(called.wait());
      }
    }
    isGone = true;
  };
  // Three of four end at any time, mostly before their first event.
  atOnce(10, 100, [&](int number) { round(number % 4 == 0); });
  EXPECT_EQ(afterTheEnd, 0);
  changer.reset();
  EXPECT_TRUE(before.isBack());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Test
