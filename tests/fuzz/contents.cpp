// The stored text of a report's contents. The input is the text.

#include "fuzz/form.h"
#include "fuzz/fuzz.h"
#include "fuzz/storedlist.h"

#include <diagnostic/reportcontentproperties.h>

#include <algorithm>
#include <string>
#include <vector>

namespace KELP::Fuzz {
namespace {

using Property = Diagnostic::DiagnosticReportContentProperties;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using Type = Diagnostic::DiagnosticReportContentPropertyTypes;
using Contents = std::vector<Property>;

bool isText(const Contents& contents) {
  return std::ranges::all_of(contents, [](const Property& property) {
    return isUtf8(property.stable_id) && isUtf8(property.media_type) &&
           std::ranges::all_of(property.tags, isUtf8) &&
           std::ranges::all_of(property.variations, [](const Variation& variation) {
             return isUtf8(variation.relative_path) && isUtf8(variation.string);
           });
  });
}

/** All but the texts. */
Contents withoutTexts(Contents contents) {
  for (Property& property : contents) {
    property.stable_id.clear();
    property.media_type.clear();
    property.tags.clear();
    for (Variation& variation : property.variations) {
      variation.relative_path.clear();
      variation.string.clear();
    }
  }
  return contents;
}

/** Whether @p variation has its value where @p type says, and nothing elsewhere. */
bool isOfType(const Variation& variation, Type type) {
  Variation expected;
  expected.sensitivity_level = variation.sensitivity_level;
  switch (type) {
    case Type::FILE:
      expected.relative_path = variation.relative_path;
      break;
    case Type::STRING:
      expected.string = variation.string;
      break;
    case Type::INTEGER:
      expected.integer = variation.integer;
      break;
    case Type::DOUBLE:
      expected.double_ = variation.double_;
      break;
    case Type::BOOLEAN:
      expected.boolean = variation.boolean;
      break;
    case Type::UNKNOWN:
      return false;
  }
  return variation == expected;
}

}  // namespace

void checkContents(const std::string& input) {
  const auto contents = readList<Property>(input);
  if (!contents) {
    return;
  }
  for (const Property& property : *contents) {
    for (const Variation& variation : property.variations) {
      require(isOfType(variation, property.property_type),
              "a variation has a value of its type alone");
    }
  }
  const Contents again = writtenAndRead(*contents);
  require(isText(again), "what is no UTF-8 is written as U+FFFD");
  require(withoutTexts(again) == withoutTexts(*contents),
          "numbers survive, whatever the texts are");
  require(again == *contents || !isText(*contents), "what is UTF-8 survives");
  require(writtenAndRead(again) == again, "what was written once does not change");
}

}  // namespace KELP::Fuzz
