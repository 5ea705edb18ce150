#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using namespace std::chrono_literals;
using std::chrono::microseconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

/** One of the two waiting operations. */
struct Waiter {
  std::string name;
  DiagnosticReport::Result (DiagnosticReport::*wait)(long);
  int operation;
  std::string failure;
  /** Takes the other kind of lock. */
  DiagnosticReport::Result (DiagnosticReport::*acquireOther)(bool);
};

void PrintTo(const Waiter& waiter, std::ostream* out) {
  *out << waiter.name;
}

const std::vector<Waiter>& waiters() {
  static const std::vector<Waiter> both{
      {"Read", &DiagnosticReport::waitForAndAquireReadLock, LOCK_SH | LOCK_NB,
       "Failed acquire read lock for report", &DiagnosticReport::acquireWriteLock},
      {"Write", &DiagnosticReport::waitForAndAquireWriteLock, LOCK_EX | LOCK_NB,
       "Failed acquire write lock for report", &DiagnosticReport::acquireReadLock}};
  return both;
}

/** The first @p count pauses between attempts. */
std::vector<microseconds> pauses(std::size_t count) {
  std::vector<microseconds> all{1ms, 2ms, 4ms, 8ms, 16ms, 32ms, 64ms, 128ms};
  all.resize(count, 256ms);
  return all;
}

class ReportLockWait : public ReportTest, public testing::WithParamInterface<Waiter> {
 protected:
  ReportLockWait() { EXPECT_THAT(holder_->acquireWriteLock(true), Succeeds()); }

  [[nodiscard]] DiagnosticReport::Result wait(DiagnosticReport& report, long limit) const {
    return (report.*GetParam().wait)(limit);
  }
  /** Expects that each of @p count attempts failed with its own line. */
  void expectFailedAttempts(std::size_t count) {
    const LogLine line =
        errorLine(GetParam().failure + ". errno = 11 (Resource temporarily unavailable)");
    EXPECT_EQ(log_.take(), std::vector<LogLine>(count, line));
  }

  ReportPtr holder_ = create();
  // Opened before the holder locks the report, so that nothing has to wait yet.
  ReportPtr report_ = open();
};

TEST_P(ReportLockWait, TakesAFreeLockWithoutPause) {
  ASSERT_THAT(holder_->releaseLock(), Succeeds());
  const FakeClock clock;
  FlockSpy spy;
  EXPECT_THAT(wait(*report_, 1000), Succeeds());
  EXPECT_THAT(spy.take(), ElementsAre(GetParam().operation));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportLockWait, TakesAFreeLockWithoutALimitToo) {
  ASSERT_THAT(holder_->releaseLock(), Succeeds());
  EXPECT_THAT(wait(*report_, 0), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportLockWait, KeepsALockThatIsHeldAlready) {
  ASSERT_THAT(holder_->releaseLock(), Succeeds());
  ASSERT_THAT(wait(*report_, 0), Succeeds());
  FlockSpy spy;
  EXPECT_THAT(wait(*report_, 1000), Succeeds());
  EXPECT_THAT(spy.take(), IsEmpty());
}

TEST_P(ReportLockWait, KeepsALockOfTheOtherKindUntilItIsConverted) {
  ASSERT_THAT(holder_->releaseLock(), Succeeds());
  ASSERT_THAT((*report_.*GetParam().acquireOther)(true), Succeeds());
  const FakeClock clock;
  FlockSpy spy;
  spy.failNext({EWOULDBLOCK, EWOULDBLOCK});
  EXPECT_THAT(wait(*report_, 1000), Succeeds());
  EXPECT_THAT(spy.take(),
              ElementsAre(GetParam().operation, GetParam().operation, GetParam().operation));
  EXPECT_EQ(clock.sleeps(), pauses(2));
  expectFailedAttempts(2);
}

TEST_P(ReportLockWait, InVainLeavesALockOfTheOtherKindHeld) {
  ASSERT_THAT(holder_->releaseLock(), Succeeds());
  ASSERT_THAT((*report_.*GetParam().acquireOther)(true), Succeeds());
  const FakeClock clock;
  FlockSpy spy;
  spy.failNext({EWOULDBLOCK, EWOULDBLOCK});
  EXPECT_THAT(wait(*report_, 1), FailsWith(systemCode(EWOULDBLOCK), GetParam().failure));
  EXPECT_THAT(spy.take(), ElementsAre(GetParam().operation, GetParam().operation));
  EXPECT_THAT((*report_.*GetParam().acquireOther)(false), Succeeds());
  EXPECT_THAT(spy.take(), IsEmpty()) << "it still counts as held";
  EXPECT_FALSE(lockIsFree());
}

TEST_P(ReportLockWait, TriesOnceWithoutPauseWhenThereIsNoTime) {
  for (const long limit : {0L, -1L, -100000L}) {
    const FakeClock clock;
    FlockSpy spy;
    EXPECT_THAT(wait(*report_, limit), FailsWith(systemCode(EWOULDBLOCK), GetParam().failure));
    EXPECT_THAT(spy.take(), ElementsAre(GetParam().operation));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    expectFailedAttempts(1);
  }
}

TEST_P(ReportLockWait, DoublesItsPausesUpTo256MillisecondsUntilTheLimit) {
  struct Case {
    long limit;
    std::size_t pauses;
  };
  for (const Case& wanted : {Case{1, 1}, Case{2, 2}, Case{3, 2}, Case{4, 3}, Case{127, 7},
                             Case{128, 8}, Case{255, 8}, Case{256, 9}, Case{511, 9}, Case{512, 10},
                             Case{1000, 11}, Case{1023, 11}, Case{1024, 12}, Case{60000, 242}}) {
    SCOPED_TRACE(wanted.limit);
    const FakeClock clock;
    FlockSpy spy;
    EXPECT_THAT(wait(*report_, wanted.limit),
                FailsWith(systemCode(EWOULDBLOCK), GetParam().failure));
    EXPECT_EQ(clock.sleeps(), pauses(wanted.pauses));
    EXPECT_THAT(spy.take(), Each(GetParam().operation));
    expectFailedAttempts(wanted.pauses + 1);
  }
}

TEST_P(ReportLockWait, MeasuresTimeInWholeMillisecondsOfTheClock) {
  // From 0.9 to 2.0 ms of the second is 2 ms when each reading is cut to whole milliseconds first.
  FakeClock clock(1'700'000'000s + 900us);
  clock.oversleep(100us);
  EXPECT_FALSE(wait(*report_, 2).has_value());
  EXPECT_THAT(clock.sleeps(), ElementsAre(1ms));
}

TEST_P(ReportLockWait, MeasuresTimeAcrossTheTurnOfASecond) {
  FakeClock clock(1'700'000'000s + 999'500us);
  EXPECT_FALSE(wait(*report_, 7).has_value());
  EXPECT_EQ(clock.sleeps(), pauses(3));
}

TEST_P(ReportLockWait, CountsTheTimeThatPausesReallyTook) {
  FakeClock clock;
  clock.oversleep(500ms);
  EXPECT_FALSE(wait(*report_, 1000).has_value());
  EXPECT_EQ(clock.sleeps(), pauses(2));
}

TEST_P(ReportLockWait, TakesTheLockAtTheFirstAttemptAfterItsRelease) {
  FakeClock clock;
  clock.whenSleeping([&](std::size_t count) {
    if (count == 10) {
      EXPECT_THAT(holder_->releaseLock(), Succeeds());
    }
  });
  EXPECT_THAT(wait(*report_, 60000), Succeeds());
  EXPECT_EQ(clock.sleeps(), pauses(10));
  expectFailedAttempts(10);
  EXPECT_THAT(wait(*holder_, 0).has_value(), GetParam().name == "Read")
      << "readers share what a writer has for itself";
}

TEST_P(ReportLockWait, TriesOnceMoreAfterTheLastPause) {
  FakeClock clock;
  clock.whenSleeping([&](std::size_t count) {
    if (count == 2) {
      EXPECT_THAT(holder_->releaseLock(), Succeeds());
    }
  });
  EXPECT_THAT(wait(*report_, 2), Succeeds()) << "the limit has passed, but the attempt is made";
  expectFailedAttempts(2);
}

TEST_P(ReportLockWait, ReturnsTheErrorOfTheLastAttempt) {
  const FakeClock clock;
  FlockSpy spy;
  spy.failNext({ENOLCK, ENOLCK, ENOMEM});
  EXPECT_THAT(wait(*report_, 3), FailsWith(systemCode(ENOMEM), GetParam().failure));
  EXPECT_EQ(log_.take(),
            errorLines({GetParam().failure + ". errno = 37 (No locks available)",
                        GetParam().failure + ". errno = 37 (No locks available)",
                        GetParam().failure + ". errno = 12 (Cannot allocate memory)"}));
}

TEST_P(ReportLockWait, WaitsWithoutADescriptorToo) {
  const FakeClock clock;
  DiagnosticReport report;
  const std::string kind = GetParam().name == "Read" ? "read" : "write";
  EXPECT_THAT(wait(report, 3), Refuses("Unable to acquire " + kind +
                                       " lock for report with no valid lock file descriptor"));
  EXPECT_EQ(clock.sleeps(), pauses(2));
  EXPECT_THAT(log_.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReportLockWait, testing::ValuesIn(waiters()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Diagnostic
