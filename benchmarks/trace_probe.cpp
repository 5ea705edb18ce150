#include "operations.h"
#include "probe.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

// trace_probe OPERATION PEER PROPERTIES REPORTS BYTES
//
// Does an operation twice, in a directory of its own under $TMPDIR, for strace to see. What is
// between two looks for kMark is one operation; the first is not typical where something is kept.

namespace KELP::Bench {
namespace {

constexpr const char* kMark = "/trace_probe/mark";
constexpr std::size_t kTimes = 2;

void mark() {
  (void)::access(kMark, F_OK);
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 5) {
    std::cerr << "usage: trace_probe OPERATION PEER PROPERTIES REPORTS BYTES\n";
    return 2;
  }
  const Amounts amounts{.reports = std::stoul(arguments[3]),
                        .properties = std::stoul(arguments[2]),
                        .bytes = std::stoul(arguments[4]),
                        .times = kTimes};
  const auto work = operation(arguments[0]).prepare(peerKind(arguments[1]), amounts);
  for (std::size_t i = 0; i < kTimes; ++i) {
    mark();
    work->once();
    mark();
    work->restore();
  }
  return 0;
}

}  // namespace
}  // namespace KELP::Bench

int main(int argc, char** argv) {
  return KELP::Bench::runProbe("trace_probe", argc, argv, KELP::Bench::run);
}
