// The recorder misses nothing: what it wrote down of a run is what the kernel was asked for.

#include "faults/power/recordedrun.h"
#include "support/strace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

/** The calls that leave names and contents alone; of some, owners and modes are changed. */
const std::set<std::string>& harmlessCalls() {
  static const std::set<std::string> all{
      "access", "close",  "execve",     "faccessat", "faccessat2", "fadvise64",  "fchmod",
      "fchown", "fcntl",  "flock",      "fstat",     "getcwd",     "getdents64", "lseek",
      "lstat",  "mmap",   "newfstatat", "pread64",   "read",       "readlink",   "readlinkat",
      "stat",   "statfs", "statx",      "fstatfs",   "munmap",
  };
  return all;
}

/** The name of a call that changed something below @p base, as one line of a trace says; or
 * nothing. */
std::string changingCall(const TraceLine& line, const std::string& base) {
  const auto has = [&](const char* text) { return line.call.find(text) != std::string::npos; };
  const std::string name = line.name();
  const bool opensOnly = name == "openat" && !has("O_CREAT") && !has("O_TRUNC");
  return !has(base.c_str()) || has(" = -1 ") || opensOnly || harmlessCalls().contains(name) ||
                 has("(deleted)")
             ? ""
             : name;
}

class Recorder : public testing::TestWithParam<PowerRun> {};

TEST_P(Recorder, WritesDownAllThatChangesFiles) {
  if (const std::string why = whyNoRecorder(); !why.empty()) GTEST_SKIP() << why;
  if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
  const TemporaryDirectory directory;
  const std::string traceFile = directory / "trace";
  const RecordedRun run(GetParam(), tracer({"-y", "-s", "0", "-o", traceFile}));

  std::vector<std::string> recorded;
  for (const RecordedCall& call : run.calls()) {
    if (call.effect != "say") recorded.push_back(call.call);
  }
  std::vector<std::string> traced;
  for (const TraceLine& line : readTrace(traceFile)) {
    const std::string call = changingCall(line, run.world().top);
    if (!call.empty()) traced.push_back(call);
  }
  EXPECT_EQ(recorded, traced);
  EXPECT_GE(recorded.size(), 4U);
}

TEST_P(Recorder, ComesToWhatIsOnDisk) {
  if (const std::string why = whyNoRecorder(); !why.empty()) GTEST_SKIP() << why;
  const RecordedRun run(GetParam());
  FileSystemModel model(run.before());
  static_cast<void>(model.perform(run.calls(), run.world().top));
  EXPECT_TRUE(model.tree() == FileTree::readFrom(run.world().top));
}

INSTANTIATE_TEST_SUITE_P(All, Recorder, testing::ValuesIn(powerRuns()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Test
