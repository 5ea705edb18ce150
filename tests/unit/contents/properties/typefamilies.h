#pragma once

#include "unit/contents/properties/contentsfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** The operations that exist once for each type of property, for one type. */
struct TypeFamily {
  Type type;
  /** What the operations' names call the type, and what their messages do. */
  std::string name;
  std::string word;

  std::function<bool(const Report&, std::string)> hasProperty;
  std::function<std::optional<Property>(const Report&, std::string)> getProperty;
  std::function<Report::Result(Report&, std::string)> removeProperty;
  /** A file property gets the media type "text/plain". */
  std::function<Report::Result(Report&, std::string, Tags)> create;

  std::function<bool(const Report&, std::string, int)> hasVariation;
  std::function<std::optional<Variation>(const Report&, std::string, int)> getVariation;
  std::function<std::optional<Variation>(const Report&, std::string)> getBestVariation;
  std::function<Report::Result(Report&, std::string, int)> removeVariation;

  /** What create() gives to a property. */
  [[nodiscard]] std::string mediaType() const { return type == Type::FILE ? "text/plain" : ""; }

  /** A variation with a value of the type that is not the initial one. */
  [[nodiscard]] Variation variation(int level) const;
  /** A property with such variations at these levels. */
  [[nodiscard]] Property property(const std::string& property,
                                  const std::vector<int>& levels) const;

  /** How the typed removals refuse. */
  [[nodiscard]] Refusal noProperty(const std::string& property) const;
  [[nodiscard]] Refusal noVariation(const std::string& property, int level) const;
};

std::ostream& operator<<(std::ostream& out, const TypeFamily& family);

/** All five. */
[[nodiscard]] const std::vector<TypeFamily>& typeFamilies();

/** A property of each type, named after it in lower case, with variations at these levels. */
[[nodiscard]] Contents oneOfEach(const std::vector<int>& levels);

/** Calls @p check with each type but @p own, traced. */
void forOtherTypes(Type own, const std::function<void(const TypeFamily&)>& check);

/** For the names of tests with a family as parameter. */
[[nodiscard]] std::string familyName(const testing::TestParamInfo<TypeFamily>& info);

}  // namespace KELP::Test
