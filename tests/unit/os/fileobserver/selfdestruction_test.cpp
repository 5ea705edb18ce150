// The end of an observer from inside one of its callbacks.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace KELP::Test {
namespace {

using ::testing::IsEmpty;

class FileObserverSelfDestruction : public FileObserverTest {
 protected:
  Footprint before_;
  std::unique_ptr<FileObserver> observer_ = std::make_unique<FileObserver>();
};

TEST_F(FileObserverSelfDestruction, EndsTheThreadAfterTheCallback) {
  Flag over;
  std::atomic<int> calls = 0;
  const std::string captured(1000, 'c');
  std::string after;
  observer_->addWatch(
      directory_.path(), IN_CREATE,
      [&, captured](inotify_event* event, void*) {
        ++calls;
        for (int number = 0; number < 100; ++number) {
          touch(directory_ / std::to_string(number));  // Is not delivered any more.
        }
        observer_.reset();
        after = captured + static_cast<const char*>(event->name);
        over.set();
      },
      nullptr);
  touch(directory_ / "file");
  ASSERT_TRUE(over.wait());
  EXPECT_TRUE(before_.isBack());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(after, captured + "file") << "the callback and the event are there until it returns";
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverSelfDestruction, ReleasesWhatCallbacksHold) {
  const auto captured = std::make_shared<int>();
  TemporaryDirectory other;
  observer_->addWatch(
      other.path(), IN_CREATE, [captured](inotify_event*, void*) {}, nullptr);
  Flag over;
  observer_->addWatch(
      directory_.path(), IN_CREATE,
      [this, captured, &over](inotify_event*, void*) {
        observer_.reset();
        over.set();
      },
      nullptr);
  ASSERT_EQ(captured.use_count(), 3);
  touch(directory_ / "file");
  ASSERT_TRUE(over.wait());
  ASSERT_TRUE(before_.isBack());
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(FileObserverSelfDestruction, MayBeFollowedByAnException) {
  observer_->addWatch(
      directory_.path(), IN_CREATE,
      [this](inotify_event*, void*) {
        observer_.reset();
        throw std::runtime_error("last words");
      },
      nullptr);
  touch(directory_ / "file");
  ASSERT_TRUE(before_.isBack());
  EXPECT_THAT(log_.lines(),
              ::testing::ElementsAre(errorLine(
                  "A callback of the file observer ended with an exception: last words")));
}

TEST_F(FileObserverSelfDestruction, MayBeFollowedByANewObserver) {
  Recorder recorder;
  Flag over;
  observer_->addWatch(
      directory_.path(), IN_CREATE,
      [&](inotify_event*, void*) {
        observer_ = std::make_unique<FileObserver>();
        observer_->addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr);
        touch(directory_ / "second");
        over.set();
      },
      nullptr);
  touch(directory_ / "first");
  ASSERT_TRUE(over.wait());
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ::testing::ElementsAre("second"));
  observer_.reset();
  EXPECT_TRUE(before_.isBack());
}

// What a removed callback holds goes on the observer's thread, once that callback is over.
TEST_F(FileObserverSelfDestruction, MayComeFromWhatACallbackHolds) {
  Flag over;
  std::shared_ptr<void> last(nullptr, [this, &over](void*) {
    observer_.reset();
    over.set();
  });
  observer_->addWatch(
      directory_.path(), IN_CREATE,
      [this, last = std::move(last)](inotify_event* event, void*) {
        observer_->rmWatch(event->wd);
      },
      nullptr);
  touch(directory_ / "file");
  ASSERT_TRUE(over.wait());
  EXPECT_TRUE(before_.isBack());
}

TEST_F(FileObserverSelfDestruction, ComesManyTimesWhileFilesChange) {
  const Footprint before;
  auto changer = std::make_unique<FileChanger>(directory_ / "file");
  atOnce(10, 20, [&](int) {
    Flag ready;
    Flag destroyed;
    auto observer = std::make_unique<FileObserver>();
    EXPECT_GE(observer->addWatch(
                  directory_.path(), IN_ALL_EVENTS,
                  [&](inotify_event*, void*) {
                    ready.hold();
                    observer.reset();
                    destroyed.set();
                  },
                  nullptr),
              1);
    ready.set();
    EXPECT_TRUE(destroyed.wait());
  });
  changer.reset();
  EXPECT_TRUE(before.isBack());
}

}  // namespace
}  // namespace KELP::Test
