// What the system may refuse when an observer is made: it says why, and is a dead one.

#include "support/sanitizers.h"
#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"
#include "unit/os/fileobserver/systemcalls.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kNoInstanceLeft =
    "Unable to observe files: the limit fs.inotify.max_user_instances is reached; raise it with "
    "\"sysctl fs.inotify.max_user_instances=NUMBER\"";
const std::string kNoDescriptorLeft =
    "Unable to observe files: the limit of open files of this process is reached; raise it with "
    "\"ulimit -n NUMBER\"";

class FileObserverConstruction : public FileObserverTest {
 protected:
  /** All operations of one that failed do nothing, without a line. */
  void checkDead(FileObserver& observer) {
    const auto captured = std::make_shared<int>();
    for (const std::string& path :
         {directory_.path().string(), std::string("/none"), std::string("/\0", 2), std::string()}) {
      errno = 0;
      EXPECT_EQ(observer.addWatch(
                    path, IN_CREATE, [captured](inotify_event*, void*) {}, nullptr),
                -1);
      EXPECT_EQ(errno, EBADF) << path;
    }
    EXPECT_EQ(captured.use_count(), 1);
    for (const int wd : {-1, 0, 1}) {
      EXPECT_FALSE(observer.rmWatch(wd)) << wd;
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
  }
};

struct Refused {
  const char* name;
  std::vector<std::pair<Call, int>> calls;
  int threadsBefore;
  std::string line;
};

class FileObserverRefused : public FileObserverConstruction,
                            public ::testing::WithParamInterface<Refused> {};

INSTANTIATE_TEST_SUITE_P(
    , FileObserverRefused,
    ::testing::Values(Refused{"InstanceLimit", {{Call::InotifyInit, EMFILE}}, 0, kNoInstanceLeft},
                      Refused{"NoDescriptorForTheInstance",
                              {{Call::InotifyInit, EMFILE}, {Call::EventFd, EMFILE}},
                              0,
                              kNoDescriptorLeft},
                      Refused{
                          "NoDescriptorForTheEnd", {{Call::EventFd, EMFILE}}, 0, kNoDescriptorLeft},
                      Refused{"NoFileInTheSystem",
                              {{Call::InotifyInit, ENFILE}},
                              0,
                              "Unable to observe files: Too many open files in system"},
                      Refused{"NoMemory",
                              {{Call::InotifyInit, ENOMEM}},
                              0,
                              "Unable to observe files: Cannot allocate memory"},
                      Refused{"NoFileInTheSystemForTheEnd",
                              {{Call::EventFd, ENFILE}},
                              0,
                              "Unable to observe files: Too many open files in system"},
                      Refused{"NoMemoryForTheEnd",
                              {{Call::EventFd, ENOMEM}},
                              0,
                              "Unable to observe files: Cannot allocate memory"},
                      Refused{"NoThread",
                              {{Call::Thread, EAGAIN}},
                              0,
                              "Unable to observe files: Resource temporarily unavailable"},
                      Refused{"NoSecondThread",
                              {{Call::Thread, EAGAIN}},
                              1,
                              "Unable to observe files: Resource temporarily unavailable"}),
    [](const auto& test) { return test.param.name; });

TEST_P(FileObserverRefused, SaysWhyAndIsDead) {
  const Footprint before;
  std::optional<FileObserver> observer;
  {
    std::deque<Refusal> refusals;
    for (const auto& [call, error] : GetParam().calls) {
      refusals.emplace_back(call, error, GetParam().threadsBefore);
    }
    observer.emplace();
  }
  EXPECT_THAT(log_.take(), ElementsAre(errorLine(GetParam().line)));
  EXPECT_TRUE(before.isBack());
  checkDead(*observer);
  observer.reset();
  EXPECT_TRUE(before.isBack());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

/** Leaves the process that many descriptors to open, while it lives. */
class DescriptorsLeft {
 public:
  explicit DescriptorsLeft(rlim_t count) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const int lowest = ::dup(STDIN_FILENO);
    ::close(lowest);
    const rlimit few{static_cast<rlim_t>(lowest) + count, before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~DescriptorsLeft() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorsLeft(const DescriptorsLeft&) = delete;
  DescriptorsLeft& operator=(const DescriptorsLeft&) = delete;

 private:
  rlimit before_{};
};

/** Tests that leave the process few descriptors. */
class FileObserverWithFewDescriptors : public FileObserverConstruction {
 protected:
  void SetUp() override {
    if (kHasAddressSanitizer) {
      GTEST_SKIP() << "the sanitizer of undefined behaviour needs descriptors itself";
    }
  }
};

class FileObserverDescriptorsLeft : public FileObserverWithFewDescriptors,
                                    public ::testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(, FileObserverDescriptorsLeft, ::testing::Values(0, 1));

TEST_P(FileObserverDescriptorsLeft, AreTooFew) {
  const Footprint before;
  std::optional<FileObserver> observer;
  {
    const DescriptorsLeft few(static_cast<rlim_t>(GetParam()));
    observer.emplace();
  }
  EXPECT_THAT(log_.take(), ElementsAre(errorLine(kNoDescriptorLeft)));
  EXPECT_TRUE(before.isBack());
  checkDead(*observer);
}

TEST_F(FileObserverWithFewDescriptors, NeedsNoMoreThanTwo) {
  std::optional<FileObserver> observer;
  {
    const DescriptorsLeft few(2);
    observer.emplace();
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
  Recorder recorder;
  EXPECT_GE(observer->addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr), 1);
  touch(directory_ / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ElementsAre("file"));
}

TEST_F(FileObserverConstruction, SucceedsAgainAfterAFailure) {
  std::optional<FileObserver> failed;
  {
    const Refusal refusal(Call::InotifyInit, ENOMEM);
    failed.emplace();
  }
  FileObserver observer;
  Recorder recorder;
  EXPECT_GE(observer.addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr), 1);
  touch(directory_ / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ElementsAre("file"));
}

}  // namespace
}  // namespace KELP::Test
