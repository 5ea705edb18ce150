#include "diagnostic/reportcontentsformat.h"

#include "diagnostic/jsontext.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using Type = DiagnosticReportContentPropertyTypes;
using Variation = DiagnosticReportContentVariations;
using Property = DiagnosticReportContentProperties;

/** How the value of one type of property stands in a variation's object. */
struct ValueForm {
  Type type;
  const char* member;
  Json::Value (*write)(const Variation& variation);
  /** Whether a member of this kind will do. */
  bool (*accepts)(const Json::Value& value);
  void (*read)(const Json::Value& value, Variation& variation);
  /** Takes the value over. False when it may not come back from its text as it is. */
  bool (*take)(Variation& from, Variation& variation);
};

/** Whether a text with @p text in it is sure to give it back. */
bool isPlain(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

template <auto member>
bool takeText(Variation& from, Variation& variation) {
  variation.*member = std::move(from.*member);
  return isPlain(variation.*member);
}

template <auto member>
bool takeWhole(Variation& from, Variation& variation) {
  variation.*member = from.*member;
  return true;
}

bool takeDouble(Variation& from, Variation& variation) {
  variation.double_ = from.double_;
  return std::isfinite(variation.double_);
}

// Json::Value::isInt() also takes a real number without a fraction, and refuses what needs more
// than 32 bits.
constexpr ValueForm kValueForms[] = {
    {Type::FILE, "relative_path",
     [](const Variation& variation) { return jsonString(variation.relative_path); },
     [](const Json::Value& value) { return value.isString(); },
     [](const Json::Value& value, Variation& out) { out.relative_path = value.asString(); },
     takeText<&Variation::relative_path>},
    {Type::STRING, "string",
     [](const Variation& variation) { return jsonString(variation.string); },
     [](const Json::Value& value) { return value.isString(); },
     [](const Json::Value& value, Variation& out) { out.string = value.asString(); },
     takeText<&Variation::string>},
    {Type::INTEGER, "integer",
     [](const Variation& variation) { return Json::Value(variation.integer); },
     [](const Json::Value& value) { return value.isInt(); },
     [](const Json::Value& value, Variation& out) { out.integer = value.asInt(); },
     takeWhole<&Variation::integer>},
    {Type::DOUBLE, "double",
     [](const Variation& variation) { return Json::Value(variation.double_); },
     [](const Json::Value& value) { return value.isNumeric(); },
     [](const Json::Value& value, Variation& out) { out.double_ = value.asDouble(); }, takeDouble},
    {Type::BOOLEAN, "boolean",
     [](const Variation& variation) { return Json::Value(variation.boolean); },
     [](const Json::Value& value) { return value.isBool(); },
     [](const Json::Value& value, Variation& out) { out.boolean = value.asBool(); },
     takeWhole<&Variation::boolean>},
};

/** The form of @p type; null when its variations have no value. */
const ValueForm* valueFormOf(Type type) {
  for (const ValueForm& form : kValueForms) {
    if (form.type == type) {
      return &form;
    }
  }
  return nullptr;
}

/** A member of @p object with a name that lives as long as the program, so that no copy is kept. */
Json::Value& member(Json::Value& object, const char* name) {
  return object[Json::StaticString(name)];
}

void writeVariation(const Variation& variation, const ValueForm* form, Json::Value& object) {
  if (form != nullptr) {
    member(object, form->member) = form->write(variation);
  }
  member(object, "sensitivity_level") = variation.sensitivity_level;
}

/** Makes of @p list, which is null, an array with an object that is yet to be filled. */
Json::Value& appendObject(Json::Value& list) {
  return list.append(Json::Value(Json::objectValue));
}

void writeProperty(const Property& property, Json::Value& object) {
  member(object, "stable_id") = jsonString(property.stable_id);
  // The names are literals, so they end with a NUL.
  member(object, "property_type") = Json::StaticString(
      DiagnosticReportContentPropertyTypesToString(property.property_type).data());
  member(object, "media_type") = jsonString(property.media_type);
  // Null, and an array only with the first element: readers take both.
  Json::Value& tags = member(object, "tags");
  for (const std::string& tag : property.tags) {
    tags.append(jsonString(tag));
  }
  Json::Value& variations = member(object, "variations");
  const ValueForm* const form = valueFormOf(property.property_type);
  for (const Variation& variation : property.variations) {
    writeVariation(variation, form, appendObject(variations));
  }
}

/** Whether @p value is written as an integer, without a fraction, and fits an `int`. */
bool isPlainInt(const Json::Value& value) {
  return (value.type() == Json::intValue || value.type() == Json::uintValue) && value.isInt();
}

std::optional<Variation> readVariation(const Json::Value& object, const ValueForm& form) {
  if (!object.isObject()) {
    return std::nullopt;
  }
  const Json::Value& level = object["sensitivity_level"];
  const Json::Value& value = object[form.member];
  if (!isPlainInt(level) || !form.accepts(value)) {
    return std::nullopt;
  }
  Variation variation;
  form.read(value, variation);
  variation.sensitivity_level = level.asInt();
  return variation;
}

std::vector<Variation> readVariations(const Json::Value& array, Type type) {
  std::vector<Variation> variations;
  const ValueForm* const form = valueFormOf(type);
  if (form == nullptr || !array.isArray()) {
    return variations;
  }
  for (const Json::Value& element : array) {
    if (std::optional<Variation> variation = readVariation(element, *form)) {
      variations.push_back(std::move(*variation));
    }
  }
  return variations;
}

std::set<std::string> readTags(const Json::Value& array) {
  std::set<std::string> tags;
  if (array.isArray()) {
    for (const Json::Value& element : array) {
      if (element.isString()) {
        tags.insert(element.asString());
      }
    }
  }
  return tags;
}

std::optional<Property> readProperty(const Json::Value& object) {
  if (!object.isObject()) {
    return std::nullopt;
  }
  const Json::Value& id = object["stable_id"];
  if (!id.isString()) {
    return std::nullopt;
  }
  Property property;
  property.stable_id = id.asString();
  if (const Json::Value& type = object["property_type"]; type.isString()) {
    property.property_type = StringToDiagnosticReportContentPropertyTypes(type.asString());
  }
  if (const Json::Value& mediaType = object["media_type"]; mediaType.isString()) {
    property.media_type = mediaType.asString();
  }
  property.tags = readTags(object["tags"]);
  property.variations = readVariations(object["variations"], property.property_type);
  return property;
}

bool makeAsStored(Variation& variation, const ValueForm& form) {
  Variation stored;
  stored.sensitivity_level = variation.sensitivity_level;
  const bool plain = form.take(variation, stored);
  variation = std::move(stored);
  return plain;
}

bool makeAsStored(Property& property) {
  if (!isPlain(property.stable_id) || !isPlain(property.media_type) ||
      !std::ranges::all_of(property.tags, isPlain)) {
    return false;
  }
  const ValueForm* const form = valueFormOf(property.property_type);
  if (form == nullptr) {
    property.property_type = Type::UNKNOWN;
    property.variations.clear();
    return true;
  }
  return std::ranges::all_of(property.variations,
                             [&](Variation& one) { return makeAsStored(one, *form); });
}

}  // namespace

std::string writeReportContents(const ReportContents& contents) {
  Json::Value root;
  for (const Property& property : contents) {
    writeProperty(property, appendObject(root));
  }
  return contents.empty() ? "[]" : writeJson(root);
}

std::optional<ReportContents> readReportContents(const std::string& text) {
  const std::optional<Json::Value> root = readJsonArray(text);
  if (!root) {
    return std::nullopt;
  }
  ReportContents contents;
  for (const Json::Value& element : *root) {
    if (std::optional<Property> property = readProperty(element)) {
      contents.push_back(std::move(*property));
    }
  }
  return contents;
}

bool makeAsStored(ReportContents& contents) {
  return std::ranges::all_of(contents, [](Property& one) { return makeAsStored(one); });
}

}  // namespace KELP::Diagnostic
