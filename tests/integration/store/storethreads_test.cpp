// Two stores on one file in one process, in different threads, work as two processes do.

#include "integration/store/churn.h"
#include "unit/os/storefixture.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace KELP::Test {
namespace {

constexpr std::uint64_t kChanges = 800;

class StoreThreads : public StoreTest {
 protected:
  void write(std::uint64_t writer) {
    KeyValueStore store = open();
    const std::string own = "writer" + std::to_string(writer);
    for (std::uint64_t number = 1; number <= kChanges; ++number) {
      const std::string value = stampedValue(writer, number);
      check(store.set(own, value), "set was refused");
      check(store.set("shared", value), "set of the shared key was refused");
      check(store.get(own) == value, "an own value was lost");
    }
    ++finished_;
  }

  void read(std::uint64_t writers) {
    KeyValueStore store = open();
    std::map<std::uint64_t, std::uint64_t> newest;
    while (finished_ < writers && sound_) {
      look(store, writers, newest);
    }
    look(store, writers, newest);
    check(newest.size() == writers, "a writer's values were never seen");
    for (const auto& [writer, number] : newest) {
      check(number == kChanges, "the last value was not seen");
    }
  }

  /** Reads each writer's own key and compares it with what was read before. */
  void look(KeyValueStore& store, std::uint64_t writers,
            std::map<std::uint64_t, std::uint64_t>& newest) {
    for (std::uint64_t writer = 1; writer <= writers; ++writer) {
      const auto value = store.get("writer" + std::to_string(writer));
      if (!value) continue;
      const auto stamp = readStamp(*value);
      check(stamp && stamp->writer == writer, "a torn value");
      check(stamp && stamp->number >= newest[writer], "an older value came back");
      if (stamp) newest[writer] = stamp->number;
    }
    check(store.isReady(), "not ready");
  }

  void run(std::uint64_t writers, std::uint64_t readers) {
    std::vector<std::thread> threads;
    for (std::uint64_t writer = 1; writer <= writers; ++writer) {
      threads.emplace_back([this, writer] { write(writer); });
    }
    for (std::uint64_t reader = 0; reader < readers; ++reader) {
      threads.emplace_back([this, writers] { read(writers); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(problem_, "");
  }

 private:
  void check(bool holds, const char* problem) {
    if (holds) return;
    sound_ = false;
    const std::lock_guard lock(mutex_);
    problem_ = problem;
  }

  std::atomic<std::uint64_t> finished_ = 0;
  std::atomic<bool> sound_ = true;
  std::mutex mutex_;
  std::string problem_;
};

TEST_F(StoreThreads, TwoWritersLoseNothing) {
  run(2, 0);
  const StoreMap left = decodeStore(readFile(file()));
  EXPECT_EQ(left.size(), 3U);
  EXPECT_TRUE(left.at("writer1") == stampedValue(1, kChanges));
  EXPECT_TRUE(left.at("writer2") == stampedValue(2, kChanges));
}

TEST_F(StoreThreads, ReadersBesideWritersSeeWholeValuesInTheirOrder) {
  run(2, 2);
}

TEST_F(StoreThreads, ManyWritersWaitForEachOther) {
  run(6, 1);
}

}  // namespace
}  // namespace KELP::Test
