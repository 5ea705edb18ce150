// What an observer takes from its process it gives back, and shares with no other.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"
#include "support/childprocess.h"
#include "support/descriptors.h"
#include "support/threadcount.h"
#include "support/waituntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

/** What the process has open, without the descriptor that lists it. */
std::vector<std::string> openFiles() {
  std::vector<std::string> files;
  for (const auto& [descriptor, target] : descriptorsOf("self")) {
    files.push_back(target);
  }
  std::ranges::sort(files);
  return files;
}

void awaitThreads(std::size_t expected) {
  waitUntil([&] { return threadCount() == expected; });
  EXPECT_EQ(threadCount(), expected);
}

class ObserverResources : public ObserverTest {
 protected:
  ObserverResources() { producer_.request("create-many 10"); }

  Producer producer_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
  const std::vector<std::string> files_ = openFiles();
  const std::size_t threads_ = threadCount();
};

TEST_F(ObserverResources, AreGivenBackByEachStop) {
  for (int round = 0; round < 50; ++round) {
    observer_->start();
    EXPECT_GT(openFiles().size(), files_.size());
    EXPECT_GT(threadCount(), threads_);
    static_cast<void>(takeAll());
    observer_->stop();
    recorder_.disbelieve();
    EXPECT_EQ(openFiles(), files_);
    awaitThreads(threads_);
  }
}

TEST_F(ObserverResources, AreGivenBackByTheDestructor) {
  for (int round = 0; round < 50; ++round) {
    {
      const auto observer = makeObserver();
      observer->start();
      EXPECT_GT(openFiles().size(), files_.size());
    }
    recorder_.disbelieve();
    EXPECT_EQ(openFiles(), files_);
    awaitThreads(threads_);
  }
}

TEST_F(ObserverResources, AreGivenBackByAStopInsideTheCallback) {
  std::atomic<int> stops = 0;
  recorder_.setHook([&](const std::string&, EventType type) {
    if (type == EventType::REPORT_EXISTING) return;
    observer_->stop();
    ++stops;
  });
  for (int round = 1; round <= 50; ++round) {
    observer_->start();
    touchSentinel();
    while (stops < round) {
      std::this_thread::yield();
    }
    awaitThreads(threads_);
    EXPECT_EQ(openFiles(), files_);
    recorder_.disbelieve();
  }
}

TEST_F(ObserverResources, AreNoMoreForManyReports) {
  observer_->start();
  const std::vector<std::string> files = openFiles();
  const std::size_t running = threadCount();
  producer_.request("create-many 200");
  static_cast<void>(takeAll());
  EXPECT_EQ(openFiles(), files);
  EXPECT_EQ(threadCount(), running);
  producer_.request("delete-many");
  static_cast<void>(takeAll());
  EXPECT_EQ(openFiles(), files);
  EXPECT_EQ(threadCount(), running);
}

TEST_F(ObserverResources, AreNotInheritedByExecutedPrograms) {
  const auto filesOfAChild = [] {
    ChildProcess list({"/bin/ls", "-l", "/proc/self/fd"});
    std::vector<std::string> lines;
    while (const std::optional<std::string> line = list.receive()) {
      lines.push_back(*line);
    }
    return lines;
  };
  const std::size_t usual = filesOfAChild().size();
  std::optional<std::vector<std::string>> ofTheCallback;
  std::atomic<bool> isDone = false;
  recorder_.setHook([&](const std::string&, EventType type) {
    if (type == EventType::REPORT_EXISTING || isDone) return;
    ofTheCallback = filesOfAChild();
    isDone = true;
  });
  observer_->start();
  ASSERT_THAT(openFiles(), Contains(HasSubstr("inotify")));
  touchSentinel();
  while (!isDone) {
    std::this_thread::yield();
  }
  recorder_.setHook({});
  for (const auto& lines : {filesOfAChild(), *ofTheCallback}) {
    EXPECT_EQ(lines.size(), usual);
    EXPECT_THAT(lines, Each(Not(HasSubstr("anon_inode"))));
    EXPECT_THAT(lines, Contains(HasSubstr("pipe:")));
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
