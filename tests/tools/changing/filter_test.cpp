#include "support/childprocess.h"
#include "tools/changing/changingtest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

class FilterTest : public ChangingTest {
 protected:
  FilterTest() { store("one\ntwo\nthree\n"); }

  void store(const std::string& content) const {
    const auto report = locked();
    static_cast<void>(report->createReportFileProperty("log", "", {}));
    writeFile(files_ / "f", content);
    EXPECT_TRUE(report->copyFileToFileProperty("log", 10, files_ / "f", "", true));
  }

  [[nodiscard]] fs::path file() const { return directory() / "contentfiles/log/10/log"; }

  [[nodiscard]] std::vector<std::string> filter(const std::vector<std::string>& command) const {
    std::vector<std::string> arguments{"filter", id_, "log", "10", "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
  }

  /** Expects that the command fails with this message and the stored file stays. */
  void refuseFilter(const std::vector<std::string>& command, const std::string& message) const {
    const std::string before = readFile(file());
    const ToolResult result = run(filter(command));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "kelp-diagnostics: " + message + "\n");
    EXPECT_EQ(readFile(file()), before);
    EXPECT_TRUE(fs::is_empty(directory() / "tmp"));
  }
};

TEST_F(FilterTest, ReplacesTheFileByWhatTheCommandWrites) {
  perform(filter({"tr", "a-z", "A-Z"}));
  EXPECT_EQ(readFile(file()), "ONE\nTWO\nTHREE\n");
  EXPECT_TRUE(fs::is_empty(directory() / "tmp"));
}

TEST_F(FilterTest, HandsArgumentsOnAsTheyAre) {
  std::vector<std::string> command{"printf", "%s|"};
  std::string expected;
  for (const std::string& text : difficultTexts()) {
    command.push_back(text);
    expected += text + "|";
  }
  perform(filter(command));
  EXPECT_EQ(readFile(file()), expected);
}

TEST_F(FilterTest, TakesFilesOfAnySize) {
  std::string content;
  for (unsigned line = 0; content.size() < 5'000'000; ++line) {
    content += std::to_string(line * 7919U) + '\0';
  }
  store(content);
  perform(filter({"cat"}));
  EXPECT_EQ(readFile(file()), content);
  // Writes more than a pipe holds before it reads, and reads all before it writes.
  perform(filter({"sh", "-c", "head -c 1000000 /dev/zero; cat"}));
  EXPECT_EQ(readFile(file()), std::string(1'000'000, '\0') + content);
  perform(filter({"sh", "-c", "n=$(wc -c); head -c 1000000 /dev/zero; printf $n"}));
  EXPECT_EQ(readFile(file()),
            std::string(1'000'000, '\0') + std::to_string(content.size() + 1'000'000));
}

TEST_F(FilterTest, TheCommandMayWriteFarMoreThanItReads) {
  std::string content;
  std::string expected;
  for (int at = 0; at < 3000; ++at) {
    const std::string line = std::string(100, 'x') + std::to_string(at);
    content += line + "\n";
    for (int copy = 0; copy < 20; ++copy) {
      expected += line;
    }
    expected += "\n";
  }
  store(content);
  perform(filter({"sed", "s/.*/&&&&&&&&&&&&&&&&&&&&/"}));
  EXPECT_EQ(readFile(file()), expected);
}

TEST_F(FilterTest, TheCommandNeedNotReadEverything) {
  store(std::string(3'000'000, 'x'));
  perform(filter({"head", "-c", "5"}));
  EXPECT_EQ(readFile(file()), "xxxxx");
  store(std::string(3'000'000, 'x'));
  perform(filter({"sh", "-c", "exec <&-; echo done"}));
  EXPECT_EQ(readFile(file()), "done\n");
}

TEST_F(FilterTest, TheResultMayBeEmpty) {
  perform(filter({"true"}));
  EXPECT_TRUE(fs::exists(file()));
  EXPECT_EQ(readFile(file()), "");
  perform(filter({"cat"}));
  EXPECT_EQ(readFile(file()), "");
}

TEST_F(FilterTest, KeepsTheFileWhenTheCommandFails) {
  refuseFilter({"sh", "-c", "cat; exit 3"}, "the command \"sh\" ended with status 3");
  refuseFilter({"sh", "-c", "cat; kill -KILL $$"},
               "the command \"sh\" was ended by signal 9 (Killed)");
  refuseFilter({"sh", "-c", "exec >&-; sleep 0.1; exit 4"},
               "the command \"sh\" ended with status 4");
}

TEST_F(FilterTest, SaysWhyACommandCannotBeRun) {
  refuseFilter({"no-such\n\033[31m"},
               "cannot run \"no-such\\n\\x1b[31m\": No such file or directory");
  refuseFilter({""}, "cannot run \"\": No such file or directory");
  refuseFilter({"/etc"}, "cannot run \"/etc\": Permission denied");
}

TEST_F(FilterTest, PassesTheCommandsErrorsOn) {
  const ToolResult result = run(filter({"sh", "-c", "echo oops >&2; cat"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "oops\n");
}

TEST_F(FilterTest, HandsOnNoOtherDescriptor) {
  const int inherited = ::open("/dev/null", O_RDONLY);  // NOLINT(android-cloexec-open)
  ASSERT_GE(inherited, 0);
  perform(filter({"ls", "/proc/self/fd"}));
  ::close(inherited);
  EXPECT_EQ(readFile(file()), "0\n1\n2\n3\n");  // The last is the directory that it lists.
}

TEST_F(FilterTest, TheCommandEndsByABrokenPipeAsUsual) {
  perform(filter({"sh", "-c", "yes | head -n 1; trap"}));
  EXPECT_EQ(readFile(file()), "y\n");
}

TEST_F(FilterTest, NeedsNoStandardDescriptors) {
  std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" <&- >&-", "sh", toolPath()};
  for (const std::string& argument : repository_.arguments(filter({"tr", "o", "0"}))) {
    command.push_back(argument);
  }
  EXPECT_EQ(ChildProcess(command).wait(), 0);
  EXPECT_EQ(readFile(file()), "0ne\ntw0\nthree\n");
}

TEST_F(FilterTest, FiltersFilesOnly) {
  ASSERT_TRUE(locked()->createReportStringProperty("text", {}));
  refuse({"filter", id_, "text", "0", "--", "cat"}, 2,
         "the property \"text\" holds no files; its type is string");
  refuse({"filter", id_, "none", "0", "--", "cat"}, 3, "there is no property \"none\"");
  refuse({"filter", id_, "log", "11", "--", "cat"}, 3,
         "the property \"log\" has no variation of level 11");
}

TEST_F(FilterTest, RefusesWhatIsNoFileAnyMore) {
  fs::remove(file());
  refuse(filter({"cat"}), 5, "the file \"contentfiles/log/10/log\" is missing");
  ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
  refuse(filter({"cat"}), 5, "the file \"contentfiles/log/10/log\" is irregular");
  fs::remove(file());
  fs::create_symlink("/etc/passwd", file());
  refuse(filter({"cat"}), 5, "the file \"contentfiles/log/10/log\" is irregular");
}

TEST_F(FilterTest, NeedsACommand) {
  const ToolResult result = run({"filter", id_, "log", "10", "--"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(readFile(file()), "one\ntwo\nthree\n");
}

}  // namespace
}  // namespace KELP::Test
