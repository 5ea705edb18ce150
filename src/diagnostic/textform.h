#pragma once

#include "diagnostic/jsontext.h"
#include "diagnostic/reportcontentsformat.h"

#include <diagnostic/reportuuid.h>

#include <charconv>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

/** The stored text of each kind of metadata value: `write` makes it, `read` takes it back, and is
 *  empty for a text that is none of the kind's. */
namespace KELP::Diagnostic {

template <typename T>
struct TextForm;

template <>
struct TextForm<ReportUuid> {
  static std::string write(const ReportUuid& value) {
    char text[ReportUuid::kTextBufferSize];
    value.unparseLower(text);
    return text;
  }
  static std::optional<ReportUuid> read(const std::string& text) {
    ReportUuid value;
    // The parser stops at a NUL, which a stored text may hold.
    const bool read = text.size() == ReportUuid::kTextBufferSize - 1 && value.parse(text.c_str());
    return read ? std::optional(value) : std::nullopt;
  }
};

/** Decimal numbers. What follows the digits is ignored. */
template <typename Integer>
struct DecimalForm {
  static std::string write(Integer value) { return std::to_string(value); }
  static std::optional<Integer> read(const std::string& text) {
    Integer value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() ? std::optional(value) : std::nullopt;
  }
};

template <>
struct TextForm<long> : DecimalForm<long> {};
template <>
struct TextForm<int> : DecimalForm<int> {};

template <>
struct TextForm<bool> {
  static std::string write(bool value) { return value ? "1" : "0"; }
  static std::optional<bool> read(const std::string& text) {
    return text == "1" || text == "0" ? std::optional(text == "1") : std::nullopt;
  }
};

template <>
struct TextForm<std::string> {
  static std::string write(std::string value) { return value; }
  static std::optional<std::string> read(std::string text) { return text; }
};

/** A JSON array; elements that are no strings are skipped. */
template <>
struct TextForm<std::vector<std::string>> {
  static std::string write(const std::vector<std::string>& values) {
    Json::Value array(Json::arrayValue);
    for (const std::string& value : values) {
      array.append(jsonString(value));
    }
    return values.empty() ? "[]" : writeJson(array);
  }
  static std::optional<std::vector<std::string>> read(const std::string& text) {
    const std::optional<Json::Value> array = readJsonArray(text);
    if (!array) {
      return std::nullopt;
    }
    std::vector<std::string> values;
    for (const Json::Value& element : *array) {
      if (element.isString()) {
        values.push_back(element.asString());
      }
    }
    return values;
  }
};

template <>
struct TextForm<ReportContents> {
  static std::string write(const ReportContents& value) { return writeReportContents(value); }
  static std::optional<ReportContents> read(const std::string& text) {
    return readReportContents(text);
  }
};

}  // namespace KELP::Diagnostic
