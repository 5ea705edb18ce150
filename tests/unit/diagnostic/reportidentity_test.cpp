#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

/** What a getter gave, without its type: the value as text, or the error's message. */
struct Answer {
  bool present;
  std::string text;
  std::error_code code;

  bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
  *out << (answer.present ? "the value " : "the error ") << answer.text << ' ' << answer.code;
}

std::string asText(int number) {
  return std::to_string(number);
}
std::string asText(std::string text) {
  return text;
}

template <typename T>
Answer answerOf(const OS::expected<T, DiagnosticError>& result) {
  if (result.has_value()) {
    return {true, asText(result.value()), {}};
  }
  return {false, result.error().message, result.error().code};
}

struct Getter {
  std::string name;
  std::function<Answer(const DiagnosticReport&)> get;
  std::string key;
  std::string created;
  std::string absent;
  bool number;
};

void PrintTo(const Getter& getter, std::ostream* out) {
  *out << getter.name;
}

std::vector<Getter> getters() {
  using R = DiagnosticReport;
  return {{"AppId", [](const R& r) { return answerOf(r.getReporterAppId()); }, "app_id", "11",
           "Report doesn't have an associated App Id", true},
          {"BuildId", [](const R& r) { return answerOf(r.getBuildId()); }, "build_id", "22",
           "Report doesn't have an associated Build Id", true},
          {"UserId", [](const R& r) { return answerOf(r.getUserId()); }, "user_id", "-33",
           "Report doesn't have an associated User Id", true},
          {"DeviceId", [](const R& r) { return answerOf(r.getDeviceId()); }, "device_id",
           "device-4", "Report doesn't have an associated Device Id", false},
          {"SessionId", [](const R& r) { return answerOf(r.getSessionId()); }, "session_id",
           "session-5", "Report doesn't have an associated Session Id", false}};
}

class ReportIdentity : public ReportTest, public testing::WithParamInterface<Getter> {
 protected:
  [[nodiscard]] Answer get() const { return GetParam().get(*report_); }
  /** Expects that the getter fails for want of a value, with its line. */
  void expectAbsent(const DiagnosticReport& report) {
    EXPECT_EQ(GetParam().get(report), (Answer{false, GetParam().absent, noCode()}));
    EXPECT_EQ(log_.take(), errorLines({GetParam().absent}));
  }

  ReportPtr report_ = create();
};

TEST_P(ReportIdentity, IsWhatTheReportWasCreatedWith) {
  EXPECT_EQ(get(), (Answer{true, GetParam().created, {}}));
  report_ = open();
  EXPECT_EQ(get(), (Answer{true, GetParam().created, {}}));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportIdentity, IsReadAgainEachTimeWithoutALock) {
  const auto writer = open();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  FlockSpy spy;
  store(GetParam().key, "-2147483648");
  EXPECT_EQ(get(), (Answer{true, "-2147483648", {}}));
  EXPECT_THAT(spy.take(), IsEmpty());
}

TEST_P(ReportIdentity, IsAnErrorWhenAbsent) {
  store(GetParam().key, std::nullopt);
  expectAbsent(*report_);
}

TEST_P(ReportIdentity, IsAnErrorForAReportOfNothing) {
  expectAbsent(DiagnosticReport());
}

TEST_P(ReportIdentity, MayBeAnyTextButMustBeANumberWhereItIsOne) {
  for (const std::string text : {"", "twelve", "2147483648"}) {
    SCOPED_TRACE(text);
    store(GetParam().key, text);
    if (GetParam().number) {
      expectAbsent(*report_);
    } else {
      EXPECT_EQ(get(), (Answer{true, text, {}}));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Getters, ReportIdentity, testing::ValuesIn(getters()),
                         [](const auto& all) { return all.param.name; });

/** One of the two times. */
struct Time {
  std::string name;
  long (DiagnosticReport::*get)() const;
  std::string key;
};

void PrintTo(const Time& time, std::ostream* out) {
  *out << time.name;
}

class ReportTime : public ReportTest, public testing::WithParamInterface<Time> {
 protected:
  [[nodiscard]] long get() const { return (*report_.*GetParam().get)(); }

  FakeClock clock_;
  ReportPtr report_ = create();
};

TEST_P(ReportTime, IsThatOfCreationAtFirst) {
  EXPECT_EQ(get(), 1'700'000'000);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportTime, IsWhatIsStored) {
  for (const long stored : {0L, -1L, 9223372036854775807L}) {
    store(GetParam().key, std::to_string(stored));
    EXPECT_EQ(get(), stored);
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportTime, IsNowWhenItIsNotRecorded) {
  const FakeClock later(std::chrono::seconds(1'800'000'000));
  store(GetParam().key, std::nullopt);
  EXPECT_EQ(get(), 1'800'000'000);
  store(GetParam().key, "yesterday");
  EXPECT_EQ(get(), 1'800'000'000);
  report_ = std::make_unique<DiagnosticReport>();
  EXPECT_EQ(get(), 1'800'000'000);
  EXPECT_THAT(log_.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Times, ReportTime,
    testing::Values(Time{"Created", &DiagnosticReport::getCreatedTime, "created"},
                    Time{"Modified", &DiagnosticReport::getModifiedTime, "modified"}),
    [](const auto& all) { return all.param.name; });

using ReportIdentifier = ReportTest;

TEST_F(ReportIdentifier, IsKeptByTheObjectAndNotReadFromTheStore) {
  const auto report = create();
  store("report_id", std::nullopt);
  EXPECT_EQ(report->getId(), id_);
  EXPECT_TRUE(DiagnosticReport().getId().isNull());
}

TEST_F(ReportIdentifier, QueriesChangeNothingOnDisk) {
  const auto report = create();
  const Tree before = treeOf(root_);
  for (const Getter& getter : getters()) {
    static_cast<void>(getter.get(*report));
  }
  static_cast<void>(report->getCreatedTime());
  static_cast<void>(report->getModifiedTime());
  EXPECT_EQ(treeOf(root_), before);
}

TEST_F(ReportIdentifier, ModifiedIsNeverBeforeCreatedOnARealClock) {
  const long before = ::time(nullptr);
  const auto report = create();
  EXPECT_LE(before, report->getCreatedTime());
  EXPECT_LE(report->getCreatedTime(), report->getModifiedTime());
  EXPECT_LE(report->getModifiedTime(), ::time(nullptr));
}

}  // namespace
}  // namespace KELP::Diagnostic
