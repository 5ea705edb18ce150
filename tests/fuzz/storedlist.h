#pragma once

#include "fuzz/fuzz.h"
#include "support/logcapture.h"
#include "support/pointlocale.h"

#include <diagnostic/metadataproperty.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Fuzz {

/** Whether @p lines are what the library logs of the text @p input: one line when it is no list. */
inline bool isRightLog(const std::vector<Test::LogLine>& lines, const std::string& input,
                       bool isList) {
  if (isList) {
    return lines.empty();
  }
  // A line ends at a NUL within the text.
  const std::string beginning =
      "Failed to parse json data: " + std::string(input.c_str()) + ", error: ";
  return lines.size() == 1 && lines[0].priority == Test::kError &&
         lines[0].tag == "diagnosticdata" && lines[0].text.starts_with(beginning);
}

/** Reads a stored list, also in another locale, and looks at what is logged. */
template <typename Element>
std::optional<std::vector<Element>> readList(const std::string& input) {
  using Kind = Diagnostic::MetadataProperty<std::vector<Element>>;
  const Test::LogCapture log;
  const std::optional<std::vector<Element>> list = Kind("key", std::nullopt).unserialize(input);
  require(isRightLog(log.lines(), input, list.has_value()),
          "one line tells of a text that is no list");
  const std::vector<Element> other(1);
  const Test::PointLocale german(',', '.');
  const auto orOther = Kind("key", other).unserialize(input);
  require(orOther && *orOther == list.value_or(other),
          "a text reads the same in every locale, or gives the default");
  return list;
}

/** What is read from the text that @p list is written as. */
template <typename Element>
std::vector<Element> writtenAndRead(const std::vector<Element>& list) {
  const std::string text = Diagnostic::MetadataProperty<std::vector<Element>>::serialize(list);
  require(std::ranges::all_of(text, [](unsigned char byte) { return byte >= ' ' && byte <= 0x7f; }),
          "a list is written in ASCII, on one line");
  const std::optional<std::vector<Element>> again = readList<Element>(text);
  require(again.has_value(), "what is written is read");
  return *again;
}

}  // namespace KELP::Fuzz
