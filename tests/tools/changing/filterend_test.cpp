#include "support/childprocess.h"
#include "tools/changing/changingtest.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** A filter that is interrupted while its command runs. */
class FilterEndTest : public ChangingTest {
 protected:
  FilterEndTest() {
    const auto report = locked();
    EXPECT_TRUE(report->createReportFileProperty("log", "", {}));
    writeFile(files_ / "f", "content");
    EXPECT_TRUE(report->copyFileToFileProperty("log", 0, files_ / "f", "", true));
    EXPECT_EQ(::mkfifo(pipe_.c_str(), 0600), 0);
    descriptor_ = ::open(pipe_.c_str(), O_RDWR | O_CLOEXEC);
  }
  ~FilterEndTest() override { ::close(descriptor_); }

  /** Runs a shell's @p script that writes its process id to "$0". */
  [[nodiscard]] std::vector<std::string> filter(const std::string& script) const {
    std::vector<std::string> command = repository_.arguments(
        {"filter", id_, "log", "0", "--", "sh", "-c", script, pipe_.native()});
    command.insert(command.begin(), toolPath());
    return command;
  }

  /** The process id that the script writes. */
  [[nodiscard]] pid_t commandId() const {
    pollfd ready{descriptor_, POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 30'000), 1);
    char text[32]{};
    EXPECT_GT(::read(descriptor_, text, sizeof(text) - 1), 0);
    return std::atoi(text);
  }

  /** Interrupts the filter and expects that everything is as it was. */
  void interrupt(const std::string& script, int signal) const {
    ChildProcess tool(filter(script));
    const pid_t command = commandId();
    ASSERT_GT(command, 0);
    tool.signal(signal);
    EXPECT_EQ(tool.wait(), 128 + signal);
    EXPECT_EQ(::kill(command, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(readFile(directory() / "contentfiles/log/0/log"), "content");
    EXPECT_TRUE(fs::is_empty(directory() / "tmp"));
    EXPECT_TRUE(report()->acquireWriteLock(false));
  }

  fs::path pipe_ = files_ / "pipe";
  int descriptor_ = -1;
};

TEST_F(FilterEndTest, EndsTheCommandAndKeepsTheFile) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    interrupt("echo output; echo $$ > \"$0\"; exec sleep 600", signal);
  }
}

TEST_F(FilterEndTest, WaitsForACommandThatHasClosedItsOutput) {
  interrupt("exec >&-; echo $$ > \"$0\"; exec sleep 600", SIGINT);
}

// Takes two seconds, which such a command is given.
TEST_F(FilterEndTest, KillsACommandThatDoesNotListen) {
  interrupt("trap '' TERM INT; echo $$ > \"$0\"; exec sleep 600", SIGINT);
}

TEST_F(FilterEndTest, AnInterruptionThatTheCommandTakesForItsEndIsOne) {
  // The command ends well, and has the program interrupted before.
  ChildProcess tool(filter("cat; kill -INT $PPID; exit 0"));
  EXPECT_EQ(tool.wait(), 128 + SIGINT);
  EXPECT_EQ(readFile(directory() / "contentfiles/log/0/log"), "content");
}

TEST_F(FilterEndTest, HoldsTheLockMeanwhile) {
  ChildProcess tool(filter("echo $$ > \"$0\"; exec sleep 600"));
  ASSERT_GT(commandId(), 0);
  EXPECT_EQ(run({"mark", id_, "creation"}).status, 4);
  tool.signal(SIGTERM);
  EXPECT_EQ(tool.wait(), 128 + SIGTERM);
  perform({"mark", id_, "creation"});
}

}  // namespace
}  // namespace KELP::Test
