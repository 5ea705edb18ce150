// `check` while others work in the repository.

#include "damage.h"
#include "support/childprocess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

class CheckBusy : public KeepingTest {
 protected:
  CheckBusy() {
    makeReport(repository_, idOf(1));
    writeOldFile(scratch());
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

TEST_F(CheckBusy, AReportThatIsAskedForIsBusy) {
  makeReport(repository_, idOf(2));
  const auto writer = hold(repository_, idOf(1));
  for (const char* const option : {"--json", "--repair"}) {
    EXPECT_EQ(run({"check", idOf(1), idOf(2), option}).status, 4);
  }
  fs::remove(repository_.root() / idOf(2) / "contentfiles/log/0/log");
  EXPECT_EQ(run({"check", idOf(1), idOf(2)}).status, 5);
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

TEST_F(CheckBusy, ScratchFilesMayBeInUseWithoutALock) {
  const auto collector = hold(repository_, idOf(1));
  const auto writing = collector->createReportTemporaryFile();
  ASSERT_TRUE(writing.has_value());
  const fs::path file = *(*writing)->getPath();
  writeFile(file, "bytes");
  collector->releaseLock();
  const Json::Value findings = run({"check", "--json", "--repair"}).json()["findings"];
  ASSERT_EQ(findings.size(), 3U);
  bool isFound = false;
  for (const Json::Value& finding : findings) {
    if (finding["path"] == file.native()) {
      isFound = true;
      EXPECT_EQ(finding["kind"], "leftover-temporary");
      EXPECT_THAT(finding["left"].asString(),
                  ::testing::MatchesRegex("it may be in use: written [0-9]+ s ago"));
    }
  }
  EXPECT_TRUE(isFound);
  EXPECT_EQ(readFile(file), "bytes");
  EXPECT_FALSE(fs::exists(scratch()));  // Which is old.
}

TEST_F(CheckBusy, ScratchFilesThatAreOpenAreLeft) {
  const fs::path directory = scratch().parent_path() / "directory";
  fs::create_directory(directory);
  writeFile(directory / "inside", "bytes");
  makeOld(directory);
  std::vector<int> descriptors;
  for (const fs::path& path : {scratch(), directory / "inside"}) {
    descriptors.push_back(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_GE(descriptors.back(), 0);
  }
  const Json::Value findings = run({"check", "--json", "--repair"}).json()["findings"];
  ASSERT_EQ(findings.size(), 3U);
  for (const Json::Value& finding : findings) {
    if (finding["kind"] == "leftover-temporary") {
      EXPECT_EQ(finding["left"], "it is in use: a process has it open");
    }
  }
  EXPECT_TRUE(fs::exists(scratch()) && fs::exists(directory / "inside"));
  for (const int descriptor : descriptors) {
    ::close(descriptor);
  }
  static_cast<void>(run({"check", "--repair"}));
  EXPECT_TRUE(fs::is_empty(scratch().parent_path()));
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
      writeFile(scratch(), "other bytes");
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  const ToolResult result = run({"check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: " + idOf(1) + ": changing all the time, not checked\n");
}

/** With reports that come and go all the time. */
class CheckChurn : public CheckBusy {
 protected:
  CheckChurn() : churn_({KELP_TOOL_CHURN, repository_.root()}) {
    if (churn_.receive() != "running") {
      throw std::runtime_error("the other process does not run");
    }
  }

  /** Whoever works there has missed nothing. */
  void expectUndisturbed() {
    churn_.closeInput();
    const auto count = churn_.receive();
    ASSERT_TRUE(count.has_value());
    EXPECT_GT(std::stoi(*count), 10);
    EXPECT_EQ(churn_.wait(), 0);
  }

  ChildProcess churn_;
};

TEST_F(CheckChurn, ReportsThatComeAndGoAreNoFindings) {
  fs::remove_all(repository_.root() / idOf(1));
  const auto end = steady_clock::now() + std::chrono::seconds(2);
  int runs = 0;
  for (; steady_clock::now() < end; ++runs) {
    const ToolResult result = run({"check"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "");
  }
  EXPECT_GT(runs, 1);
  expectUndisturbed();
}

TEST_F(CheckChurn, ARepairLosesNothingOfThem) {
  for (int round = 0; round < 2; ++round) {
    writeOldFile(scratch());
    fs::create_directory(repository_.root() / idOf(2));
    const Json::Value findings = run({"check", "--repair", "--json"}).json()["findings"];
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0]["kind"], "orphan-file");
    EXPECT_EQ(findings[1]["path"], scratch().native());
    EXPECT_EQ(findings[2]["report"], idOf(2));
    EXPECT_TRUE(findings[1]["repaired"].asBool() && findings[2]["repaired"].asBool());
  }
  expectUndisturbed();
}

}  // namespace
}  // namespace KELP::Test
