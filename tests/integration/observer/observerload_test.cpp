// Two processes make reports faster than the client can be told of them.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::AllOf;
using testing::Each;
using testing::SizeIs;

/** How many reports each process makes. */
constexpr std::size_t kReportsOfEach = 2500;
constexpr std::chrono::milliseconds kCallbackTime{1};

class Stopwatch {
 public:
  [[nodiscard]] double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

/** A directory in memory, where reports are made much faster than on a disk that makes them
 * durable; none where the system has no such place. */
class MemoryDirectory {
 public:
  MemoryDirectory() {
    std::string name = "/dev/shm/kelp-test-XXXXXX";
    if (::mkdtemp(name.data()) != nullptr) path_ = name;
  }
  ~MemoryDirectory() {
    std::error_code ignored;
    if (path_) std::filesystem::remove_all(*path_, ignored);
  }
  MemoryDirectory(const MemoryDirectory&) = delete;
  MemoryDirectory& operator=(const MemoryDirectory&) = delete;

  [[nodiscard]] const std::optional<std::filesystem::path>& path() const { return path_; }

 private:
  std::optional<std::filesystem::path> path_;
};

class SlowClient : private MemoryDirectory, public ObserverTest {
 protected:
  SlowClient() : ObserverTest(path()) {
    recorder_.setHook([this](const std::string& id, EventType) {
      std::this_thread::sleep_for(kCallbackTime);
      if (id == sentinel_) {
        sentinelCame_ = true;
      }
    });
    observer_->start();
    static_cast<void>(recorder_.take());
    sentinelCame_ = false;
  }

  void bothDo(const std::string& command) {
    one_.begin(command);
    two_.begin(command);
    one_.await();
    two_.await();
  }

  /** All that was announced up to now; that may take the client much longer than the processes
   *  took. */
  [[nodiscard]] Announcements takeAllOfMany() {
    touchSentinel();
    while (!sentinelCame_) {
      std::this_thread::sleep_for(kCallbackTime);
    }
    sentinelCame_ = false;
    return recorder_.takeUntil({sentinel_, EventType::REPORT_UPDATED});
  }

  std::atomic<bool> sentinelCame_ = false;
  Producer one_{root_};
  Producer two_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(SlowClient, IsToldOfEveryReport) {
  const Stopwatch all;
  const std::string number = std::to_string(kReportsOfEach);

  bothDo("create-many " + number);
  const double created = all.seconds();
  Announcements announced = takeAllOfMany();
  const double told = all.seconds();
  const Ids onDisk = reportsOnDisk();
  const auto added = countsOf(EventType::REPORT_ADDED, announced);
  ASSERT_THAT(onDisk, SizeIs(2 * kReportsOfEach + 1));
  EXPECT_EQ(recorder_.believed(), onDisk);
  EXPECT_THAT(added, AllOf(SizeIs(2 * kReportsOfEach), Each(testing::Pair(testing::_, 1))));
  const std::size_t updates = announced.size() - added.size();

  bothDo("delete-many");
  const double removed = all.seconds();
  announced = takeAllOfMany();
  EXPECT_THAT(announced, Each(testing::Field(&Announcement::type, EventType::REPORT_REMOVED)));
  EXPECT_THAT(countsOf(EventType::REPORT_REMOVED, announced),
              AllOf(SizeIs(2 * kReportsOfEach), Each(testing::Pair(testing::_, 1))));
  EXPECT_EQ(recorder_.believed(), Ids{sentinel_});
  std::cout << 2 * kReportsOfEach << " reports: created in " << created << " s, told after " << told
            << " s with " << updates << " updates, deleted after " << removed
            << " s, all told after " << all.seconds() << " s\n";
}

}  // namespace
}  // namespace KELP::Diagnostic
