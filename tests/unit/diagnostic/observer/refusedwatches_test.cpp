#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

std::atomic<int> instanceError{0};
std::atomic<int> rootError{0};
std::atomic<int> reportError{0};

/** While it lives, the system refuses something with an error. */
class Refusal {
 public:
  Refusal(std::atomic<int>& what, int error) : what_(what) { what_ = error; }
  ~Refusal() { what_ = 0; }
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;

 private:
  std::atomic<int>& what_;
};

}  // namespace
}  // namespace KELP::Diagnostic

// The test program defines these itself, so that they can be made to fail.

extern "C" int inotify_init1(int flags) noexcept {
  if (const int error = KELP::Diagnostic::instanceError; error != 0) {
    errno = error;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_inotify_init1, flags));
}

extern "C" int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) noexcept {
  using namespace KELP::Diagnostic;
  if (const int error = mask == KELP::Test::kRootMask ? rootError : reportError; error != 0) {
    errno = error;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_inotify_add_watch, descriptor, path, mask));
}

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

/** Two reports, and a system that refuses to watch. */
class ObserverRefused : public ObserverTest {
 protected:
  ObserverRefused() {
    makeReport(idText(1));
    makeReport(idText(2));
  }

  /** Starts, and expects that the reports are announced as ever. @return the lines. */
  std::vector<LogLine> start() {
    const Events expected = existingReports();
    EXPECT_THAT(expected, SizeIs(2));
    observer().start();
    EXPECT_EQ(recorder_.take(), expected);
    return log_.take();
  }
  /** Expects what a stop logs, and that a start without refusals is complete. */
  void expectStopAndRestart(const std::vector<LogLine>& lines) {
    observer().stop();
    EXPECT_EQ(log_.take(), lines);
    instanceError = rootError = reportError = 0;
    EXPECT_THAT(start(), IsEmpty());
    EXPECT_THAT(kernelWatches(), SizeIs(3));
    fs::remove_all(dirOf(idText(1)));
    EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  }
};

TEST_F(ObserverRefused, ReportWatchesAreKeptAsTheyAreAndTheReportsAnnounced) {
  const Refusal refusal(reportError, ENOSPC);
  const auto lines = start();
  ASSERT_THAT(lines, SizeIs(1)) << "once for all reports";
  EXPECT_EQ(lines[0].priority, kError);
  EXPECT_THAT(lines[0].text, HasSubstr("fs.inotify.max_user_watches"));
  EXPECT_THAT(kernelWatches(), SizeIs(1));
  expectStopAndRestart({removalLine(-1), removalLine(-1)});
}

TEST_F(ObserverRefused, ReportWatchesGoWithTheReport) {
  const Refusal refusal(reportError, ENOSPC);
  static_cast<void>(start());
  tellReport(idText(1), IN_DELETE_SELF);
  EXPECT_THAT(recorder_.take(), ElementsAre(removed(idText(1))));
  tellReport(idText(2), IN_CREATE, "metadata.db");
  EXPECT_THAT(recorder_.take(), ElementsAre(updated(idText(2))));
  expectStopAndRestart({removalLine(-1)});
}

TEST_F(ObserverRefused, RootWatchLeavesTheReportsObserved) {
  const Refusal refusal(rootError, EACCES);
  EXPECT_EQ(start(), errorLines({"Unable to watch " + root_.string() + ": Permission denied"}));
  EXPECT_THAT(reportWatches(), SizeIs(2));
  EXPECT_THAT(kernelWatches(), SizeIs(2));
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(recorder_.waitFor(1), ElementsAre(removed(idText(1))));
  makeReport(idText(1));
  observer().stop();
  EXPECT_THAT(recorder_.take(), ElementsAre(removed(idText(1)))) << "new reports are not seen";
  EXPECT_THAT(log_.take(), SizeIs(1));
}

TEST_F(ObserverRefused, InstanceLeavesTheAnnouncements) {
  const Refusal refusal(instanceError, EMFILE);
  const auto lines = start();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_EQ(lines[0].priority, kError);
  EXPECT_THAT(lines[0].text, HasSubstr("fs.inotify.max_user_instances"));
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  observer().start();
  EXPECT_THAT(recorder_.take(), IsEmpty()) << "it is started all the same";
  expectStopAndRestart({removalLine(-1), removalLine(-1)});
}

}  // namespace
}  // namespace KELP::Diagnostic
