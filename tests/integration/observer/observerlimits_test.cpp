// An observer that gets no more of what the system has a limit for.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"
#include "integration/observer/usernamespace.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kNoInstances =
    "Unable to observe files: the limit fs.inotify.max_user_instances is reached; raise it with "
    "\"sysctl fs.inotify.max_user_instances=NUMBER\"";
constexpr const char* kNoDescriptors =
    "Unable to observe files: the limit of open files of this process is reached; raise it with "
    "\"ulimit -n NUMBER\"";

class ObserverLimits : public ObserverTest {
 protected:
  /** The lines since the last call, but those for debugging. */
  [[nodiscard]] std::vector<LogLine> lines() {
    std::vector<LogLine> all = log_.take();
    std::erase_if(all, [](const LogLine& line) { return line.priority <= kDebug; });
    return all;
  }

  /** What is announced of a command that is over before the observer sees anything of it. */
  [[nodiscard]] Announcements announcedWhenSeenAfter(const std::string& command) {
    std::promise<void> entered;
    std::promise<void> leave;
    recorder_.setHook([&](const std::string&, EventType) {
      recorder_.setHook({});
      entered.set_value();
      leave.get_future().wait();
    });
    touchSentinel();
    entered.get_future().wait();
    producer_.request(command);
    leave.set_value();
    EXPECT_THAT(recorder_.takeUntil({sentinel_, EventType::REPORT_UPDATED}), IsEmpty());
    return takeAll();
  }

  [[nodiscard]] Announcements announcedAfter(const std::string& command) {
    producer_.request(command);
    return takeAll();
  }

  Producer producer_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

class WatchLimit : public ObserverLimits {
 protected:
  static constexpr std::size_t kWatched = 3;
  static constexpr int kReports = 8;

  /** Starts with room for the root and kWatched of the reports. Which those are depends on the
   *  directory's order, in which the observer tells them. */
  void start() {
    std::vector<std::string> ids;
    for (int number = 1; number < kReports; ++number) {
      ids.push_back(idText(number));
    }
    producer_.request("create" + joined(ids));
    setUserLimit("max_inotify_watches", 1 + kWatched);
    observer_->start();
    order_ = recorder_.take();
    ASSERT_THAT(order_, SizeIs(kReports));
    ASSERT_THAT(order_, Each(testing::Field(&Announcement::type, EventType::REPORT_EXISTING)));
    sentinel_ = order_.front().id;
  }

  /** Those that are watched besides the sentinel, and those that are not. */
  [[nodiscard]] std::vector<std::string> others(bool watched) const {
    std::vector<std::string> ids;
    for (std::size_t place = 1; place < order_.size(); ++place) {
      if ((place < kWatched) == watched) {
        ids.push_back(order_[place].id);
      }
    }
    return ids;
  }

  [[nodiscard]] std::vector<LogLine> oneLine() const {
    return {errorLine("Unable to watch " + directoryOf(order_[kWatched].id).string() +
                      ": the limit fs.inotify.max_user_watches is reached; raise it with "
                      "\"sysctl fs.inotify.max_user_watches=NUMBER\"")};
  }

  Announcements order_;
};

TEST_F(WatchLimit, LeavesThoseWatchedThatAre) {
  inOwnUserNamespace([this] {
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(lines(), oneLine());

    for (const std::string& id : others(false)) {
      EXPECT_THAT(announcedAfter("touch " + id + " 1"), IsEmpty());
      EXPECT_THAT(announcedAfter("delete " + id), IsEmpty());
    }
    const std::string late = idText(90'001);
    EXPECT_THAT(announcedWhenSeenAfter("create " + late),
                ElementsAre(Announcement{late, EventType::REPORT_ADDED}));
    EXPECT_THAT(announcedAfter("touch " + late + " 1"), IsEmpty());

    // Who goes leaves its watch to the next.
    for (const std::string& id : others(true)) {
      EXPECT_THAT(announcedAfter("touch " + id + " 1"),
                  ElementsAre(Announcement{id, EventType::REPORT_UPDATED}));
      EXPECT_THAT(announcedAfter("delete " + id),
                  ElementsAre(Announcement{id, EventType::REPORT_REMOVED}));
    }
    const std::string later = idText(90'002);
    EXPECT_THAT(announcedWhenSeenAfter("create " + later),
                ElementsAre(Announcement{later, EventType::REPORT_ADDED}));
    EXPECT_THAT(announcedAfter("touch " + later + " 1"),
                ElementsAre(Announcement{later, EventType::REPORT_UPDATED}));
    EXPECT_THAT(lines(), IsEmpty()) << "the limit is told once";
  });
}

TEST_F(WatchLimit, IsToldOnceForEachStart) {
  inOwnUserNamespace([this] {
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(lines(), oneLine());
    for (int round = 0; round < 3; ++round) {
      observer_->stop();
      recorder_.disbelieve();
      observer_->start();
      EXPECT_EQ(recorder_.take(), order_);
      EXPECT_EQ(lines(), oneLine());
    }
    observer_->stop();
    recorder_.disbelieve();
    setUserLimit("max_inotify_watches", 1000);
    observer_->start();
    EXPECT_EQ(recorder_.take(), order_);
    EXPECT_THAT(lines(), IsEmpty());
    for (const std::string& id : others(false)) {
      EXPECT_THAT(announcedAfter("touch " + id + " 1"),
                  ElementsAre(Announcement{id, EventType::REPORT_UPDATED}));
    }
  });
}

TEST_F(ObserverLimits, OfInstancesLeaveAnObserverThatKnowsWhatThereWas) {
  inOwnUserNamespace([this] {
    for (int round = 0; round < 3; ++round) {
      setUserLimit("max_inotify_instances", 0);
      observer_->start();
      EXPECT_THAT(lines(), ElementsAre(errorLine(kNoInstances)));
      EXPECT_THAT(recorder_.take(),
                  ElementsAre(Announcement{sentinel_, EventType::REPORT_EXISTING}));
      observer_->start();
      observer_->stop();
      recorder_.disbelieve();
      EXPECT_THAT(recorder_.take(), IsEmpty());

      setUserLimit("max_inotify_instances", 1);
      observer_->start();
      EXPECT_THAT(recorder_.take(),
                  ElementsAre(Announcement{sentinel_, EventType::REPORT_EXISTING}));
      EXPECT_THAT(announcedAfter("touch " + sentinel_ + " 1"), IsEmpty());
      static_cast<void>(recorder_.takeUntil({sentinel_, EventType::REPORT_UPDATED}));
      observer_->stop();
      recorder_.disbelieve();
      EXPECT_THAT(lines(), IsEmpty());
    }
  });
}

/** While it lives, the process can open so many files more. */
class DescriptorsLeft {
 public:
  explicit DescriptorsLeft(int left) {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    constexpr rlim_t kEnough = 64;  // For what is open at the beginning.
    const rlimit limit{kEnough, former_.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      throw std::system_error(errno, std::system_category(), "setrlimit");
    }
    for (int file = 0; file >= 0;) {
      file = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
      if (file >= 0) files_.push_back(file);
    }
    for (; left > 0; --left) {
      ::close(files_.back());
      files_.pop_back();
    }
  }
  ~DescriptorsLeft() {
    for (const int file : files_) {
      ::close(file);
    }
    ::setrlimit(RLIMIT_NOFILE, &former_);
  }
  DescriptorsLeft(const DescriptorsLeft&) = delete;
  DescriptorsLeft& operator=(const DescriptorsLeft&) = delete;

 private:
  rlimit former_{};
  std::vector<int> files_;
};

class DescriptorLimit : public ObserverLimits, public testing::WithParamInterface<int> {};

TEST_P(DescriptorLimit, IsTold) {
  for (int round = 0; round < 3; ++round) {
    // In this order: a sanitizer needs descriptors itself to look at an object for the first time.
    observer_->start();
    EXPECT_THAT(recorder_.take(), ElementsAre(Announcement{sentinel_, EventType::REPORT_EXISTING}));
    EXPECT_THAT(takeAll(), IsEmpty());
    EXPECT_THAT(lines(), IsEmpty());
    observer_->stop();
    recorder_.disbelieve();

    std::vector<LogLine> first;
    std::vector<LogLine> second;
    {
      const DescriptorsLeft descriptors(GetParam());
      observer_->start();
      first = lines();
      observer_->start();
      second = lines();
      observer_->stop();
    }
    EXPECT_THAT(first, Contains(errorLine(kNoDescriptors)).Times(1));
    EXPECT_THAT(second, IsEmpty());
    EXPECT_THAT(recorder_.take(), IsEmpty()) << "what cannot be opened is not announced";
  }
}

// An observer needs two: with one left, it gets the first and not the second.
INSTANTIATE_TEST_SUITE_P(, DescriptorLimit, testing::Values(0, 1), [](const auto& test) {
  return "With" + std::to_string(test.param) + "Left";
});

}  // namespace
}  // namespace KELP::Diagnostic
