#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/** Texts as people read and write them. */
namespace KELP::Tool {

/**
 * @p text on one line, safe for any terminal: control characters (of ASCII and of Latin-1's upper
 * half), line and paragraph separators, marks that change the direction of writing, and bytes that
 * are no UTF-8 are written as `\n`, `\t`, `\r`, `\xNN` (a byte) or `\u{N}`, and a backslash as
 * `\\`.
 */
[[nodiscard]] std::string escaped(std::string_view text);

/** @p text between quotation marks, as escaped(). */
[[nodiscard]] std::string inQuotes(std::string_view text);

/**
 * @p text as it may stand for one name in a path, on any system: control characters and the like
 * (as in escaped()), bytes that are no UTF-8, "/", "\\" and "%" are written byte by byte as "%NN".
 * Different texts stay different.
 */
[[nodiscard]] std::string percentEncoded(std::string_view text);

/** As escaped(), but of many lines: newlines, tabs and backslashes stay as they are. */
[[nodiscard]] std::string escapedLines(std::string_view text);

/** Whether @p text is UTF-8 throughout, and has no NUL. */
[[nodiscard]] bool isText(std::string_view text);

/** How many bytes of @p text there are without the character of UTF-8 that its end cuts off, if it
 *  does: for whoever reads a text in pieces. */
[[nodiscard]] std::size_t wholeCharacters(std::string_view text);

/** How many columns @p text, which has been escaped, takes on a terminal. */
[[nodiscard]] std::size_t columnsOf(std::string_view text);

/** The beginning of @p text, which has been escaped, in at most @p columns; "…" stands for the
 * rest. */
[[nodiscard]] std::string shortened(std::string_view text, std::size_t columns);

/** A number of bytes for people: "0 B", "999 B", "1.5 KiB", "12 MiB". */
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

/** The other way round: "4096", "10K", "1.5MiB", "2g" (powers of 1024). Throws a Failure of usage.
 */
[[nodiscard]] std::uint64_t parseSize(const std::string& text);

/** @p texts, each escaped, with ", " between them. */
[[nodiscard]] std::string joined(const std::vector<std::string>& texts);

/** "1 report", "2 reports". */
[[nodiscard]] std::string counted(std::size_t count, std::string_view noun);

}  // namespace KELP::Tool
