#include "unit/contents/properties/typefamilies.h"

#include <utility>

namespace KELP::Test {

Variation TypeFamily::variation(int level) const {
  Variation variation;
  variation.sensitivity_level = level;
  switch (type) {
    case Type::FILE:
      variation.relative_path = "contentfiles/planted/" + std::to_string(level);
      break;
    case Type::STRING:
      variation.string = "value";
      break;
    case Type::INTEGER:
      variation.integer = -42;
      break;
    case Type::DOUBLE:
      variation.double_ = 2.5;
      break;
    case Type::BOOLEAN:
      variation.boolean = true;
      break;
    case Type::UNKNOWN:
      break;
  }
  return variation;
}

Property TypeFamily::property(const std::string& property, const std::vector<int>& levels) const {
  Property made{property, type, mediaType(), {}, {}};
  for (const int level : levels) {
    made.variations.push_back(variation(level));
  }
  return made;
}

Refusal TypeFamily::noProperty(const std::string& property) const {
  const std::string start = "Report " + word + " property to be removed ";
  const std::string end = "does not exist in the report";
  return {start + "(" + property + ") " + end, start + end};
}

Refusal TypeFamily::noVariation(const std::string& property, int level) const {
  const std::string start = "Report " + word + " variation to be removed ";
  const std::string end = "does not exist in the report";
  return {start + "(" + property + ", " + std::to_string(level) + ") " + end, start + end};
}

std::ostream& operator<<(std::ostream& out, const TypeFamily& family) {
  return out << family.name;
}

const std::vector<TypeFamily>& typeFamilies() {
  static const std::vector<TypeFamily> families{
      {Type::FILE, "File", "file", &Report::hasReportFileProperty, &Report::getReportFileProperty,
       &Report::removeReportFileProperty,
       [](Report& r, std::string name, Tags tags) {
         return r.createReportFileProperty(std::move(name), "text/plain", std::move(tags));
       },
       &Report::hasReportFileVariation, &Report::getReportFileVariation,
       &Report::getReportFileBestVariation, &Report::removeFileVariation},
      {Type::STRING, "String", "string", &Report::hasReportStringProperty,
       &Report::getReportStringProperty, &Report::removeReportStringProperty,
       &Report::createReportStringProperty, &Report::hasReportStringVariation,
       &Report::getReportStringVariation, &Report::getReportStringBestVariation,
       &Report::removeStringVariation},
      {Type::INTEGER, "Integer", "integer", &Report::hasReportIntegerProperty,
       &Report::getReportIntegerProperty, &Report::removeReportIntegerProperty,
       &Report::createReportIntegerProperty, &Report::hasReportIntegerVariation,
       &Report::getReportIntegerVariation, &Report::getReportIntegerBestVariation,
       &Report::removeIntegerVariation},
      {Type::DOUBLE, "Double", "double", &Report::hasReportDoubleProperty,
       &Report::getReportDoubleProperty, &Report::removeReportDoubleProperty,
       &Report::createReportDoubleProperty, &Report::hasReportDoubleVariation,
       &Report::getReportDoubleVariation, &Report::getReportDoubleBestVariation,
       &Report::removeDoubleVariation},
      {Type::BOOLEAN, "Boolean", "boolean", &Report::hasReportBooleanProperty,
       &Report::getReportBooleanProperty, &Report::removeReportBooleanProperty,
       &Report::createReportBooleanProperty, &Report::hasReportBooleanVariation,
       &Report::getReportBooleanVariation, &Report::getReportBooleanBestVariation,
       &Report::removeBooleanVariation},
  };
  return families;
}

Contents oneOfEach(const std::vector<int>& levels) {
  Contents contents;
  for (const TypeFamily& family : typeFamilies()) {
    contents.push_back(family.property(family.word, levels));
  }
  return contents;
}

void forOtherTypes(Type own, const std::function<void(const TypeFamily&)>& check) {
  for (const TypeFamily& other : typeFamilies()) {
    if (other.type != own) {
      SCOPED_TRACE(other.name);
      check(other);
    }
  }
}

std::string familyName(const testing::TestParamInfo<TypeFamily>& info) {
  return info.param.name;
}

}  // namespace KELP::Test
