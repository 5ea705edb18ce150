#include "faults/power/recordedrun.h"

#include "support/childprocess.h"
#include "support/sanitizers.h"
#include "support/startedby.h"

#include <stdexcept>

namespace KELP::Test {

namespace fs = std::filesystem;

std::string whyNoRecorder() {
  return kHasAddressSanitizer || kHasThreadSanitizer
             ? "a sanitizer stands in for the same functions of the C library as the recorder"
             : "";
}

RecordedRun::RecordedRun(const PowerRun& run, const std::vector<std::string>& starter)
    : world_{fs::canonical(directory_.path()) / "world"} {
  fs::create_directory(world_.top);
  run.prepare(world_);
  before_ = FileTree::readFrom(world_.top);

  const fs::path record = directory_ / "record";
  ChildProcess actor(startedBy(
      starter, {"/usr/bin/env", std::string("LD_PRELOAD=") + POWER_RECORDER,
                "KELP_POWER_BASE=" + world_.top.string(), "KELP_POWER_RECORD=" + record.string(),
                POWER_ACTOR, run.name, world_.top.string()}));
  while (actor.receive()) {
  }
  if (actor.wait() != 0) throw std::runtime_error("the run failed");
  calls_ = readRecord(record);
}

}  // namespace KELP::Test
