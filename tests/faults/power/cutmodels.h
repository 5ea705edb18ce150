#pragma once

#include "faults/power/filesystemmodel.h"

#include <ostream>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace KELP::Test {

/** What a file system may have made of the effects before the power went. */
using Fates = std::vector<Fate>;

/** What a file system promises beside what it was asked to sync. */
struct FileSystemPromises {
  /** What was appended to a file is there up to some byte, at most with zeros behind. Otherwise
   * each write may be there, cut, zeroed or missing, whatever became of the next. */
  bool appendsInOrder = true;
  /** What was done to names is there up to some instant, and whatever is synced takes with it all
   * that was done to names before. Otherwise only the sync of a directory says anything about its
   * names. */
  bool namesInOrder = true;
};

/**
 * A way in which file systems lose what was not synced. The effects are those before the cut, in
 * their order; each gets a fate.
 */
struct CutModel {
  std::string name;
  FileSystemPromises given;
  bool isSampled = false;  ///< Whether the random numbers decide.
  Fates (*fates)(std::span<const Effect> effects, std::mt19937& random) = nullptr;
};

std::ostream& operator<<(std::ostream& out, const CutModel& model);

[[nodiscard]] const std::vector<CutModel>& cutModels();

}  // namespace KELP::Test
