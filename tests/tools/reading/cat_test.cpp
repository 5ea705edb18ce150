// `cat`, when its output goes to a pipe or a file.

#include "support/childprocess.h"
#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

class CatTest : public ReadingTest {
 protected:
  CatTest() {
    make(kFirst);
    const auto report = open(kFirst);
    report->createReportStringProperty("note", {});
    report->addReportStringVariation("note", 0, "brief", false);
    report->addReportStringVariation("note", 20, "longer", false);
    report->addReportStringVariation("note", 30, "secret", false);
    report->createReportStringProperty("secrets", {});
    report->addReportStringVariation("secrets", 21, "all secret", false);
    report->createReportStringProperty("empty", {});
  }

  [[nodiscard]] ToolResult cat(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"cat", kFirst});
    return run(arguments);
  }

  void expectRefused(const std::vector<std::string>& arguments, int status,
                     const std::string& message) const {
    const ToolResult result = cat(arguments);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "kelp-diagnostics: " + message + "\n");
  }

  [[nodiscard]] fs::path fileOf(const std::string& name, int level) const {
    return repository_.root() / kFirst / "contentfiles" / name / std::to_string(level) /
           (name + std::to_string(level) + ".txt");
  }
};

TEST_F(CatTest, WritesTheBestPermittedVariation) {
  const ToolResult result = cat({"note"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "longer");
  EXPECT_EQ(result.errors, "");
}

TEST_F(CatTest, WritesTheVariationOfALevel) {
  EXPECT_EQ(cat({"note", "--level", "0"}).output, "brief");
  EXPECT_EQ(cat({"note", "--level", "20"}).output, "longer");
}

TEST_F(CatTest, WritesValuesOfAllTypes) {
  {
    const auto report = open(kFirst);
    report->createReportIntegerProperty("i", {});
    report->addReportIntegerVariation("i", 0, -2147483647, false);
    report->createReportDoubleProperty("d", {});
    report->addReportDoubleVariation("d", 0, 0.1, false);
    report->createReportBooleanProperty("b", {});
    report->addReportBooleanVariation("b", 0, false, false);
  }
  EXPECT_EQ(cat({"i"}).output, "-2147483647");
  EXPECT_EQ(cat({"d"}).output, "0.1");
  EXPECT_EQ(cat({"b"}).output, "false");
}

TEST_F(CatTest, WritesStringsAsTheyAre) {
  // NOLINTNEXTLINE(misc-misleading-bidirectional): that is what it is about.
  const std::string value = "\x1b[31m\\ \0\r\n\n\t\u202eä"s;
  open(kFirst)->createReportStringProperty("raw", {});
  open(kFirst)->addReportStringVariation("raw", 0, value, false);
  EXPECT_EQ(cat({"raw"}).output, value);
}

TEST_F(CatTest, WritesNothingOfAnEmptyValue) {
  open(kFirst)->createReportStringProperty("nothing", {});
  open(kFirst)->addReportStringVariation("nothing", 0, "", false);
  addFile(*open(kFirst), "file", "", {10});
  for (const char* const name : {"nothing", "file"}) {
    const ToolResult result = cat({name});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
  }
}

TEST_F(CatTest, WritesFilesByteByByte) {
  std::mt19937 random(11);
  std::string content;
  for (int at = 0; at < 300'001; ++at) {
    content += static_cast<char>(random() % 256);
  }
  addFile(*open(kFirst), "log", content, {10});
  const ToolResult result = cat({"log"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.output == content);
}

TEST_F(CatTest, TakesNamesThatNeedCare) {
  for (const std::string name : {"", " ", "--level", "a/b", kHostile, "name\xff"}) {
    open(kFirst)->createReportStringProperty(name, {});
    open(kFirst)->addReportStringVariation(name, 0, "value", false);
    if (name == "name\xff") {
      continue;  // Is stored under another name.
    }
    EXPECT_EQ(run({"cat", kFirst, "--", name}).output, "value") << name;
  }
}

TEST_F(CatTest, TakesNegativeLevels) {
  open(kFirst)->addReportStringVariation("empty", -5, "negative", false);
  EXPECT_EQ(cat({"empty", "--level", "-5"}).output, "negative");
  expectRefused({"empty"}, 3, "\"empty\" has no variation to choose");
}

TEST_F(CatTest, RefusesLevelsAboveThePermittedOne) {
  expectRefused({"note", "--level", "30"}, 1,
                "level 30 of \"note\" is above the permitted level 20 (--all-levels writes it all "
                "the same)");
  expectRefused({"secrets"}, 1,
                "every variation of \"secrets\" is above the permitted level 20 (--all-levels "
                "writes it all the same)");
}

TEST_F(CatTest, WritesLevelsAboveThePermittedOneWhenAskedTo) {
  EXPECT_EQ(cat({"note", "--level", "30", "--all-levels"}).output, "secret");
  EXPECT_EQ(cat({"note", "--level", "0", "--all-levels"}).output, "brief");
  EXPECT_EQ(cat({"note", "--all-levels"}).output, "secret");
  EXPECT_EQ(cat({"secrets", "--all-levels"}).output, "all secret");
}

TEST_F(CatTest, RefusesFilesAboveThePermittedLevel) {
  addFile(*open(kFirst), "log", "secret", {21});
  expectRefused({"log", "--level", "21"}, 1,
                "level 21 of \"log\" is above the permitted level 20 (--all-levels writes it all "
                "the same)");
  EXPECT_EQ(cat({"log", "--all-levels"}).output, "secret");
}

TEST_F(CatTest, DoesNotFindWhatIsNotThere) {
  expectRefused({"gone"}, 3, "the report " + std::string(kFirst) + " has no property \"gone\"");
  expectRefused({"\x1b[1m"}, 3,
                "the report " + std::string(kFirst) + " has no property \"\\x1b[1m\"");
  expectRefused({"note", "--level", "10"}, 3, "\"note\" has no variation of level 10");
  expectRefused({"empty"}, 3, "\"empty\" has no variation to choose");
  expectRefused({"empty", "--all-levels"}, 3, "\"empty\" has no variation to choose");
}

TEST_F(CatTest, WantsAReportAndAName) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"cat"},
                                                    {"cat", kFirst},
                                                    {"cat", kFirst, "note", "more"},
                                                    {"cat", kFirst, "note", "--level", "x"}}) {
    EXPECT_EQ(run(arguments).status, 2);
  }
}

TEST_F(CatTest, RefusesReportsThatAreNotSound) {
  makeDamaged(kSecond);
  makeHalf(kThird);
  makeMismatched(kFourth, kFirst);
  const std::pair<const char*, const char*> reports[] = {
      {kSecond, "damaged"}, {kThird, "half-made"}, {kFourth, "mismatched"}};
  for (const auto& [id, what] : reports) {
    const ToolResult result = run({"cat", id, "note"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "kelp-diagnostics: the report "s + id + " is " + what + "\n");
  }
}

TEST_F(CatTest, RefusesAFileThatIsMissing) {
  addFile(*open(kFirst), "log", "x", {10});
  fs::remove(fileOf("log", 10));
  expectRefused({"log"}, 5, "the file \"contentfiles/log/10/log10.txt\" is missing");
}

TEST_F(CatTest, RefusesWhatIsNoRegularFile) {
  addFile(*open(kFirst), "log", "x", {10});
  const fs::path file = fileOf("log", 10);
  const std::string message = "the file \"contentfiles/log/10/log10.txt\" is not a regular file";
  fs::remove(file);
  fs::create_symlink("/etc/passwd", file);
  expectRefused({"log"}, 5, message);
  fs::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  expectRefused({"log"}, 5, message);
  fs::remove(file);
  fs::create_directory(file);
  expectRefused({"log"}, 5, message);
}

TEST_F(CatTest, RefusesAFileOutsideOfTheReport) {
  repository_.writeKey(kFirst, "report_contents",
                       R"([{"stable_id":"log","property_type":"FILE","variations":[)"
                       R"({"relative_path":"/etc/passwd","sensitivity_level":10}]}])");
  expectRefused({"log"}, 5, "the file \"/etc/passwd\" is outside of the report");
}

TEST_F(CatTest, RefusesAnotherNameOfWhatIsNotHandedOn) {
  addFile(*open(kFirst), "log", "secret", {10, 30});
  const std::string message =
      "the file \"contentfiles/log/10/log10.txt\" is another name of one that is not handed on";
  fs::remove(fileOf("log", 10));
  fs::create_hard_link(fileOf("log", 30), fileOf("log", 10));
  expectRefused({"log"}, 5, message);
  EXPECT_EQ(cat({"log", "--level", "10", "--all-levels"}).output, "secret");
  for (const char* part : {"lock", "metadata.db"}) {
    fs::remove(fileOf("log", 10));
    fs::create_hard_link(repository_.root() / kFirst / part, fileOf("log", 10));
    expectRefused({"log"}, 5, message);
    expectRefused({"log", "--level", "10", "--all-levels"}, 5, message);
  }
}

TEST_F(CatTest, SaysWhenTheOutputCannotBeWritten) {
  ChildProcess shell({"/bin/sh", "-c",
                      toolPath() + " -C " + repository_.root().native() + " cat " + kFirst +
                          " note 2>&1 >/dev/full; echo $?"});
  EXPECT_EQ(shell.receive(), "kelp-diagnostics: cannot write the output: No space left on device");
  EXPECT_EQ(shell.receive(), "1");
}

// A gibibyte that takes no room on the disk; whoever read it whole would need as much memory.
TEST_F(CatTest, DoesNotTakeTheWholeOfALargeFileIntoMemory) {
  constexpr off_t kSize = 1L << 30;
  addFile(*open(kFirst), "log", "x", {10});
  ASSERT_EQ(::truncate(fileOf("log", 10).c_str(), kSize), 0);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    const std::string program = toolPath();
    ::execl(program.c_str(), program.c_str(), "-C", repository_.root().c_str(), "cat", kFirst,
            "log", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  std::vector<char> piece(1 << 20);
  off_t size = 0;
  while (size < 64L << 20) {
    const ssize_t more = ::read(ends[0], piece.data(), piece.size());
    ASSERT_GT(more, 0);
    size += more;
  }
  std::istringstream status(readFile("/proc/" + std::to_string(child) + "/status"));
  long peak = 0;  // In KiB.
  for (std::string word; status >> word && peak == 0;) {
    if (word == "VmHWM:") {
      status >> peak;
    }
  }
  EXPECT_GT(peak, 0);
  EXPECT_LT(peak, 256 * 1024);
  ::close(ends[0]);  // And it ends, as any program does.
  int result = 0;
  ::waitpid(child, &result, 0);
  EXPECT_TRUE(WIFSIGNALED(result));
  EXPECT_EQ(WTERMSIG(result), SIGPIPE);
}

}  // namespace
}  // namespace KELP::Test
