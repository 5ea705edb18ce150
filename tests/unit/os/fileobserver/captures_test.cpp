// What callbacks hold is released with their watch, and may use the observer when it goes.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace KELP::Test {
namespace {

class FileObserverCaptures : public FileObserverTest {
 protected:
  FileObserverCaptures() { touch(file_); }

  /** Watches the file by a callback that uses the observer when what it holds is released. */
  int watchWithCapture() {
    std::shared_ptr<void> last(nullptr, [this, observer = observer_.get()](void*) {
      if (whenReleased_) {
        whenReleased_(*observer);
      }
      ++released_;
    });
    return observer_->addWatch(
        file_, IN_ATTRIB,
        [this, last = std::move(last)](inotify_event*, void*) {
          if (inCallback_) {
            inCallback_();
          }
        },
        nullptr);
  }

  std::filesystem::path file_ = directory_ / "file";
  std::function<void()> inCallback_;
  std::function<void(FileObserver&)> whenReleased_;
  std::atomic<int> released_ = 0;
  std::unique_ptr<FileObserver> observer_ = std::make_unique<FileObserver>();
  std::optional<Sentinel> sentinel_{std::in_place, *observer_};
};

/** A way for a watch to end. */
struct End {
  const char* name;
  std::function<void(FileObserver&, int wd, const std::filesystem::path&)> end;
};

class FileObserverCapturesAtEnd : public FileObserverCaptures,
                                  public ::testing::WithParamInterface<End> {};

FileObserver::Callback nothing() {
  return [](inotify_event*, void*) {};
}

INSTANTIATE_TEST_SUITE_P(
    , FileObserverCapturesAtEnd,
    ::testing::Values(End{"Removed", [](FileObserver& observer, int wd,
                                        const auto&) { EXPECT_TRUE(observer.rmWatch(wd)); }},
                      End{"Replaced",
                          [](FileObserver& observer, int wd, const auto& file) {
                            EXPECT_EQ(observer.addWatch(file, IN_ATTRIB, nothing(), nullptr), wd);
                          }},
                      End{"FileGone", [](FileObserver&, int,
                                         const auto& file) { std::filesystem::remove(file); }}),
    [](const auto& test) { return test.param.name; });

TEST_P(FileObserverCapturesAtEnd, AreReleased) {
  const int wd = watchWithCapture();
  changeMode(file_);
  ASSERT_TRUE(sentinel_->pass());
  ASSERT_EQ(released_, 0);
  GetParam().end(*observer_, wd, file_);
  ASSERT_TRUE(sentinel_->pass());
  EXPECT_EQ(released_, 1);
}

TEST_P(FileObserverCapturesAtEnd, MayUseTheObserver) {
  TemporaryDirectory other;
  Recorder recorder;
  std::atomic<int> added = 0;
  whenReleased_ = [&](FileObserver& observer) {
    observer.rmWatch(-1);
    added = observer.addWatch(other.path(), IN_CREATE, recorder.callback(), nullptr);
  };
  const int wd = watchWithCapture();
  GetParam().end(*observer_, wd, file_);
  ASSERT_TRUE(sentinel_->pass());
  EXPECT_EQ(released_, 1);
  EXPECT_GE(added, 1);
  touch(other / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ::testing::ElementsAre("file"));
}

TEST_F(FileObserverCaptures, OfARunningCallbackAreReleasedAfterIt) {
  Flag entered;
  Flag released;
  inCallback_ = [&] {
    entered.set();
    released.hold();
  };
  whenReleased_ = [](FileObserver& observer) { observer.rmWatch(0); };
  const int wd = watchWithCapture();
  changeMode(file_);
  ASSERT_TRUE(entered.wait());
  EXPECT_TRUE(observer_->rmWatch(wd));
  EXPECT_EQ(released_, 0);
  released.set();
  ASSERT_TRUE(sentinel_->pass());
  EXPECT_EQ(released_, 1);
}

TEST_F(FileObserverCaptures, OfARefusedWatchAreReleased) {
  std::filesystem::remove(file_);
  whenReleased_ = [](FileObserver& observer) { observer.rmWatch(0); };
  EXPECT_EQ(watchWithCapture(), -1);
  EXPECT_EQ(released_, 1);
}

TEST_F(FileObserverCaptures, AreReleasedByTheDestructor) {
  ASSERT_GE(watchWithCapture(), 1);
  observer_.reset();
  EXPECT_EQ(released_, 1);
}

TEST_F(FileObserverCaptures, MayUseTheObserverFromItsDestructor) {
  struct {
    int added = 0;
    int error = 0;
    bool removed = true;
  } result;
  const int wd = watchWithCapture();
  ASSERT_GE(wd, 1);
  whenReleased_ = [&, wd](FileObserver& observer) {
    errno = 0;
    result.added = observer.addWatch(directory_.path(), IN_CREATE, nothing(), nullptr);
    result.error = errno;
    result.removed = observer.rmWatch(wd);
  };
  observer_.reset();
  EXPECT_EQ(released_, 1);
  EXPECT_EQ(result.added, -1);
  EXPECT_EQ(result.error, EBADF);
  EXPECT_FALSE(result.removed);
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace KELP::Test
