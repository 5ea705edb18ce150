#include "diagnostic/reportcontentsformat.h"

#include "diagnostic/jsontext.h"

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
};

// Json::Value::isInt() also takes a real number without a fraction, and refuses what needs more
// than 32 bits.
constexpr ValueForm kValueForms[] = {
    {Type::FILE, "relative_path",
     [](const Variation& variation) { return Json::Value(variation.relative_path); },
     [](const Json::Value& value) { return value.isString(); },
     [](const Json::Value& value, Variation& out) { out.relative_path = value.asString(); }},
    {Type::STRING, "string",
     [](const Variation& variation) { return Json::Value(variation.string); },
     [](const Json::Value& value) { return value.isString(); },
     [](const Json::Value& value, Variation& out) { out.string = value.asString(); }},
    {Type::INTEGER, "integer",
     [](const Variation& variation) { return Json::Value(variation.integer); },
     [](const Json::Value& value) { return value.isInt(); },
     [](const Json::Value& value, Variation& out) { out.integer = value.asInt(); }},
    {Type::DOUBLE, "double",
     [](const Variation& variation) { return Json::Value(variation.double_); },
     [](const Json::Value& value) { return value.isNumeric(); },
     [](const Json::Value& value, Variation& out) { out.double_ = value.asDouble(); }},
    {Type::BOOLEAN, "boolean",
     [](const Variation& variation) { return Json::Value(variation.boolean); },
     [](const Json::Value& value) { return value.isBool(); },
     [](const Json::Value& value, Variation& out) { out.boolean = value.asBool(); }},
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

Json::Value writeVariation(const Variation& variation, const ValueForm* form) {
  Json::Value object(Json::objectValue);
  if (form != nullptr) {
    object[form->member] = form->write(variation);
  }
  object["sensitivity_level"] = variation.sensitivity_level;
  return object;
}

Json::Value writeProperty(const Property& property) {
  Json::Value tags;  // Null, and an array only with the first element: readers take both.
  for (const std::string& tag : property.tags) {
    tags.append(tag);
  }
  Json::Value variations;
  const ValueForm* const form = valueFormOf(property.property_type);
  for (const Variation& variation : property.variations) {
    variations.append(writeVariation(variation, form));
  }

  Json::Value object(Json::objectValue);
  object["stable_id"] = property.stable_id;
  object["property_type"] =
      std::string(DiagnosticReportContentPropertyTypesToString(property.property_type));
  object["media_type"] = property.media_type;
  object["tags"] = std::move(tags);
  object["variations"] = std::move(variations);
  return object;
}

/** Whether @p value is written as an integer, without a fraction, and fits an `int`. */
bool isPlainInt(const Json::Value& value) {
  return (value.type() == Json::intValue || value.type() == Json::uintValue) && value.isInt();
}

std::optional<Variation> readVariation(const Json::Value& object, const ValueForm& form) {
  if (!object.isObject() || !isPlainInt(object["sensitivity_level"]) ||
      !form.accepts(object[form.member])) {
    return std::nullopt;
  }
  Variation variation;
  form.read(object[form.member], variation);
  variation.sensitivity_level = object["sensitivity_level"].asInt();
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
  if (!object.isObject() || !object["stable_id"].isString()) {
    return std::nullopt;
  }
  Property property;
  property.stable_id = object["stable_id"].asString();
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

}  // namespace

std::string writeReportContents(const ReportContents& contents) {
  Json::Value root(Json::arrayValue);
  for (const Property& property : contents) {
    root.append(writeProperty(property));
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

}  // namespace KELP::Diagnostic
