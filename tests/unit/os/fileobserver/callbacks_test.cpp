// Where callbacks run, and what they may do there.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;

class FileObserverCallbacks : public FileObserverTest {
 protected:
  FileObserverCallbacks() {
    std::filesystem::create_directory(one_);
    std::filesystem::create_directory(two_);
  }

  std::filesystem::path one_ = directory_ / "one";
  std::filesystem::path two_ = directory_ / "two";
  FileObserver observer_;
  Sentinel sentinel_{observer_};
  Recorder recorder_;
};

/** Calls, with how many there were at once and on which threads. */
struct Calls {
  void call() {
    const int now = ++running;
    {
      const std::lock_guard lock(mutex);
      most = std::max(most.load(), now);
      threads.insert(std::this_thread::get_id());
    }
    std::this_thread::yield();
    ++count;
    --running;
  }

  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  std::atomic<int> count = 0;
  std::mutex mutex;
  std::set<std::thread::id> threads;
};

TEST_F(FileObserverCallbacks, RunOneAtATimeOnOneThreadOfTheObserver) {
  Calls calls;
  const auto callback = [&](inotify_event*, void*) { calls.call(); };

  constexpr int kThreads = 4;
  constexpr int kFiles = 50;
  const std::array<TemporaryDirectory, kThreads> directories;
  FileObserver observer;  // Ends before what its callbacks use, and before what it watches.
  Sentinel sentinel(observer);
  for (const TemporaryDirectory& directory : directories) {
    ASSERT_GE(observer.addWatch(directory.path(), IN_CREATE, callback, nullptr), 1);
  }
  std::set<std::thread::id> callers{std::this_thread::get_id()};
  std::vector<std::thread> changers;
  for (const TemporaryDirectory& directory : directories) {
    changers.emplace_back([&directory] {
      for (int number = 0; number < kFiles; ++number) {
        touch(directory / std::to_string(number));
      }
    });
    callers.insert(changers.back().get_id());
  }
  for (std::thread& changer : changers) {
    changer.join();
  }
  ASSERT_TRUE(sentinel.pass());

  EXPECT_EQ(calls.count, kThreads * kFiles);
  EXPECT_EQ(calls.most, 1);
  ASSERT_EQ(calls.threads.size(), 1U);
  EXPECT_FALSE(callers.contains(*calls.threads.begin()));
}

TEST_F(FileObserverCallbacks, MayAddAWatch) {
  std::atomic<int> added = 0;
  observer_.addWatch(
      one_, IN_CREATE,
      [&](inotify_event*, void*) {
        added = observer_.addWatch(two_, IN_CREATE, recorder_.callback(), nullptr);
        touch(two_ / "second");
      },
      nullptr);
  touch(one_ / "first");
  EXPECT_THAT(namesOf(recorder_.waitFor(1)), ElementsAre("second"));
  EXPECT_GE(added, 1);
}

TEST_F(FileObserverCallbacks, MayRemoveTheirOwnWatch) {
  int wd = 0;
  std::atomic<int> calls = 0;
  std::atomic<bool> removed = false;
  Blocker blocker(observer_);
  wd = observer_.addWatch(
      one_, IN_CREATE,
      [&](inotify_event* event, void*) {
        ++calls;
        removed = observer_.rmWatch(event->wd);
      },
      nullptr);
  ASSERT_TRUE(blocker.block());
  touch(one_ / "first");
  touch(one_ / "second");  // Waits behind the first when that removes the watch.
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_TRUE(removed);

  touch(one_ / "third");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(observer_.rmWatch(wd));
}

TEST_F(FileObserverCallbacks, MayRemoveAnotherWatchWhoseEventsWait) {
  std::atomic<int> other = 0;
  std::atomic<bool> removed = false;
  Blocker blocker(observer_);
  observer_.addWatch(
      one_, IN_CREATE, [&](inotify_event*, void*) { removed = observer_.rmWatch(other); }, nullptr);
  other = observer_.addWatch(two_, IN_CREATE, recorder_.callback(), nullptr);
  ASSERT_TRUE(blocker.block());
  touch(two_ / "before");
  touch(one_ / "file");
  touch(two_ / "after");
  blocker.release();
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_TRUE(removed);
  EXPECT_THAT(namesOf(recorder_.seen()), ElementsAre("before"));
}

TEST_F(FileObserverCallbacks, MayReplaceThemselves) {
  const std::string captured(1000, 'c');
  std::string after;
  observer_.addWatch(
      one_, IN_CREATE,
      [&, captured](inotify_event*, void*) {
        observer_.addWatch(one_, IN_CREATE, recorder_.callback(), nullptr);
        after = captured;  // What runs is there until it returns.
      },
      nullptr);
  touch(one_ / "first");
  ASSERT_TRUE(sentinel_.pass());
  touch(one_ / "second");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(namesOf(recorder_.seen()), ElementsAre("second"));
  EXPECT_EQ(after, captured);
}

TEST_F(FileObserverCallbacks, MayRemoveTheirOwnWatchAndAddItAgain) {
  std::atomic<int> again = 0;
  std::string after;
  const std::string captured(1000, 'c');
  const int wd = observer_.addWatch(
      one_, IN_CREATE,
      [&, captured](inotify_event* event, void*) {
        observer_.rmWatch(event->wd);
        again = observer_.addWatch(one_, IN_CREATE, recorder_.callback(), nullptr);
        after = captured;
      },
      nullptr);
  touch(one_ / "first");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_GE(again, 1);
  EXPECT_NE(again, wd);
  touch(one_ / "second");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(recorder_.seen(),
              ElementsAre(::testing::AllOf(::testing::Field(&Seen::wd, again.load()),
                                           ::testing::Field(&Seen::name, "second"))));
  EXPECT_EQ(after, captured);
}

TEST_F(FileObserverCallbacks, MayWaitForAnotherThreadThatUsesTheObserver) {
  std::atomic<int> added = 0;
  std::atomic<bool> removed = false;
  observer_.addWatch(
      one_, IN_CREATE,
      [&](inotify_event*, void*) {
        std::thread([&] {
          added = observer_.addWatch(two_, IN_CREATE, recorder_.callback(), nullptr);
          removed = observer_.rmWatch(added);
        }).join();
      },
      nullptr);
  touch(one_ / "file");
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_GE(added, 1);
  EXPECT_TRUE(removed);
}

}  // namespace
}  // namespace KELP::Test
