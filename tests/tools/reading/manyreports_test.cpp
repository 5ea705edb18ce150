// 10,000 reports: reading them is quick, shows how far it has come, and can be ended.

#include "support/childprocess.h"
#include "support/descriptors.h"
#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::size_t kMany = 10'000;

class ManyReports : public testing::Test {
 protected:
  // Made once, since that is what takes long. One of them is damaged and one is locked.
  static void SetUpTestSuite() {
    const TemporaryInMemory inMemory;
    shared = std::make_unique<Repository>();
    sharedIds = shared->createMany(kMany);
    Diagnostic::ReportUuid id;
    ASSERT_TRUE(id.parse(sharedIds[1].c_str()));
    sharedLock = shared->data().openReport(id);
    ASSERT_TRUE(sharedLock && sharedLock->acquireWriteLock(false));
    writeFile(shared->root() / sharedIds.back() / "metadata.db", "damaged");
  }
  static void TearDownTestSuite() {
    sharedLock.reset();
    shared.reset();
  }

  /** "PROGRAM -C ROOT ARGUMENTS" for a shell. */
  static std::string command(const std::string& arguments) {
    return toolPath() + " -C " + shared->root().native() + " " + arguments;
  }

  static std::unique_ptr<Repository> shared;
  static std::vector<std::string> sharedIds;
  static std::unique_ptr<Diagnostic::DiagnosticReport> sharedLock;
};

std::unique_ptr<Repository> ManyReports::shared;
std::vector<std::string> ManyReports::sharedIds;
std::unique_ptr<Diagnostic::DiagnosticReport> ManyReports::sharedLock;

TEST_F(ManyReports, AreListedInOrderAndInTime) {
  const auto begin = std::chrono::steady_clock::now();
  const ToolResult result = runTool(shared->arguments({"list", "--no-legend"}));
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  const std::vector<std::string> lines = result.lines();
  ASSERT_THAT(lines, SizeIs(kMany));
  for (std::size_t at = 0; at < kMany; ++at) {
    EXPECT_THAT(lines[at], StartsWith(sharedIds[at]));
  }
  EXPECT_THAT(lines[1], testing::EndsWith("  write"));
  EXPECT_THAT(lines.back(), HasSubstr("  damaged  "));
  // A second or less when nothing else runs; opening each report would take far longer.
  EXPECT_LT(took, std::chrono::seconds(30));
  RecordProperty("milliseconds", static_cast<int>(took / std::chrono::milliseconds(1)));
}

TEST_F(ManyReports, AreListedAsADocument) {
  const ToolResult result = runTool(shared->arguments({"list", "--json"}));
  EXPECT_EQ(result.status, 0);
  const Json::Value reports = result.json()["reports"];
  ASSERT_EQ(reports.size(), kMany);
  EXPECT_EQ(reports[0]["id"], sharedIds[0]);
}

TEST_F(ManyReports, AreCounted) {
  const ToolResult result = runTool(shared->arguments({"stats", "--json"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.json()["stats"]["reports"], static_cast<int>(kMany));
}

TEST_F(ManyReports, EndCleanlyWhenNobodyReadsOn) {
  const TemporaryDirectory directory;
  const fs::path errors = directory / "errors";
  ChildProcess pipeline({"/bin/bash", "-c",
                         command("list --no-legend") + " 2>" + errors.native() +
                             " | head -1; echo \"status ${PIPESTATUS[0]}\""});
  EXPECT_THAT(pipeline.receive().value_or(""), StartsWith(sharedIds[0]));
  EXPECT_EQ(pipeline.receive(), "status " + std::to_string(128 + SIGPIPE));
  EXPECT_EQ(pipeline.receive(), std::nullopt);
  EXPECT_EQ(readFile(errors), "");
}

/** Whether the process has a report's store open. */
bool isReading(pid_t process) {
  const auto open = descriptorsOf(std::to_string(process));
  return std::ranges::any_of(open,
                             [](const auto& one) { return one.second.ends_with("/metadata.db"); });
}

/** Waits until @p isSo of the process; false when it takes too long. */
bool waitUntil(bool (*isSo)(pid_t), pid_t process) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!isSo(process)) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

/** What "list" writes to a terminal when it is held up for 350 ms in the middle of reading. */
std::string listWithPause(const fs::path& root) {
  const std::string program = toolPath();
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    ::execl(program.c_str(), program.c_str(), "-C", root.c_str(), "list", "-n", "1", nullptr);
    ::_exit(127);
  }
  EXPECT_TRUE(waitUntil(isReading, child));
  ::kill(child, SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(350));
  ::kill(child, SIGCONT);
  std::string output;
  char piece[4096];
  for (ssize_t size = 0; (size = ::read(terminal, piece, sizeof(piece))) > 0;) {
    output.append(piece, static_cast<std::size_t>(size));
  }
  ::close(terminal);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return output;
}

// It is shown when the work takes longer than a moment.
TEST_F(ManyReports, ShowProgressOnATerminal) {
  constexpr int kAttempts = 20;  // The pause may come when nearly all is read.
  std::string output;
  for (int attempt = 0; attempt < kAttempts && output.find("Reading") == std::string::npos;
       ++attempt) {
    output = listWithPause(shared->root());
  }
  EXPECT_THAT(output, testing::ContainsRegex("^\rReading reports: [0-9]+ of 10000 \\([0-9]+ %\\)"));
  // The line is taken away before the list comes.
  EXPECT_THAT(output, HasSubstr("\r\x1b[K\x1b[1mID"));
}

/** Whether the process waits in the call `ppoll`: after its first output for room for more. */
bool isWaiting(pid_t process) {
  return readFile("/proc/" + std::to_string(process) + "/syscall")
      .starts_with(std::to_string(SYS_ppoll) + " ");
}

// It is blocked in the middle of its output, because nobody reads that.
TEST_F(ManyReports, EndBySignal) {
  const std::string complete = runTool(shared->arguments({"list"})).output;
  for (const int signal : {SIGINT, SIGTERM}) {
    int out[2];
    int errors[2];
    ASSERT_EQ(::pipe2(out, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(errors, O_CLOEXEC), 0);
    const std::string program = toolPath();
    const pid_t child = ::fork();
    if (child == 0) {
      ::dup2(out[1], STDOUT_FILENO);
      ::dup2(errors[1], STDERR_FILENO);
      ::execle(program.c_str(), program.c_str(), "-C", shared->root().c_str(), "list", nullptr,
               std::vector<const char*>{"LC_ALL=C.UTF-8", "TZ=UTC", nullptr}.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(errors[1]);
    EXPECT_TRUE(waitUntil(isWaiting, child));
    ::kill(child, signal);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
    const std::string printed = readFile("/proc/self/fd/" + std::to_string(out[0]));
    EXPECT_NE(printed, "");
    EXPECT_TRUE(complete.starts_with(printed));
    EXPECT_LT(printed.size(), complete.size());
    EXPECT_EQ(readFile("/proc/self/fd/" + std::to_string(errors[0])), "");
    ::close(out[0]);
    ::close(errors[0]);
  }
}

}  // namespace
}  // namespace KELP::Test
