// What a process lets go of before it removes the files of a report, as its system calls show.

#include "integration/report/actor.h"
#include "support/strace.h"
#include "unit/diagnostic/reportfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;

class DeletionCalls : public ReportTest {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
  }

  /** The command that writes down, with the paths, which files a process unlocks, closes and
   *  removes. */
  [[nodiscard]] std::vector<std::string> tracer() const {
    // A leak checker is a tracer itself, and a process has room for one.
    return {kStrace,
            "-f",
            "-y",
            "-o",
            trace_,
            "-e",
            "trace=flock,close,unlinkat",
            "-E",
            "ASAN_OPTIONS=detect_leaks=0",
            "--"};
  }

  /** What was done to the report's lock file and metadata, oldest first, as "close lock". */
  [[nodiscard]] std::vector<std::string> callsOnFiles() const {
    std::istringstream trace(readFile(trace_));
    std::vector<std::string> calls;
    for (std::string line; std::getline(trace, line);) {
      const std::string call = line.substr(line.find_first_not_of("0123456789 "));
      const std::string name = call.substr(0, call.find('('));
      for (const char* file : {"lock", "metadata.db"}) {
        const bool meansIt = call.find("<" + (dir() / file).string() + ">") != std::string::npos ||
                             call.find(std::string("\"") + file + "\"") != std::string::npos;
        if (meansIt && (name != "flock" || call.find("LOCK_UN") != std::string::npos)) {
          calls.push_back(name + ' ' + file);
        }
      }
    }
    return calls;
  }

  const std::filesystem::path trace_ = directory_ / "trace";
};

TEST_F(DeletionCalls, UnlockAndCloseTheLockAndThenTheStoreBeforeAnyRemoval) {
  createAndClose();
  Actor actor(root_, tracer());
  ASSERT_EQ(actor.ask(std::string("open ") + kIdText), "ok");
  ASSERT_EQ(actor.ask("write-lock"), "ok");
  ASSERT_EQ(actor.ask("delete"), "ok");
  actor.process().closeInput();
  ASSERT_EQ(actor.process().wait(), 0);
  const std::vector<std::string> calls = callsOnFiles();
  // The first release ends the opening; files are removed in the order of the directory.
  ASSERT_EQ(calls.size(), 6U) << testing::PrintToString(calls);
  EXPECT_THAT(std::vector(calls.begin(), calls.begin() + 4),
              ElementsAre("flock lock", "flock lock", "close lock", "close metadata.db"));
  EXPECT_THAT(std::vector(calls.begin() + 4, calls.end()),
              testing::UnorderedElementsAre("unlinkat lock", "unlinkat metadata.db"));
}

}  // namespace
}  // namespace KELP::Diagnostic
