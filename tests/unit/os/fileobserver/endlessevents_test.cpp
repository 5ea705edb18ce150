// Events come faster than anybody reads them, for as long as the test likes.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/systemcalls.h"

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace KELP::Test {
namespace {

class FileObserverEndlessEvents : public FileObserverTest {
 protected:
  FileObserverEndlessEvents() {
    for (const std::string& file : files_) {
      touch(file);
    }
    observer_.emplace();
    observer_->addWatch(
        directory_.path(), IN_ATTRIB, [this](inotify_event*, void*) { ++delivered_; }, nullptr);
    hook_.emplace([this] { causeMoreThanIsRead(); });
    changeMode(files_[0]);
  }

  /** The kernel makes one of equal events that follow each other. */
  void causeMoreThanIsRead() {
    ++reads_;
    for (int i = 0; i < 100; ++i) {
      changeMode(files_.at(static_cast<std::size_t>(i) % files_.size()));
    }
  }

  // With the name, an event takes some 270 bytes, and 100 of them more than one read.
  const std::array<std::string, 2> files_{directory_ / (std::string(240, 'a') + "1"),
                                          directory_ / (std::string(240, 'a') + "2")};
  std::atomic<int> reads_ = 0;
  std::atomic<int> delivered_ = 0;
  std::optional<FileObserver> observer_;
  std::optional<ReadHook> hook_;
};

TEST_F(FileObserverEndlessEvents, AreDelivered) {
  EXPECT_TRUE(waitUntil([this] { return delivered_ > 1000; }));
  hook_.reset();
}

TEST_F(FileObserverEndlessEvents, DoNotKeepFromWatching) {
  const TemporaryDirectory other;
  ASSERT_TRUE(waitUntil([this] { return reads_ > 0; }));
  for (int i = 0; i < 20; ++i) {
    const int wd = observer_->addWatch(
        other.path(), IN_CREATE, [](inotify_event*, void*) {}, nullptr);
    EXPECT_GT(wd, 0);
    EXPECT_TRUE(observer_->rmWatch(wd));
  }
  hook_.reset();
}

TEST_F(FileObserverEndlessEvents, DoNotKeepFromEnding) {
  ASSERT_TRUE(waitUntil([this] { return delivered_ > 0; }));
  observer_.reset();  // While they come.
  hook_.reset();
}

}  // namespace
}  // namespace KELP::Test
