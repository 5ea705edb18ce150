#pragma once

#include <json/value.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {

/** What a run of kelp-diagnostics came to. */
struct ToolResult {
  int status = -1;     ///< Exit status, or 128 plus the signal that ended it.
  std::string output;  ///< Standard output; on a terminal, all that appeared there.
  std::string errors;  ///< Standard error; empty on a terminal.

  /** The standard output as one JSON document; fails the test when it is none. */
  [[nodiscard]] Json::Value json() const;
  /** The lines of the standard output. */
  [[nodiscard]] std::vector<std::string> lines() const;
};

/** How kelp-diagnostics is run; the environment is LC_ALL=C.UTF-8, TZ=UTC, PATH and what is added.
 */
struct ToolSetting {
  std::string input;    ///< Standard input, or what is typed.
  std::string awaited;  ///< The input only comes when this has been printed.
  std::map<std::string, std::string> environment;
  std::filesystem::path directory;  ///< Working directory; this one when empty.
  std::filesystem::path errors;     ///< A file that gets the standard error, when not empty.
  bool detached = false;            ///< Without a terminal of the process (/dev/tty).
};

/** The program's path. */
[[nodiscard]] std::string toolPath();

/** Runs it to its end, with pipes. A run of more than 60 seconds is killed, and fails the test. */
[[nodiscard]] ToolResult runTool(const std::vector<std::string>& arguments,
                                 const ToolSetting& setting = {});

/** Runs it to its end on a pseudo-terminal of @p columns by 24, where the input is typed. */
[[nodiscard]] ToolResult runToolOnTerminal(const std::vector<std::string>& arguments,
                                           const ToolSetting& setting = {},
                                           unsigned short columns = 200);

}  // namespace KELP::Test
