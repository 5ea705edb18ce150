#include "unit/contents/properties/contentqueries.h"

#include "unit/contents/properties/typefamilies.h"
#include "unit/contents/properties/valuefamilies.h"

#include <utility>

namespace KELP::Test {
namespace {

std::vector<ContentQuery> ofAnyType() {
  return {
      {"hasReportContentProperty",
       [](const Report& r, const std::string& p) { return r.hasReportContentProperty(p); }, ""},
      {"getReportContentProperty",
       [](const Report& r, const std::string& p) {
         return r.getReportContentProperty(p).has_value();
       },
       ""},
      {"hasReportContentVariation",
       [](const Report& r, const std::string& p) { return r.hasReportContentVariation(p, 1); }, ""},
      {"getReportContentVariation",
       [](const Report& r, const std::string& p) {
         return r.getReportContentVariation(p, 1).has_value();
       },
       ""},
      {"getReportContentBestVariation",
       [](const Report& r, const std::string& p) {
         return r.getReportContentBestVariation(p).has_value();
       },
       ""},
  };
}

std::vector<ContentQuery> ofFamily(const TypeFamily& family) {
  const std::string start = "getReport" + family.name;
  return {
      {"hasReport" + family.name + "Property",
       [&family](const Report& r, const std::string& p) { return family.hasProperty(r, p); }, ""},
      {start + "Property",
       [&family](const Report& r, const std::string& p) {
         return family.getProperty(r, p).has_value();
       },
       ""},
      {"hasReport" + family.name + "Variation",
       [&family](const Report& r, const std::string& p) { return family.hasVariation(r, p, 1); },
       ""},
      {start + "Variation",
       [&family](const Report& r, const std::string& p) {
         return family.getVariation(r, p, 1).has_value();
       },
       ""},
      {start + "BestVariation",
       [&family](const Report& r, const std::string& p) {
         return family.getBestVariation(r, p).has_value();
       },
       ""},
      {"getReportContentPropertyOfType" + family.name,
       [&family](const Report& r, const std::string& p) {
         return r.getReportContentProperty(p, family.type).has_value();
       },
       ""},
      {"getReportContentVariationOfType" + family.name,
       [&family](const Report& r, const std::string& p) {
         return r.getReportContentVariation(p, family.type, 1).has_value();
       },
       ""},
      {"getReportContentBestVariationOfType" + family.name,
       [&family](const Report& r, const std::string& p) {
         return r.getReportContentBestVariation(p, family.type).has_value();
       },
       ""},
  };
}

/** The two questions for a value, by level and for the best. */
template <typename ByLevel, typename Best>
std::vector<ContentQuery> ofValue(const std::string& word, const std::string& byLevelWord,
                                  ByLevel byLevel, Best best) {
  const std::string end = " for report " + word + " variation that does not exist";
  return {
      {"byLevelOf_" + word,
       [=](const Report& r, const std::string& p) { return (r.*byLevel)(p, 1).has_value(); },
       "Unable to get " + byLevelWord + end},
      {"bestOf_" + word,
       [=](const Report& r, const std::string& p) { return (r.*best)(p).has_value(); },
       "Unable to get path" + end},
  };
}

template <typename Family>
std::vector<ContentQuery> ofValueFamily() {
  return ofValue(Family::kWord, "value", Family::kGet, Family::kGetBest);
}

std::vector<ContentQuery> valuesOf(Type type) {
  switch (type) {
    case Type::FILE:
      return ofValue("file", "path", &Report::getReportFileVariationPath,
                     &Report::getReportFileBestVariationPath);
    case Type::STRING:
      return ofValueFamily<StringValues>();
    case Type::INTEGER:
      return ofValueFamily<IntegerValues>();
    case Type::DOUBLE:
      return ofValueFamily<DoubleValues>();
    case Type::BOOLEAN:
      return ofValueFamily<BooleanValues>();
    case Type::UNKNOWN:
      break;
  }
  return {};
}

void append(std::vector<ContentQuery>& list, std::vector<ContentQuery> more) {
  list.insert(list.end(), more.begin(), more.end());
}

std::vector<ContentQuery> onlyFor(const TypeFamily& family) {
  std::vector<ContentQuery> queries = ofFamily(family);
  append(queries, valuesOf(family.type));
  return queries;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ContentQuery& query) {
  return out << query.name;
}

std::vector<ContentQuery> queriesFor(Type type) {
  std::vector<ContentQuery> queries = ofAnyType();
  for (const TypeFamily& family : typeFamilies()) {
    if (family.type == type) {
      append(queries, onlyFor(family));
    }
  }
  return queries;
}

std::vector<ContentQuery> allQueries() {
  std::vector<ContentQuery> queries = ofAnyType();
  for (const TypeFamily& family : typeFamilies()) {
    append(queries, onlyFor(family));
  }
  return queries;
}

}  // namespace KELP::Test
