#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/** What goes to the standard output and to the terminal. */
namespace KELP::Tool {

enum class Style { Plain, Bold, Dim, Red, Green, Yellow, Blue };

/** Sees to it that no file that is opened later takes the place of a standard descriptor that the
 *  caller left closed. Reading from such a one, or writing to it, goes on to fail. */
void keepStandardDescriptors();

/** Whether the standard output is a terminal. */
[[nodiscard]] bool outputIsTerminal();
/** Whether the standard error is a terminal. */
[[nodiscard]] bool errorsAreTerminal();
/** The columns of the terminal; 80 when nobody says. */
[[nodiscard]] std::size_t terminalColumns();

/** @p text in a style, when the standard output is a terminal and NO_COLOR is not set. */
[[nodiscard]] std::string styled(std::string_view text, Style style);

/** Writes to the standard output. Throws Interrupted{SIGPIPE} when nobody reads it any more, and a
 *  Failure when it cannot be written (a full disk). */
void print(std::string_view text);
/** Makes sure that all was written; throws as print(). To be called at the end, and by whoever
 * tells of events as they happen. */
void flushOutput();

/** Prints and flushes, and takes the line of progress away before: for what is told as it is done,
 * whatever comes next. */
void printNow(std::string_view text);

/** Forgets what was printed and not written yet. */
void discardOutput();

/** Writes "kelp-diagnostics: TEXT" to the standard error. */
void warn(std::string_view text);

}  // namespace KELP::Tool
