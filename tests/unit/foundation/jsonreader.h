#pragma once

#include "support/logcapture.h"

#include <json/reader.h>
#include <json/value.h>

#include <memory>
#include <optional>
#include <string>

namespace KELP::Test {

/** What the JSON library itself makes of a text. */
struct JsonReading {
  std::optional<Json::Value> root;  ///< Empty when it is no JSON.
  std::string words;                ///< The library's own words on what is wrong.
};

/** Has the JSON library read @p text, terminating NUL included, with its usual settings. May throw
 *  what the library throws. */
[[nodiscard]] inline JsonReading readAsJson(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  JsonReading result;
  if (reader->parse(text.c_str(), text.c_str() + text.size() + 1, &root, &result.words)) {
    result.root = root;
  }
  return result;
}

/** The line for a stored list that cannot be read. A log line ends at a NUL within the text. */
[[nodiscard]] inline LogLine parseFailureLine(const std::string& text, const std::string& words) {
  return errorLine("Failed to parse json data: " + std::string(text.c_str()) + ", error: " + words);
}

}  // namespace KELP::Test
