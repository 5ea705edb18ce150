#pragma once

#include <json/value.h>

#include <optional>
#include <string>

/** The stored JSON texts: compact arrays, read and written by jsoncpp. */
namespace KELP::Diagnostic {

/**
 * A value for @p text.
 *
 * @throws std::length_error for more than 256 MiB. No store takes so much, and the JSON library
 *         counts by 32 bits.
 */
[[nodiscard]] Json::Value jsonString(const std::string& text);

/** The compact text of @p array. */
[[nodiscard]] std::string writeJson(const Json::Value& array);

/**
 * The array that @p text holds. A NUL ends the text.
 *
 * @return empty, with the log line "Failed to parse json data: %s, error: %s" (the text and the
 *         reader's own words), when it holds none.
 */
[[nodiscard]] std::optional<Json::Value> readJsonArray(const std::string& text);

}  // namespace KELP::Diagnostic
