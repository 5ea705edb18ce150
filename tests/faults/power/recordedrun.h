#pragma once

#include "faults/power/filesystemmodel.h"
#include "faults/power/record.h"
#include "faults/power/runs.h"
#include "support/temporarydirectory.h"

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

/** Why no run can be recorded in this build; empty when it can. */
[[nodiscard]] std::string whyNoRecorder();

/** A run that another process has done under the recorder. */
class RecordedRun {
 public:
  /** Prepares the world and does the run in it. @param starter a command that runs another
   * one. Throws when the run fails. */
  explicit RecordedRun(const PowerRun& run, const std::vector<std::string>& starter = {});

  [[nodiscard]] const World& world() const { return world_; }
  /** What was there before. */
  [[nodiscard]] const FileTree& before() const { return before_; }
  [[nodiscard]] const std::vector<RecordedCall>& calls() const { return calls_; }

 private:
  const TemporaryDirectory directory_;
  World world_;
  FileTree before_;
  std::vector<RecordedCall> calls_;
};

}  // namespace KELP::Test
