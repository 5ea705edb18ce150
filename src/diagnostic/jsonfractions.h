#pragma once

#include <json/value.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace KELP::Diagnostic {

/**
 * The numbers with a fraction or an exponent in a JSON text, by where they stand.
 *
 * The JSON library reads these as the process's locale writes them, which any thread may change at
 * any time. So it gets the text without them.
 */
class JsonFractions {
 public:
  /** @param text lives as long as the object. */
  explicit JsonFractions(const std::string& text);

  /** The text with an integer of the same length in the place of each. */
  [[nodiscard]] const std::string& integers() const { return integers_ ? *integers_ : text_; }
  /** Whether all that look like one are numbers. Those that are not are none in integers(). */
  [[nodiscard]] bool areNumbers() const { return areNumbers_; }

  /** Puts the numbers back into what was parsed from integers(). */
  void putInto(Json::Value& root) const;

 private:
  void take(std::size_t at, std::string token);

  const std::string& text_;
  std::optional<std::string> integers_;  ///< Empty when it would be the same text.
  std::map<std::ptrdiff_t, double> numbers_;
  bool areNumbers_ = true;
};

}  // namespace KELP::Diagnostic
