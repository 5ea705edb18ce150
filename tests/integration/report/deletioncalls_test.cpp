// What a process lets go of before it removes the files of a report, as its system calls show.

#include "integration/report/actor.h"
#include "support/strace.h"
#include "unit/diagnostic/reportfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
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
  [[nodiscard]] std::vector<std::string> starter() const {
    return tracer({"-y", "-o", trace_, "-e", "trace=flock,close,unlinkat"});
  }

  /** What was done to the report's lock file and metadata, oldest first, as "close lock". */
  [[nodiscard]] std::vector<std::string> callsOnFiles() const {
    std::vector<std::string> calls;
    for (const TraceLine& line : readTrace(trace_)) {
      const auto has = [&](const std::string& text) {
        return line.call.find(text) != std::string::npos;
      };
      for (const std::string file : {"lock", "metadata.db"}) {
        const bool meansIt = has("<" + (dir() / file).string() + ">") || has('"' + file + '"');
        if (meansIt && (line.name() != "flock" || has("LOCK_UN"))) {
          calls.push_back(line.name() + ' ' + file);
        }
      }
    }
    return calls;
  }

  const std::filesystem::path trace_ = directory_ / "trace";
};

TEST_F(DeletionCalls, UnlockAndCloseTheLockAndThenTheStoreBeforeAnyRemoval) {
  createAndClose();
  Actor actor(root_, starter());
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
