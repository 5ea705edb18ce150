// Watches come and go from several threads while files change.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

constexpr int kThreads = 4;

class FileObserverThreads : public FileObserverTest {
 protected:
  FileObserverThreads() {
    for (int number = 0; number < kThreads; ++number) {
      directories_.push_back(directory_ / std::to_string(number));
      std::filesystem::create_directory(directories_.back());
      changers_.emplace_back(directories_.back() / "busy");
    }
  }

  std::vector<std::filesystem::path> directories_;
  std::deque<FileChanger> changers_;
  FileObserver observer_;
};

TEST_F(FileObserverThreads, EachHaveTheirOwnWatches) {
  std::atomic<std::size_t> next = 0;
  atOnce(kThreads, 1, [&](int) {
    const std::filesystem::path directory = directories_.at(next++);
    for (int round = 0; round < 50; ++round) {
      Flag seen;
      const auto wanted = std::make_shared<const std::string>(std::to_string(round));
      const int wd = observer_.addWatch(
          directory, IN_CREATE,
          [wanted, &seen](inotify_event* event, void*) {
            if (*wanted == static_cast<const char*>(event->name)) {
              seen.set();
            }
          },
          nullptr);
      EXPECT_GE(wd, 1);
      touch(directory / *wanted);
      EXPECT_TRUE(seen.wait()) << directory << ' ' << round;
      EXPECT_TRUE(observer_.rmWatch(wd));
      EXPECT_FALSE(observer_.rmWatch(wd));
      // The callback may be running still, for a change by somebody else.
      EXPECT_TRUE(waitUntil([&] { return wanted.use_count() == 1; }));
    }
  });
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

TEST_F(FileObserverThreads, MayFightOverTheSameWatches) {
  Sentinel sentinel(observer_);
  std::atomic<int> calls = 0;
  atOnce(kThreads, 300, [&](int round) {
    const int wd = observer_.addWatch(
        directories_.at(static_cast<std::size_t>(round % 2)), IN_ALL_EVENTS,
        [&](inotify_event*, void*) { ++calls; }, nullptr);
    EXPECT_GE(wd, 1);
    observer_.rmWatch(wd);  // Another may have been faster.
  });
  ASSERT_TRUE(sentinel.pass());
  const int callsBefore = calls;
  ASSERT_TRUE(sentinel.pass());
  EXPECT_EQ(calls, callsBefore) << "all watches are removed";
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());

  Recorder recorder;
  ASSERT_GE(observer_.addWatch(directories_[0], IN_CREATE, recorder.callback(), nullptr), 1);
  EXPECT_THAT(recorder.waitFor(1), ::testing::Not(::testing::IsEmpty()));
}

}  // namespace
}  // namespace KELP::Test
