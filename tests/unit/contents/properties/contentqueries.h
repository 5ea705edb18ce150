#pragma once

#include "unit/contents/properties/contentsfixture.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** One question about the contents. */
struct ContentQuery {
  std::string name;
  /** Whether it finds something by the name of a property, at the level 1 if it takes one. */
  std::function<bool(const Report&, const std::string& property)> finds;
  /** What it logs when it finds nothing; empty when that is no failure. */
  std::string line;
};

std::ostream& operator<<(std::ostream& out, const ContentQuery& query);

/** The questions that a property of @p type with a variation of level 1 answers. */
[[nodiscard]] std::vector<ContentQuery> queriesFor(Type type);

/** All questions, each once. */
[[nodiscard]] std::vector<ContentQuery> allQueries();

}  // namespace KELP::Test
