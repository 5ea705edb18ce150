#include "support/strace.h"

#include "support/childprocess.h"
#include "support/startedby.h"
#include "support/temporarydirectory.h"

#include <unistd.h>

#include <sstream>

namespace KELP::Test {
namespace {

constexpr const char* kStrace = "/usr/bin/strace";

}  // namespace

std::string whyNoStrace() {
  if (::access(kStrace, X_OK) != 0) {
    return "strace is not installed";
  }
  ChildProcess probe(startedBy(tracer({"-o", "/dev/null"}), {"/bin/true"}));
  return probe.wait() == 0 ? "" : "strace may not trace here";
}

std::vector<std::string> tracer(const std::vector<std::string>& options) {
  // A leak checker is a tracer itself, and a process has room for one.
  std::vector<std::string> command{kStrace, "-f", "-E", "ASAN_OPTIONS=detect_leaks=0"};
  command.insert(command.end(), options.begin(), options.end());
  command.emplace_back("--");
  return command;
}

std::string TraceLine::name() const {
  const std::string name = call.substr(0, call.find('('));
  const bool isName =
      name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
  return isName && name.size() < call.size() ? name : "";
}

bool TraceLine::says(const std::string& word) const {
  return call.starts_with("write(1, \"" + word + "\\n\"");
}

std::vector<TraceLine> readTrace(const std::filesystem::path& file) {
  std::istringstream text(readFile(file));
  std::vector<TraceLine> lines;
  for (TraceLine line; text >> line.process >> std::ws && std::getline(text, line.call);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace KELP::Test
