// The stored text of the other kinds of metadata. The input is the text, for all of them.

#include "fuzz/form.h"
#include "fuzz/fuzz.h"
#include "fuzz/storedlist.h"

#include <diagnostic/metadataproperty.h>
#include <diagnostic/reportuuid.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KELP::Fuzz {
namespace {

using Diagnostic::MetadataProperty;
using Diagnostic::ReportUuid;

/** An optional "-" and digits, as many as there are; what follows is ignored. */
template <typename Integer>
std::optional<Integer> integerOf(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  text.remove_prefix(isNegative ? 1 : 0);
  const auto end = static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
  text = text.substr(0, end);
  if (text.empty()) {
    return std::nullopt;
  }
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  constexpr std::size_t kMostDigits = 19;
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<Integer>::max());
  std::uint64_t size = 0;
  for (const char digit : text.substr(0, kMostDigits)) {
    size = 10 * size + static_cast<std::uint64_t>(digit - '0');
  }
  if (text.size() > kMostDigits || size > kMost + (isNegative ? 1 : 0)) {
    return std::nullopt;
  }
  return static_cast<Integer>(isNegative ? 0 - size : size);
}

std::optional<bool> boolOf(const std::string& text) {
  return text == "1" || text == "0" ? std::optional(text == "1") : std::nullopt;
}

/** Whether @p text reads as @p value, or as the default without one, and what is written of a value
 * reads as the same. */
template <typename T>
void checkKind(const std::string& text, const std::optional<T>& value, T other) {
  const Test::LogCapture log;
  const MetadataProperty<T> kind("key", std::nullopt);
  require(kind.unserialize(text) == value, "a text reads as documented");
  require(MetadataProperty<T>("key", other).unserialize(text) == value.value_or(other),
          "a text of no value gives the default");
  if (value) {
    require(kind.unserialize(MetadataProperty<T>::serialize(*value)) == value,
            "what is written reads as the same");
  }
  require(log.lines().empty(), "only lists are told of");
}

void checkUuid(const std::string& text) {
  const MetadataProperty<ReportUuid> kind("report_id", std::nullopt);
  const std::optional<ReportUuid> id = kind.unserialize(text);
  require(id.has_value() == isIdentifier(text), "an identifier is 36 characters");
  if (id) {
    const std::string written = MetadataProperty<ReportUuid>::serialize(*id);
    require(isIdentifier(written), "an identifier is written as one");
    require(std::ranges::none_of(written, [](char c) { return c >= 'A' && c <= 'F'; }),
            "an identifier is written in lower case");
    require(kind.unserialize(written) == id, "what is written reads as the same");
  }
}

void checkTexts(const std::vector<std::string>& texts) {
  const std::vector<std::string> again = writtenAndRead(texts);
  require(again.size() == texts.size(), "no text is lost");
  for (std::size_t at = 0; at < texts.size(); ++at) {
    require(isUtf8(again[at]), "what is no UTF-8 is written as U+FFFD");
    require(again[at] == texts[at] || !isUtf8(texts[at]), "what is UTF-8 survives");
  }
  require(writtenAndRead(again) == again, "what was written once does not change");
}

}  // namespace

void checkValues(const std::string& input) {
  checkKind<int>(input, integerOf<int>(input), 7);
  checkKind<long>(input, integerOf<long>(input), 7);
  checkKind<bool>(input, boolOf(input), true);
  checkKind<std::string>(input, input, "other");
  checkUuid(input);
  if (const auto texts = readList<std::string>(input)) {
    checkTexts(*texts);
  }
}

}  // namespace KELP::Fuzz
