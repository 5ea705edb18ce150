#pragma once

#include "check/subject.h"

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Tool {

/** Something in the place of scratch files. */
struct Temporary {
  std::filesystem::path path;
  std::string objection;  ///< Why it must not be removed; empty when there is no reason.
};

/**
 * What lies in "tmp", and the beginning of a new store. Whoever fills a scratch file need not hold
 * the report's lock, so what somebody wrote lately may be in use.
 */
[[nodiscard]] std::vector<Temporary> temporariesOf(const Subject& subject);

/** Whether a process has @p path open, or something below it, as far as the system tells this one.
 * Throws a std::system_error when what is below cannot be looked at. */
[[nodiscard]] bool isOpenSomewhere(const std::filesystem::path& path);

}  // namespace KELP::Tool
