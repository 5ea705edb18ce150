// `list`, when its output goes to a pipe.

#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class ListTest : public ReadingTest {
 protected:
  /** The identifiers that `list --json` with these options lists. */
  [[nodiscard]] std::vector<std::string> listed(std::vector<std::string> options) const {
    options.insert(options.begin(), {"list", "--json"});
    const ToolResult result = run(options);
    EXPECT_EQ(result.status, 0) << result.errors;
    std::vector<std::string> ids;
    const Json::Value document = result.json();
    for (const Json::Value& report : document["reports"]) {
      ids.push_back(report["id"].asString());
    }
    return ids;
  }
};

TEST_F(ListTest, HasARowForEachReportNewestFirst) {
  make(kFirst, kNoon);
  make(kSecond, kNoon + 3600);
  make(kThird, kNoon - 3600);
  {
    const auto report = open(kSecond);
    report->setProcessName("player");
    report->createReportStringProperty("note", {});
  }
  const std::string size = std::to_string(sizeOf(kFirst)) + " B";
  const std::string sizeOfSecond = std::to_string(sizeOf(kSecond)) + " B";
  const ToolResult result = run({"list", "--utc"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output,
            "ID                                    CREATED               STAGE     APP  PROCESS  "
            "CONTENTS   SIZE  LOCK\n" +
                std::string(kSecond) +
                "  2026-03-01T13:00:00Z  creating    7  player          1  " + sizeOfSecond +
                "  free\n" + kFirst + "  2026-03-01T12:00:00Z  creating    7  -               0  " +
                size + "  free\n" + kThird +
                "  2026-03-01T11:00:00Z  creating    7  -               0  " + size + "  free\n");
}

TEST_F(ListTest, ShowsTimesOfTheLocalZone) {
  make(kFirst);
  const ToolResult result = run({"list", "--no-legend"}, withEnvironment({{"TZ", "XXX-05:30"}}));
  EXPECT_THAT(result.output, StartsWith(std::string(kFirst) + "  2026-03-01T17:30:00+05:30  "));
}

TEST_F(ListTest, LeavesTheHeadingsOut) {
  make(kFirst);
  make(kSecond);
  EXPECT_THAT(run({"list", "--no-legend"}).lines(),
              ElementsAre(StartsWith(kFirst), StartsWith(kSecond)));
}

TEST_F(ListTest, PrintsNothingWhenThereIsNothing) {
  const ToolResult result = run({"list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "");
}

TEST_F(ListTest, PrintsADocumentWhenThereIsNothing) {
  const ToolResult result = run({"list", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "{\n  \"reports\" : [],\n  \"schema\" : 1\n}\n");
}

TEST_F(ListTest, PrintsADocument) {
  make(kFirst);
  open(kFirst)->setProcessName("p\n\xff");
  const Json::Value document = run({"list", "--json", "--utc"}).json();
  EXPECT_EQ(document["schema"], 1);
  ASSERT_EQ(document["reports"].size(), 1U);
  const Json::Value& report = document["reports"][0];
  EXPECT_THAT(report.getMemberNames(),
              ElementsAre("app", "contents", "created", "id", "lock", "process", "size", "stage"));
  EXPECT_EQ(report["id"], kFirst);
  EXPECT_EQ(report["app"], 7);
  EXPECT_EQ(report["contents"], 0);
  EXPECT_EQ(report["created"], "2026-03-01T12:00:00Z");
  EXPECT_EQ(report["lock"], "free");
  EXPECT_EQ(report["process"], "p\n\xef\xbf\xbd");
  EXPECT_EQ(report["size"].asUInt64(), sizeOf(kFirst));
  EXPECT_EQ(report["stage"], "creating");
}

TEST_F(ListTest, EscapesNames) {
  make(kFirst);
  open(kFirst)->setProcessName(kHostile);
  EXPECT_THAT(run({"list", "--no-legend"}).lines(), ElementsAre(HasSubstr(kHarmless)));
}

TEST_F(ListTest, CountsTheBytesOfAllFiles) {
  make(kFirst);
  addFile(*open(kFirst), "log", std::string(100'000, 'x'), {10, 20});
  const Json::Value report = run({"list", "--json"}).json()["reports"][0];
  EXPECT_EQ(report["size"].asUInt64(), sizeOf(kFirst));
  EXPECT_GT(report["size"].asUInt64(), 200'000U);
  EXPECT_THAT(run({"list"}).output, testing::ContainsRegex("  19[67] KiB  "));
}

TEST_F(ListTest, SaysWhoHoldsAReport) {
  for (const char* const id : {kFirst, kSecond, kThird}) {
    make(id);
  }
  const auto writer = open(kSecond);
  const auto reader = open(kThird);
  ASSERT_TRUE(reader->acquireReadLock(false));
  EXPECT_THAT(run({"list", "--no-legend"}).lines(),
              ElementsAre(testing::EndsWith("  free"), testing::EndsWith("  write"),
                          testing::EndsWith("  read")));
}

TEST_F(ListTest, ShowsReportsThatAreNotSound) {
  make(kFirst, kNoon);
  makeDamaged(kSecond);
  makeHalf(kThird);
  makeMismatched(kFourth, kFirst);
  const ToolResult result = run({"list", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  std::map<std::string, std::string> stages;
  const Json::Value document = result.json();
  for (const Json::Value& report : document["reports"]) {
    stages[report["id"].asString()] = report["stage"].asString();
  }
  EXPECT_THAT(
      stages,
      ElementsAre(testing::Pair(kFirst, "creating"), testing::Pair(kSecond, "damaged"),
                  testing::Pair(kThird, "half-made"), testing::Pair(kFourth, "mismatched")));
  // Those without a time come last.
  EXPECT_THAT(listed({}), ElementsAre(kFirst, kFourth, kSecond, kThird));
  EXPECT_THAT(run({"list"}).lines()[3], AllOf(StartsWith(kSecond), HasSubstr("  -  ")));
}

// Each of them could make a reader wait, or fail.
TEST_F(ListTest, IsNotStalledByWhatStandsInThePlaceOfAStore) {
  for (const char* const id : {kFirst, kSecond, kThird}) {
    make(id);
    fs::remove(storeOf(id));
  }
  ASSERT_EQ(::mkfifo(storeOf(kFirst).c_str(), 0600), 0);
  fs::create_directory(storeOf(kSecond));
  fs::create_symlink("/dev/zero", storeOf(kThird));
  EXPECT_THAT(listed({"--stage", "damaged"}), ElementsAre(kFirst, kSecond, kThird));
}

TEST_F(ListTest, LeavesOutWhatIsNoReport) {
  make(kFirst);
  writeFile(repository_.root() / kSecond, "a file");
  fs::create_directory(repository_.root() / "lost+found");
  fs::create_directory(repository_.root() / "AAAAAAAA-1111-4111-8111-111111111111");
  fs::create_symlink(kThird, repository_.root() / kThird);  // Leads to itself.
  EXPECT_THAT(listed({}), ElementsAre(kFirst));
}

TEST_F(ListTest, FiltersByNumber) {
  make(kFirst, kNoon);
  make(kSecond, kNoon + 1);
  make(kThird, kNoon + 2);
  EXPECT_THAT(listed({"-n", "2"}), ElementsAre(kThird, kSecond));
  EXPECT_THAT(listed({"-n", "0"}), IsEmpty());
  EXPECT_THAT(listed({"-n", "9"}), SizeIs(3));
}

TEST_F(ListTest, FiltersByStage) {
  make(kFirst);
  make(kSecond);
  makeDamaged(kThird);
  open(kSecond)->markCreationComplete();
  EXPECT_THAT(listed({"--stage", "creating"}), ElementsAre(kFirst));
  EXPECT_THAT(listed({"--stage", "collecting"}), ElementsAre(kSecond));
  EXPECT_THAT(listed({"--stage", "damaged"}), ElementsAre(kThird));
  EXPECT_THAT(listed({"--stage", "uploaded"}), IsEmpty());
}

TEST_F(ListTest, FiltersByApplication) {
  make(kFirst);
  make(kSecond);
  repository_.writeKey(kSecond, "app_id", "-8");
  EXPECT_THAT(listed({"--app", "7"}), ElementsAre(kFirst));
  EXPECT_THAT(listed({"--app=-8"}), ElementsAre(kSecond));
}

TEST_F(ListTest, FiltersByTimeWithItsEnds) {
  make(kFirst, kNoon);
  make(kSecond, kNoon + 3600);
  makeHalf(kThird);  // Has no time.
  EXPECT_THAT(listed({"--since", "2026-03-01T12:00:00Z"}), ElementsAre(kSecond, kFirst));
  EXPECT_THAT(listed({"--since", "2026-03-01T12:00:01Z"}), ElementsAre(kSecond));
  EXPECT_THAT(listed({"--until", "2026-03-01T12:00:00Z"}), ElementsAre(kFirst));
  EXPECT_THAT(listed({"--until", "2026-03-01T11:59:59Z"}), IsEmpty());
  EXPECT_THAT(listed({"--since", "2026-03-01", "--until", "2026-03-01T12:30", "--utc"}),
              ElementsAre(kFirst));
}

TEST_F(ListTest, FiltersByAge) {
  make(kFirst, kNoon);
  const auto isNew = repository_.create(kSecond);
  EXPECT_THAT(listed({"--since", "1h"}), ElementsAre(kSecond));
  EXPECT_THAT(listed({"--until", "1h"}), ElementsAre(kFirst));
}

TEST_F(ListTest, ShowsTimesThatNoCalendarHas) {
  make(kFirst);
  repository_.writeKey(kFirst, "created", "9223372036854775807");
  EXPECT_THAT(run({"list", "--no-legend"}).lines(),
              ElementsAre(HasSubstr("  9223372036854775807  ")));
}

TEST_F(ListTest, HasNullForTimesThatTheFormHasNot) {
  make(kFirst);
  for (const char* const time : {"9223372036854775807", "-9223372036854775808", "253402300800"}) {
    repository_.writeKey(kFirst, "created", time);
    for (const Json::Value& report : {run({"list", "--json"}).json()["reports"][0],
                                      run({"show", kFirst, "--json"}).json()["report"]}) {
      EXPECT_TRUE(report.isMember("created"));
      EXPECT_TRUE(report["created"].isNull()) << time;
    }
  }
}

class ListUsage : public ReadingTest,
                  public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(ListUsage, IsRefused) {
  make(kFirst);
  std::vector<std::string> arguments = GetParam();
  arguments.insert(arguments.begin(), "list");
  const ToolResult result = run(arguments);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, StartsWith("kelp-diagnostics: "));
}

INSTANTIATE_TEST_SUITE_P(All, ListUsage,
                         testing::Values(std::vector<std::string>{"--stage", "gone"},
                                         std::vector<std::string>{"--since", "yesterday"},
                                         std::vector<std::string>{"--until", "2026-02-30"},
                                         std::vector<std::string>{"-n", "-1"},
                                         std::vector<std::string>{"-n", "many"},
                                         std::vector<std::string>{"--app", "x"},
                                         std::vector<std::string>{"--unknown"},
                                         std::vector<std::string>{"stray"}));

TEST(ListOfNoDirectory, IsNotFound) {
  const TemporaryDirectory directory;
  writeFile(directory / "file", "");
  for (const char* const name : {"nothing", "file"}) {
    const std::string root = (directory / name).native();
    for (const char* const verb : {"list", "stats"}) {
      const ToolResult result = runTool({"-C", root, verb});
      EXPECT_EQ(result.status, 3);
      EXPECT_EQ(result.output, "");
      EXPECT_THAT(result.errors, StartsWith("kelp-diagnostics: cannot read " + root + ": "));
    }
  }
  EXPECT_FALSE(fs::exists(directory / "nothing"));
}

}  // namespace
}  // namespace KELP::Test
