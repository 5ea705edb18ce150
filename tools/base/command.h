#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Tool {

/**
 * Runs a program, which is looked for in PATH, with all of @p in at its standard input, and writes
 * its standard output to @p out. Its standard error is this process's; no other descriptor gets to
 * it. It need not read everything.
 *
 * Throws a Failure when it cannot be run, when it ends by a signal or with another status than 0,
 * and when the streams cannot be read or written; Interrupted when a signal comes. The program has
 * ended in every case.
 *
 * @param command the program and its arguments; at least one.
 */
void runFilter(const std::vector<std::string>& command, std::istream& in, std::ostream& out);

}  // namespace KELP::Tool
