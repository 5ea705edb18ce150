#include "reports/contents.h"

#include <utils/pathcontainment.h>

#include <array>
#include <charconv>
#include <exception>
#include <utility>

namespace KELP::Tool {
namespace {

constexpr std::pair<PropertyType, const char*> kTypes[] = {
    {PropertyType::FILE, "file"},       {PropertyType::STRING, "string"},
    {PropertyType::INTEGER, "integer"}, {PropertyType::DOUBLE, "double"},
    {PropertyType::BOOLEAN, "boolean"},
};

}  // namespace

const Property* findProperty(const StoredReport& report, const std::string& name) {
  if (report.metadata.contents) {
    for (const Property& property : *report.metadata.contents) {
      if (property.stable_id == name) {
        return &property;
      }
    }
  }
  return nullptr;
}

const Variation* findVariation(const Property& property, int level) {
  for (const Variation& variation : property.variations) {
    if (variation.sensitivity_level == level) {
      return &variation;
    }
  }
  return nullptr;
}

const Variation* bestVariation(const Property& property, int permitted) {
  const Variation* best = nullptr;
  for (const Variation& variation : property.variations) {
    if (variation.sensitivity_level >= 0 && isPermitted(variation, permitted) &&
        (best == nullptr || variation.sensitivity_level > best->sensitivity_level)) {
      best = &variation;
    }
  }
  return best;
}

bool isPermitted(const Variation& variation, int permitted) {
  return variation.sensitivity_level <= permitted;
}

std::string typeName(PropertyType type) {
  for (const auto& [known, name] : kTypes) {
    if (known == type) {
      return name;
    }
  }
  return "unknown";
}

std::optional<PropertyType> typeNamed(const std::string& name) {
  for (const auto& [type, known] : kTypes) {
    if (known == name) {
      return type;
    }
  }
  return std::nullopt;
}

std::string valueText(const Variation& variation, PropertyType type) {
  switch (type) {
    case PropertyType::STRING:
      return variation.string;
    case PropertyType::INTEGER:
      return std::to_string(variation.integer);
    case PropertyType::DOUBLE: {
      std::array<char, 32> text{};
      auto* const end = std::to_chars(text.begin(), text.end(), variation.double_).ptr;
      return {text.begin(), end};
    }
    case PropertyType::BOOLEAN:
      return variation.boolean ? "true" : "false";
    case PropertyType::FILE:
    case PropertyType::UNKNOWN:
      break;
  }
  return {};
}

std::optional<std::filesystem::path> storedFile(const StoredReport& report,
                                                const Variation& variation) {
  const std::filesystem::path path = report.directory / variation.relative_path;
  const bool isWithin =
      variation.relative_path.find('\0') == std::string::npos &&
      Utils::VerifyFilePathIsWithinRequiredDirectory(path, report.directory, false, true);
  return isWithin ? std::optional(path) : std::nullopt;
}

}  // namespace KELP::Tool
