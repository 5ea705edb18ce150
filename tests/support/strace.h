#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

/** Why nothing can be traced here; empty when it can. */
[[nodiscard]] std::string whyNoStrace();

/** What starts a program, with the processes that it starts, under strace with @p options. */
[[nodiscard]] std::vector<std::string> tracer(const std::vector<std::string>& options);

/** A line of a trace: who called what. */
struct TraceLine {
  std::string process;
  std::string call;  ///< As in `close(3</tmp/file>) = 0`.

  /** The name of the call that begins here; empty for a line about something else. */
  [[nodiscard]] std::string name() const;
  /** Whether @p word and a newline are written to the standard output. */
  [[nodiscard]] bool says(const std::string& word) const;
};

/** What strace wrote to a file. */
[[nodiscard]] std::vector<TraceLine> readTrace(const std::filesystem::path& file);

}  // namespace KELP::Test
