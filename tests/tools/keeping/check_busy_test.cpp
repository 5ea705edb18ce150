// `check` while others work in the repository.

#include "damage.h"
#include "support/childprocess.h"

#include <gmock/gmock.h>

#include <chrono>
#include <thread>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

class CheckBusy : public KeepingTest {
 protected:
  CheckBusy() {
    makeReport(repository_, idOf(1));
    writeFile(scratch(), "bytes");
    fs::create_directories(repository_.root() / idOf(1) / "contentfiles/log/3");
    writeFile(repository_.root() / idOf(1) / "contentfiles/log/3/coming", "bytes");
  }

  [[nodiscard]] fs::path scratch() const { return repository_.root() / idOf(1) / "tmp" / "mine"; }
};

TEST_F(CheckBusy, AReportThatIsBeingWrittenIsNotChecked) {
  const auto writer = hold(repository_, idOf(1));
  for (const char* const option : {"--json", "--repair"}) {
    const ToolResult result = run({"check", option});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "kelp-diagnostics: " + idOf(1) + ": in use, not checked\n");
  }
  EXPECT_TRUE(fs::exists(scratch()));
  const Json::Value document = run({"check", "--json"}).json();
  EXPECT_EQ(document["findings"], Json::Value(Json::arrayValue));
  ASSERT_EQ(document["unchecked"].size(), 1U);
  EXPECT_EQ(document["unchecked"][0]["report"], idOf(1));
  EXPECT_EQ(document["unchecked"][0]["reason"], "in use");
}

TEST_F(CheckBusy, AReportThatIsBeingCreatedIsNotChecked) {
  const auto writer = hold(repository_, idOf(1));
  fs::remove(repository_.root() / idOf(1) / "metadata.db");
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_F(CheckBusy, TheScratchFilesOfAReaderAreHisOwn) {
  const auto reader = hold(repository_, idOf(1));
  ASSERT_TRUE(reader->acquireReadLock(false));
  const Json::Value findings = run({"check", "--json", "--repair"}).json()["findings"];
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0]["kind"], "orphan-file");
  EXPECT_TRUE(fs::exists(scratch()));
}

TEST_F(CheckBusy, EmptyDirectoriesOfAReportThatIsReadAreLeft) {
  fs::create_directory(repository_.root() / idOf(1) / "contentfiles/gone");
  const auto reader = hold(repository_, idOf(1));
  ASSERT_TRUE(reader->acquireReadLock(false));
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.output, ::testing::HasSubstr("\"contentfiles/gone\" is an empty directory of "
                                                  "no property; left: the report is in use"));
  EXPECT_TRUE(fs::exists(repository_.root() / idOf(1) / "contentfiles/gone"));
}

TEST_F(CheckBusy, AReportThatChangesAllTheTimeIsLeftAlone) {
  std::jthread writer([this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      writeFile(scratch(), "bytes");
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  const ToolResult result = run({"check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: " + idOf(1) + ": changing all the time, not checked\n");
}

TEST_F(CheckBusy, ReportsThatComeAndGoAreNoFindings) {
  fs::remove_all(repository_.root() / idOf(1));
  ChildProcess churn({KELP_TOOL_CHURN, repository_.root()});
  ASSERT_EQ(churn.receive(), "running");
  const auto end = steady_clock::now() + std::chrono::seconds(2);
  int runs = 0;
  for (; steady_clock::now() < end; ++runs) {
    const ToolResult result = run({"check"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "");
  }
  churn.closeInput();
  const auto count = churn.receive();
  ASSERT_TRUE(count.has_value());
  EXPECT_GT(std::stoi(*count), 10);
  EXPECT_GT(runs, 1);
  EXPECT_EQ(churn.wait(), 0);
}

}  // namespace
}  // namespace KELP::Test
