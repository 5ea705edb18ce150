#include "probe.h"
#include "sampledata.h"

#include <iostream>
#include <string>
#include <vector>

// process_probe create PEER ROOT TIMES
// process_probe set PEER ROOT TIMES ID
//
// One of several processes that use the same root: creates reports, or changes one of its own.
// It prints a line when it is ready, begins when it gets one, and prints another when it is done.

namespace KELP::Bench {
namespace {

void create(Peer& peer, std::size_t times) {
  const std::vector<ReportUuid> ids = randomIds(times);
  waitForGo();
  for (const ReportUuid& id : ids) {
    peer.create(id);
  }
}

void set(Peer& peer, std::size_t times, const std::string& name) {
  ReportUuid id;
  require(id.parse(name.c_str()), "reading an identifier");
  const auto report = peer.open(id, Access::Write);
  report->setDescription(kDescription);
  waitForGo();
  for (std::size_t i = 0; i < times; ++i) {
    report->setDescription(kDescription);
  }
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() < 4) {
    std::cerr << "usage: process_probe create|set PEER ROOT TIMES [ID]\n";
    return 2;
  }
  const auto peer = peerKind(arguments[1]).make(arguments[2]);
  const std::size_t times = std::stoul(arguments[3]);
  if (arguments[0] == "create") {
    create(*peer, times);
  } else {
    set(*peer, times, arguments.at(4));
  }
  std::cout << "done" << std::endl;
  return 0;
}

}  // namespace
}  // namespace KELP::Bench

int main(int argc, char** argv) {
  return KELP::Bench::runProbe("process_probe", argc, argv, KELP::Bench::run);
}
