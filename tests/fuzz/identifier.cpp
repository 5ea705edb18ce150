// Identifiers. The input is a text, up to its first NUL.

#include "fuzz/form.h"
#include "fuzz/fuzz.h"

#include <diagnostic/reportuuid.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace KELP::Fuzz {
namespace {

using Diagnostic::ReportUuid;

std::string inCase(std::string text, char from, char to) {
  for (char& character : text) {
    if (character >= from && character <= from + ('f' - 'a')) {
      character = static_cast<char>(character - from + to);
    }
  }
  return text;
}

/** Whether @p id has the bytes that @p text spells. */
bool hasBytesOf(const ReportUuid& id, std::string text) {
  std::erase(text, '-');
  for (std::size_t at = 0; at < sizeof(id); ++at) {
    if (id.raw()[at] != 16 * hexDigit(text[2 * at]) + hexDigit(text[2 * at + 1])) {
      return false;
    }
  }
  return true;
}

}  // namespace

void checkIdentifier(const std::string& input) {
  const std::string text = input.c_str();
  constexpr unsigned char kBefore[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  ReportUuid id(kBefore);
  const bool isParsed = id.parse(text.c_str());
  require(isParsed == isIdentifier(text), "only the text form of an identifier is parsed");
  if (!isParsed) {
    require(id == kBefore, "a failure leaves the value");
    return;
  }
  require(hasBytesOf(id, text), "the value is what the digits say");
  require(id.isNull() == (text.find_first_not_of("0-") == std::string::npos),
          "only zeros are null");

  char lower[ReportUuid::kTextBufferSize];
  char upper[ReportUuid::kTextBufferSize];
  id.unparseLower(lower);
  id.unparseUpper(upper);
  require(lower == inCase(text, 'A', 'a'), "lower case is the text in lower case");
  require(upper == inCase(text, 'a', 'A'), "upper case is the text in upper case");
  require(id.toString() == lower || id.toString() == upper, "the default case is one of both");

  for (const std::string& printed : {std::string(lower), std::string(upper), id.toString()}) {
    ReportUuid again;
    require(again.parse(printed.c_str()) && again == id, "what is printed parses as the same");
    require(std::hash<ReportUuid>()(again) == std::hash<ReportUuid>()(id),
            "equal values have equal hashes");
  }
}

}  // namespace KELP::Fuzz
