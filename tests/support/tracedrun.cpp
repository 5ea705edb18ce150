#include "support/tracedrun.h"

#include "support/childprocess.h"
#include "support/sanitizers.h"
#include "support/startedby.h"
#include "support/strace.h"

#include <signal.h>

#include <map>
#include <stdexcept>

namespace KELP::Test {
namespace {

/** The process, or thread, that says @p word. */
std::string whoSays(const std::vector<TraceLine>& lines, const std::string& word) {
  for (const TraceLine& line : lines) {
    if (line.says(word)) return line.process;
  }
  throw std::runtime_error("the program never said " + word);
}

}  // namespace

std::vector<CountedCall> callsToKillAt(const std::vector<CountedCall>& calls) {
  constexpr std::size_t kStep = kHasAddressSanitizer || kHasThreadSanitizer ? 3 : 1;
  std::vector<CountedCall> chosen;
  for (std::size_t i = 0; i < calls.size(); i += kStep) {
    chosen.push_back(calls[i]);
  }
  return chosen;
}

std::vector<CountedCall> TracedRun::calls(const std::filesystem::path& traceFile) const {
  ChildProcess program(traced({"-o", traceFile.string()}));
  if (program.wait() != 0) {
    throw std::runtime_error("the program failed");
  }
  const std::vector<TraceLine> lines = readTrace(traceFile);
  const std::string process = whoSays(lines, "begin");
  std::map<std::string, int> counts;
  std::vector<CountedCall> calls;
  bool begun = false;
  for (const TraceLine& line : lines) {
    const std::string name = line.name();
    if (line.process != process || name.empty()) continue;
    const int count = ++counts[name];
    if (begun) calls.push_back({name, count});
    begun = begun || line.says("begin");
    if (line.says("end")) return calls;
  }
  throw std::runtime_error("the program never said end");
}

std::string TracedRun::lastWordsWhenKilledAt(const CountedCall& call) const {
  ChildProcess program(
      traced({"-o", "/dev/null", "-e", "trace=" + call.name, "-e",
              "inject=" + call.name + ":signal=KILL:when=" + std::to_string(call.count)}));
  std::string last;
  while (const auto line = program.receive()) {
    last = *line;
  }
  return program.wait() == 128 + SIGKILL ? last : "";
}

std::vector<std::string> TracedRun::traced(const std::vector<std::string>& options) const {
  return startedBy(tracer(options), command_);
}

}  // namespace KELP::Test
