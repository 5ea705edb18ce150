#pragma once

#include <json/value.h>

#include <optional>
#include <string>

/** The documents that `--json` prints. */
namespace KELP::Tool {

/** The version of the documents' form. A number that is raised when a member changes its meaning or
 *  goes away; new members may come at any time. */
constexpr int kJsonSchema = 1;

/** null when there is no value. */
template <typename T>
[[nodiscard]] Json::Value orNull(const std::optional<T>& value) {
  return value ? Json::Value(*value) : Json::Value();
}

/** An object with "schema" and, under @p name, the empty array @p name. */
[[nodiscard]] Json::Value jsonDocument(const char* name);

/** A time as timeText() writes it; null when there is none, or none of a year from 0 to 9999. */
[[nodiscard]] Json::Value jsonTime(const std::optional<long>& seconds, bool utc);

/** What printJson() prints. */
[[nodiscard]] std::string jsonText(const Json::Value& value);

/** Prints @p value, indented, with a line feed. Text that is no UTF-8 has U+FFFD in place of the
 * bytes that are none. */
void printJson(const Json::Value& value);

/** Prints @p value on one line and sees to it that it gets to the reader at once. */
void printJsonLine(const Json::Value& value);

}  // namespace KELP::Tool
