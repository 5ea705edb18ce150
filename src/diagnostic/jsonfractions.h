#pragma once

#include <json/value.h>

#include <cstddef>
#include <map>
#include <string>

namespace KELP::Diagnostic {

/** Whether the JSON library, which reads fractions as the process's locale writes them, reads them
 * as JSON has them. */
[[nodiscard]] bool readsFractionsRight();

/** The numbers with a fraction or an exponent in a JSON text, by where they stand. */
class JsonFractions {
 public:
  /** Takes them out of @p text, and leaves in the place of each an integer of the same length. What
   * looks like one and is no number stays none. */
  explicit JsonFractions(std::string& text);

  /** Puts them back into what was parsed from the text. */
  void putInto(Json::Value& root) const;

 private:
  std::map<std::ptrdiff_t, double> numbers_;
};

}  // namespace KELP::Diagnostic
