#pragma once

#include <optional>
#include <string>

/** Points in time, as seconds since the epoch, and spans of it. */
namespace KELP::Tool {

/** @p seconds in the form of RFC 3339, "2026-03-01T12:30:00+01:00", by the local zone or UTC ("Z");
 *  nothing for a year before 0 or after 9999, which that form has not. */
[[nodiscard]] std::optional<std::string> calendarText(long seconds, bool utc);

/** The same for people: a time that the form has not is the number itself. */
[[nodiscard]] std::string timeText(long seconds, bool utc);

/** A span for people: "42 s", "5 min", "3 h", "12 d". */
[[nodiscard]] std::string ageText(long seconds);

/** A span such as "90s", "10min" (or "10m"), "12h", "7d" or "2w" in seconds. Throws a Failure of
 *  usage. */
[[nodiscard]] long parseSpan(const std::string& text);

/** How long to wait, in milliseconds: as parseSpan(), or "250ms". */
[[nodiscard]] long parseWait(const std::string& text);

/** A point in time: RFC 3339 with or without zone and seconds, a date, "now", or a span, which
 * means that long ago. Without a zone it is local, or UTC with @p utc. Throws a Failure of usage.
 */
[[nodiscard]] long parseTime(const std::string& text, bool utc);

/** Now. */
[[nodiscard]] long currentTime();

}  // namespace KELP::Tool
