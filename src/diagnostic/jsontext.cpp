#include "diagnostic/jsontext.h"

#include "os/log.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace KELP::Diagnostic {
namespace {

/** What makes readers. To make it takes longer than to read a short text. */
const Json::CharReaderBuilder& readers() {
  static const Json::CharReaderBuilder builder;
  return builder;
}

/** What makes writers, of compact text. */
const Json::StreamWriterBuilder& writers() {
  static const Json::StreamWriterBuilder builder = [] {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return compact;
  }();
  return builder;
}

/** Parses @p text into @p root. @return what is wrong with it; empty when it was parsed. */
std::optional<std::string> parse(const std::string& text, Json::Value& root) try {
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

}  // namespace

std::string writeJson(const Json::Value& array) {
  return Json::writeString(writers(), array);
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
