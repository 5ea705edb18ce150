#include "base/json.h"

#include "base/clock.h"
#include "base/output.h"

#include <json/writer.h>

namespace KELP::Tool {
namespace {

std::string written(const Json::Value& value, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  return Json::writeString(builder, value) + "\n";
}

}  // namespace

Json::Value jsonDocument(const char* name) {
  Json::Value document(Json::objectValue);
  document["schema"] = kJsonSchema;
  document[name] = Json::Value(Json::arrayValue);
  return document;
}

Json::Value jsonTime(const std::optional<long>& seconds, bool utc) {
  const auto text = seconds ? calendarText(*seconds, utc) : std::nullopt;
  return text ? Json::Value(*text) : Json::Value();
}

std::string jsonText(const Json::Value& value) {
  return written(value, "  ");
}

void printJson(const Json::Value& value) {
  print(jsonText(value));
}

void printJsonLine(const Json::Value& value) {
  print(written(value, ""));
  flushOutput();
}

}  // namespace KELP::Tool
