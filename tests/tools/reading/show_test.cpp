// `show`.

#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

constexpr const char* kSecret = "do not tell";

class ShowTest : public ReadingTest {
 protected:
  /** A report with something in every field and a property of every type; the permitted level is
   * 20. */
  void makeFull(const std::string& id) const {
    make(id);
    {
      const auto report = open(id);
      report->setProcessName("player");
      report->setPID(4711);
      report->setLoadedLibraries({"/lib/a.so", "/lib/b.so"});
      report->setDescription("It fell over");
      addFile(*report, "log", "twelve bytes", {10, 40});
      report->createReportStringProperty("note", {"b", "a"});
      report->addReportStringVariation("note", 0, "brief", false);
      report->addReportStringVariation("note", 20, "longer", false);
      report->addReportStringVariation("note", 30, kSecret, false);
      report->createReportIntegerProperty("count", {});
      report->addReportIntegerVariation("count", 0, -3, false);
      report->createReportDoubleProperty("ratio", {});
      report->addReportDoubleVariation("ratio", 0, 0.1, false);
      report->createReportBooleanProperty("flag", {});
      report->addReportBooleanVariation("flag", 0, true, false);
      report->createReportStringProperty("empty", {});
      report->markCreationComplete();
      report->markUserInteractionComplete();
    }
    repository_.writeKey(id, "created", std::to_string(kNoon));
    repository_.writeKey(id, "modified", std::to_string(kNoon + 60));
  }

  /** Stores another path for the only variation of the file property "log". */
  void storePath(const std::string& id, const std::string& path) const {
    repository_.writeKey(id, "report_contents",
                         R"([{"stable_id":"log","property_type":"FILE","variations":[)"
                         R"({"relative_path":")" +
                             path + R"(","sensitivity_level":10}]}])");
  }
};

TEST_F(ShowTest, PrintsEverything) {
  makeFull(kFirst);
  const ToolResult result = run({"show", kFirst, "--utc"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  std::vector<std::string> lines = result.lines();
  for (std::string& line : lines) {  // The age depends on today, the size on the store.
    if (line.find(" ago)") != std::string::npos) {
      line.erase(line.find(" ("));
    }
    if (line.starts_with("Size:")) {
      EXPECT_THAT(line, testing::MatchesRegex("Size:            [0-9.]+ K?i?B"));
      line = "Size";
    }
  }
  EXPECT_THAT(lines, ElementsAre("Report:          " + std::string(kFirst),   //
                                 "Stage:           collecting",               //
                                 "Created:         2026-03-01T12:00:00Z",     //
                                 "Modified:        2026-03-01T12:01:00Z",     //
                                 "Application:     7",                        //
                                 "Build:           2",                        //
                                 "User:            3",                        //
                                 "Device:          device",                   //
                                 "Session:         session",                  //
                                 "Version:         1",                        //
                                 "Process:         player",                   //
                                 "PID:             4711",                     //
                                 "Libraries:       2: /lib/a.so, /lib/b.so",  //
                                 "Description:     It fell over",             //
                                 "Consent level:   20",                       //
                                 "Maximum level:   30",                       //
                                 "Permitted level: 20",                       //
                                 "Done:            [x] creation",             //
                                 "                 [x] user interaction",     //
                                 "                 [ ] data collection",      //
                                 "                 [ ] data policy",          //
                                 "                 [ ] upload",               //
                                 "Path:            " + (repository_.root() / kFirst).native(),
                                 "Size",                             //
                                 "Lock:            free",            //
                                 "Contents:        6 properties",    //
                                 "  log: file, text/plain",          //
                                 "    * level 10: log10.txt, 12 B",  //
                                 "      level 40: (hidden)",         //
                                 "  note: string, tags: a b",        //
                                 "      level  0: \"brief\"",        //
                                 "    * level 20: \"longer\"",       //
                                 "      level 30: (hidden)",         //
                                 "  count: integer",                 //
                                 "    * level 0: -3",                //
                                 "  ratio: double",                  //
                                 "    * level 0: 0.1",               //
                                 "  flag: boolean",                  //
                                 "    * level 0: true",              //
                                 "  empty: string"));
}

TEST_F(ShowTest, ShowsWhatIsAbovePermissionOnlyWhenAskedTo) {
  makeFull(kFirst);
  EXPECT_THAT(run({"show", kFirst}).output, Not(HasSubstr(kSecret)));
  EXPECT_THAT(run({"show", kFirst, "--json"}).output, Not(HasSubstr(kSecret)));
  EXPECT_THAT(run({"show", kFirst, "--all-levels"}).lines(),
              IsSupersetOf({"    * level 20: \"longer\"", "      level 30: \"do not tell\"",
                            "      level 40: log40.txt, 12 B"}));
}

TEST_F(ShowTest, PermitsTheSmallerConsentLevel) {
  makeFull(kFirst);
  repository_.writeKey(kFirst, "max_consent_level", "5");
  EXPECT_THAT(run({"show", kFirst}).lines(),
              IsSupersetOf({"Permitted level: 5", "    * level  0: \"brief\"",
                            "      level 20: (hidden)", "      level 10: (hidden)"}));
}

TEST_F(ShowTest, MarksWhatWasNotStored) {
  make(kFirst);
  EXPECT_THAT(run({"show", kFirst}).lines(),
              IsSupersetOf({"Process:         -", "PID:             -", "Libraries:       -",
                            "Description:     -", "Contents:        none"}));
}

TEST_F(ShowTest, SaysOfAStringThatItIsEmpty) {
  make(kFirst);
  open(kFirst)->setDescription("");
  open(kFirst)->createReportStringProperty("p", {});
  open(kFirst)->addReportStringVariation("p", 1, "", false);
  EXPECT_THAT(run({"show", kFirst}).lines(), Contains("    * level 1: \"\""));
}

TEST_F(ShowTest, PrintsADocument) {
  makeFull(kFirst);
  const Json::Value document = run({"show", kFirst, "--json", "--utc"}).json();
  EXPECT_EQ(document["schema"], 1);
  const Json::Value& report = document["report"];
  EXPECT_THAT(
      report.getMemberNames(),
      testing::UnorderedElementsAre(
          "id", "stored_id", "stage", "created", "modified", "app", "build", "user", "device",
          "session", "version", "consent_level", "max_consent_level", "permitted_level",
          "creation_complete", "user_interaction_complete", "data_collection_complete",
          "data_policy_applied", "upload_complete", "description", "pid", "process",
          "loaded_libraries", "contents", "path", "size", "lock"));
  EXPECT_EQ(report["id"], kFirst);
  EXPECT_EQ(report["stored_id"], kFirst);
  EXPECT_EQ(report["stage"], "collecting");
  EXPECT_EQ(report["created"], "2026-03-01T12:00:00Z");
  EXPECT_EQ(report["modified"], "2026-03-01T12:01:00Z");
  EXPECT_EQ(report["app"], 7);
  EXPECT_EQ(report["build"], 2);
  EXPECT_EQ(report["user"], 3);
  EXPECT_EQ(report["device"], "device");
  EXPECT_EQ(report["session"], "session");
  EXPECT_EQ(report["version"], 1);
  EXPECT_EQ(report["consent_level"], 20);
  EXPECT_EQ(report["max_consent_level"], 30);
  EXPECT_EQ(report["permitted_level"], 20);
  EXPECT_EQ(report["creation_complete"], true);
  EXPECT_EQ(report["user_interaction_complete"], true);
  EXPECT_EQ(report["data_collection_complete"], false);
  EXPECT_EQ(report["data_policy_applied"], false);
  EXPECT_EQ(report["upload_complete"], false);
  EXPECT_EQ(report["description"], "It fell over");
  EXPECT_EQ(report["pid"], 4711);
  EXPECT_EQ(report["process"], "player");
  EXPECT_EQ(report["loaded_libraries"][1], "/lib/b.so");
  EXPECT_EQ(report["path"], (repository_.root() / kFirst).native());
  EXPECT_EQ(report["size"].asUInt64(), sizeOf(kFirst));
  EXPECT_EQ(report["lock"], "free");
}

TEST_F(ShowTest, PrintsTheContentsInTheDocument) {
  makeFull(kFirst);
  const Json::Value contents = run({"show", kFirst, "--json"}).json()["report"]["contents"];
  ASSERT_EQ(contents.size(), 6U);
  EXPECT_EQ(contents[0]["name"], "log");
  EXPECT_EQ(contents[0]["type"], "file");
  EXPECT_EQ(contents[0]["media_type"], "text/plain");
  const Json::Value& file = contents[0]["variations"][0];
  EXPECT_EQ(file["level"], 10);
  EXPECT_EQ(file["best"], true);
  EXPECT_EQ(file["file"], "log10.txt");
  EXPECT_EQ(file["path"], "contentfiles/log/10/log10.txt");
  EXPECT_EQ(file["state"], "present");
  EXPECT_EQ(file["size"], 12);
  EXPECT_THAT(contents[0]["variations"][1].getMemberNames(), ElementsAre("hidden", "level"));
  EXPECT_EQ(contents[1]["tags"][0], "a");
  EXPECT_EQ(contents[1]["variations"][1]["value"], "longer");
  EXPECT_EQ(contents[2]["variations"][0]["value"], -3);
  EXPECT_EQ(contents[3]["variations"][0]["value"], 0.1);
  EXPECT_EQ(contents[4]["variations"][0]["value"], true);
  EXPECT_EQ(contents[5]["variations"].size(), 0U);
  const Json::Value all =
      run({"show", kFirst, "--json", "--all-levels"}).json()["report"]["contents"];
  EXPECT_EQ(all[1]["variations"][2]["value"], kSecret);
  EXPECT_EQ(all[1]["variations"][2]["best"], false);
}

TEST_F(ShowTest, SaysWhoHoldsTheReport) {
  make(kFirst);
  const auto holder = open(kFirst);
  EXPECT_THAT(run({"show", kFirst}).lines(), Contains("Lock:            write"));
  ASSERT_TRUE(holder->acquireReadLock(false));
  EXPECT_THAT(run({"show", kFirst}).lines(), Contains("Lock:            read"));
  EXPECT_EQ(run({"show", kFirst, "--json"}).json()["report"]["lock"], "read");
}

struct FileCase {
  const char* name;
  std::string path;  ///< As it is stored.
  void (*arrange)(const fs::path& report);
  std::string line;
  const char* state;
};

class ShowOfAFile : public ShowTest, public testing::WithParamInterface<FileCase> {};

TEST_P(ShowOfAFile, SaysWhatIsThere) {
  make(kFirst);
  storePath(kFirst, GetParam().path);
  fs::create_directories(repository_.root() / kFirst / "contentfiles");
  GetParam().arrange(repository_.root() / kFirst);
  const ToolResult result = run({"show", kFirst});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.lines(), Contains("    * level 10: " + GetParam().line));
  const Json::Value file =
      run({"show", kFirst, "--json"}).json()["report"]["contents"][0]["variations"][0];
  EXPECT_EQ(file["state"], GetParam().state);
  EXPECT_EQ(file["size"].isNull(), std::string(GetParam().state) != "present");
}

INSTANTIATE_TEST_SUITE_P(
    All, ShowOfAFile,
    testing::Values(
        FileCase{"Present", "contentfiles/f",
                 [](const fs::path& report) { writeFile(report / "contentfiles/f", "abc"); },
                 "f, 3 B", "present"},
        FileCase{"Missing", "contentfiles/f", [](const fs::path&) {}, "f, missing", "missing"},
        FileCase{"Directory", "contentfiles/f",
                 [](const fs::path& report) { fs::create_directory(report / "contentfiles/f"); },
                 "f, not a regular file", "irregular"},
        FileCase{"Link", "contentfiles/f",
                 [](const fs::path& report) {
                   fs::create_symlink("/etc/passwd", report / "contentfiles/f");
                 },
                 "f, not a regular file", "irregular"},
        FileCase{"Pipe", "contentfiles/f",
                 [](const fs::path& report) {
                   EXPECT_EQ(::mkfifo((report / "contentfiles/f").c_str(), 0600), 0);
                 },
                 "f, not a regular file", "irregular"},
        FileCase{"Outside", "/etc/passwd", [](const fs::path&) {},
                 "outside of the report: /etc/passwd", "outside"},
        FileCase{
            "ThroughALink", "link/passwd",
            [](const fs::path& report) { fs::create_directory_symlink("/etc", report / "link"); },
            "outside of the report: link/passwd", "outside"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ShowTest, EscapesEverything) {
  make(kFirst);
  {
    const auto report = open(kFirst);
    report->setProcessName(kHostile);
    report->setDescription(kHostile);
    report->setLoadedLibraries({kHostile});
    report->createReportFileProperty(kHostile, kHostile, {kHostile});
    report->createReportStringProperty("s", {});
    report->addReportStringVariation("s", 0, kHostile, false);
  }
  for (const char* const key : {"device_id", "session_id"}) {
    repository_.writeKey(kFirst, key, kHostile);
  }
  const std::string harmless = kHarmless;
  for (const std::string& output :
       {run({"show", kFirst}).output, runOnTerminal({"show", kFirst}).output}) {
    const std::vector<std::string> lines = terminalLines(output);
    EXPECT_THAT(lines, Each(Not(AllOf(HasSubstr("\x1b"), HasSubstr("\xc2\x9b")))));
    EXPECT_THAT(lines,
                IsSupersetOf({"Process:         " + harmless, "Description:     " + harmless,
                              "Libraries:       1: " + harmless, "Device:          " + harmless,
                              "Session:         " + harmless,
                              "  " + harmless + ": file, " + harmless + ", tags: " + harmless,
                              "    * level 0: \"" + harmless + "\""}));
  }
}

TEST_F(ShowTest, ShortensLongTextsOnATerminalOnly) {
  make(kFirst);
  const std::string longText(500, 'x');
  {
    const auto report = open(kFirst);
    report->setDescription(longText);
    report->createReportStringProperty("s", {});
    report->addReportStringVariation("s", 0, longText, false);
  }
  const auto lines = terminalLines(runOnTerminal({"show", kFirst}, 60).output);
  EXPECT_THAT(lines, Contains("Description:     " + std::string(42, 'x') + "…"));
  EXPECT_THAT(lines, Contains("    * level 0: \"" + std::string(43, 'x') + "…"));
  EXPECT_THAT(lines, Contains("Path:            " + (repository_.root() / kFirst).native()));
  EXPECT_THAT(run({"show", kFirst}).lines(), IsSupersetOf({"Description:     " + longText,
                                                           "    * level 0: \"" + longText + "\""}));
}

TEST_F(ShowTest, ShowsWhatIsKnownOfADamagedReport) {
  makeDamaged(kFirst);
  const ToolResult result = run({"show", kFirst});
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.lines(),
              ElementsAre("Report:          " + std::string(kFirst),
                          "Stage:           damaged (its metadata cannot be read)",
                          "Path:            " + (repository_.root() / kFirst).native(),
                          "Size:            36 B", "Lock:            free"));
  const ToolResult document = run({"show", kFirst, "--json"});
  EXPECT_EQ(document.status, 5);
  EXPECT_EQ(document.json()["report"]["stage"], "damaged");
  EXPECT_TRUE(document.json()["report"]["stored_id"].isNull());
  EXPECT_TRUE(document.json()["report"]["created"].isNull());
}

TEST_F(ShowTest, ShowsWhatIsKnownOfAHalfMadeReport) {
  makeHalf(kFirst);
  make(kSecond);
  fs::remove(repository_.root() / kSecond / "lock");
  const ToolResult begun = run({"show", kFirst});
  EXPECT_EQ(begun.status, 5);
  EXPECT_THAT(begun.lines(),
              IsSupersetOf({"Stage:           half-made (being created, or left by a process that "
                            "died)",
                            "Size:            0 B", "Lock:            free"}));
  EXPECT_THAT(begun.output, Not(HasSubstr("Created:")));
  const ToolResult unlocked = run({"show", kSecond, "--utc"});
  EXPECT_EQ(unlocked.status, 5);
  EXPECT_THAT(unlocked.lines(), Contains("Application:     7"));
  EXPECT_EQ(run({"show", kSecond, "--json"}).json()["report"]["stage"], "half-made");
}

TEST_F(ShowTest, ShowsWhatIsKnownOfAReportWithUnreadableValues) {
  make(kFirst);
  repository_.writeKey(kFirst, "created", "yesterday");
  repository_.writeKey(kFirst, "report_contents", "no list");
  repository_.writeKey(kFirst, "upload_complete", "perhaps");
  const ToolResult result = run({"show", kFirst});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(
      result.lines(),
      IsSupersetOf({"Stage:           damaged (cannot be read: created, upload_complete, "
                    "report_contents)",
                    "Created:         -", "Application:     7", "Contents:        unreadable"}));
  const ToolResult json = run({"show", kFirst, "--json"});
  EXPECT_EQ(json.status, 5);
  const Json::Value report = json.json()["report"];
  EXPECT_EQ(report["stage"], "damaged");
  EXPECT_EQ(report["app"], 7);
  for (const char* const member : {"created", "upload_complete", "contents"}) {
    EXPECT_TRUE(report.isMember(member) && report[member].isNull()) << member;
  }
}

TEST_F(ShowTest, SaysNothingOfWhatADamagedStoreMayHold) {
  makeDamaged(kFirst);
  const Json::Value report = run({"show", kFirst, "--json"}).json()["report"];
  for (const char* const member :
       {"consent_level", "max_consent_level", "permitted_level", "creation_complete",
        "user_interaction_complete", "data_collection_complete", "data_policy_applied",
        "upload_complete", "contents"}) {
    EXPECT_TRUE(report.isMember(member) && report[member].isNull()) << member;
  }
}

TEST_F(ShowTest, ShowsWhatIsKnownOfAMismatchedReport) {
  makeMismatched(kFirst, kSecond);
  const ToolResult result = run({"show", kFirst});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.lines(),
              IsSupersetOf({"Stage:           mismatched (its metadata is that of " +
                                std::string(kSecond) + ")",
                            std::string("Application:     7")}));
  const Json::Value report = run({"show", kFirst, "--json"}).json()["report"];
  EXPECT_EQ(report["id"], kFirst);
  EXPECT_EQ(report["stored_id"], kSecond);
}

TEST_F(ShowTest, TakesABeginningThatOnlyOneHas) {
  make(kFirst);
  make(kSecond);
  const std::string first = std::string("Report:          ") + kFirst;
  for (const char* const beginning : {"1", "1a", "1A1", kFirst}) {
    EXPECT_THAT(run({"show", beginning}).lines(), Contains(first)) << beginning;
  }
}

TEST_F(ShowTest, RefusesABeginningThatSeveralHave) {
  const std::string other = "1a111111-1111-4111-8111-111111111112";
  make(kFirst);
  make(other);
  const ToolResult result = run({"show", "1a"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kelp-diagnostics: \"1a\" is the beginning of 2 reports, such as " +
                               std::string(kFirst) + " and " + other + "\n");
}

TEST_F(ShowTest, DoesNotFindWhatIsNotThere) {
  make(kFirst);
  for (const std::string id : {"2", "1a2", "", "../", "1a111111-1111-4111-8111-1111111111111"}) {
    for (const std::vector<std::string>& verb :
         {std::vector<std::string>{"show", id}, {"cat", id, "note"}}) {
      const ToolResult result = run(verb);
      EXPECT_EQ(result.status, 3) << id;
      EXPECT_EQ(result.output, "");
      EXPECT_EQ(result.errors, "kelp-diagnostics: there is no report \"" + id + "\"\n");
    }
  }
}

TEST_F(ShowTest, WantsOneReport) {
  make(kFirst);
  make(kSecond);
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"show"}, {"show", kFirst, kSecond}}) {
    const ToolResult result = run(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
  }
}

}  // namespace
}  // namespace KELP::Test
