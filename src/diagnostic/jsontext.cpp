#include "diagnostic/jsontext.h"

#include "diagnostic/jsonfractions.h"
#include "os/log.h"

#include <json/reader.h>
#include <json/writer.h>

#include <clocale>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace KELP::Diagnostic {
namespace {

// To make one of these takes longer than to read or write a short text. They are never destroyed: a
// report that a client keeps in a static object may be used when statics are.

const Json::CharReaderBuilder& readers() {
  static const auto& builder = *new Json::CharReaderBuilder;
  return builder;
}

/** Makes writers of compact text. */
const Json::StreamWriterBuilder& writers() {
  static const auto& builder = *[] {
    auto* const compact = new Json::StreamWriterBuilder;
    (*compact)["indentation"] = "";
    return compact;
  }();
  return builder;
}

/** While it lives, this thread's C library writes numbers with a point. */
class NumbersWithPoint {
 public:
  NumbersWithPoint() {
    static const locale_t classic = ::newlocale(LC_NUMERIC_MASK, "C", nullptr);
    before_ = ::uselocale(classic);
  }
  ~NumbersWithPoint() { ::uselocale(before_); }
  NumbersWithPoint(const NumbersWithPoint&) = delete;
  NumbersWithPoint& operator=(const NumbersWithPoint&) = delete;

 private:
  locale_t before_;
};

/** Parses @p text, with fractions as the locale has them, into @p root. @return what is wrong with
 * it; empty when it was parsed. */
std::optional<std::string> parseByLocale(const std::string& text, Json::Value& root) try {
  const std::unique_ptr<Json::CharReader> reader(readers().newCharReader());
  std::string errors;
  // The terminating NUL is handed over too: the reader takes it for the end of its input.
  const char* const begin = text.c_str();
  if (!reader->parse(begin, begin + text.size() + 1, &root, &errors)) {
    return errors;
  }
  return std::nullopt;
} catch (const Json::Exception& tooDeep) {  // When values are nested too deeply.
  return tooDeep.what();
}

/** The same with fractions as JSON has them. */
std::optional<std::string> parse(const std::string& text, Json::Value& root) {
  const JsonFractions fractions(text);
  std::optional<std::string> errors = parseByLocale(fractions.integers(), root);
  if (!errors) {
    fractions.putInto(root);
  } else if (!fractions.areNumbers()) {
    // The reader has better words for the text itself, unless the locale has it read a part of one.
    Json::Value ignored;
    std::optional<std::string> words = parseByLocale(text, ignored);
    return words ? words : errors;
  }
  return errors;
}

}  // namespace

Json::Value jsonString(const std::string& text) {
  constexpr std::size_t kLongest = std::size_t{1} << 28;
  if (text.size() > kLongest) {
    throw std::length_error("text too long for JSON");
  }
  return text;
}

std::string writeJson(const Json::Value& array) {
  const NumbersWithPoint point;
  // Json::writeString() would not notice that the stream has run out of memory.
  std::ostringstream text;
  text.exceptions(std::ios::badbit);
  const std::unique_ptr<Json::StreamWriter> writer(writers().newStreamWriter());
  writer->write(array, &text);
  return text.str();
}

std::optional<Json::Value> readJsonArray(const std::string& text) {
  Json::Value root;
  const std::optional<std::string> errors = parse(text, root);
  if (errors || !root.isArray()) {
    OS::logError("Failed to parse json data: %s, error: %s", text.c_str(),
                 errors ? errors->c_str() : "");
    return std::nullopt;
  }
  return root;
}

}  // namespace KELP::Diagnostic
