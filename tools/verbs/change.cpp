#include "verbs/change.h"

#include "base/text.h"
#include "reports/access.h"

#include <charconv>
#include <limits>

namespace KELP::Tool {
namespace {

using CLI::results_t;
using Diagnostic::DiagnosticReport;

std::string quoted(const std::string& text) {
  return "\"" + escaped(text) + "\"";
}

bool isFileName(const std::string& text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos;
}

template <typename Text>
CLI::Option* addOneText(CLI::App& verb, const std::string& name, Text& text,
                        const std::string& help) {
  return verb
      .add_option(
          name,
          [&text](const results_t& given) {
            text = given.back();
            return true;
          },
          help)
      ->type_name("TEXT");
}

CLI::Option* addManyTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                          const std::string& help) {
  return verb
      .add_option(
          name,
          [&texts](const results_t& given) {
            texts = given;
            return true;
          },
          help)
      ->type_name("TEXT")
      ->expected(CLI::detail::expected_max_vector_size)
      ->take_all();
}

}  // namespace

void addChange(CLI::App& verb, ChangeOptions& options) {
  addId(verb, options.id);
  addWait(verb, options.waitMs);
}

std::unique_ptr<DiagnosticReport> openForChange(const Context& context,
                                                const ChangeOptions& options) {
  return openForChange(context.root, options.id, options.waitMs);
}

void addName(CLI::App& verb, std::string& name) {
  addText(verb, "NAME", name, "The content property")->required();
}

void addLevel(CLI::App& verb, int& level) {
  verb.add_option(
          "LEVEL",
          [&level](const results_t& given) {
            level = parseInteger(given.back());
            return true;
          },
          "The variation's level of sensitivity")
      ->type_name("LEVEL")
      ->required();
}

CLI::Option* addText(CLI::App& verb, const std::string& name, std::string& text,
                     const std::string& help) {
  return addOneText(verb, name, text, help);
}

CLI::Option* addText(CLI::App& verb, const std::string& name, std::optional<std::string>& text,
                     const std::string& help) {
  return addOneText(verb, name, text, help);
}

CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                      const std::string& help) {
  return addManyTexts(verb, name, texts, help)->allow_extra_args(false);
}

CLI::Option* addRest(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                     const std::string& help) {
  return addManyTexts(verb, name, texts, help)->required();
}

CLI::Option* addInteger(CLI::App& verb, const std::string& name, std::optional<int>& number,
                        const std::string& help) {
  return verb
      .add_option(
          name,
          [&number](const results_t& given) {
            number = parseInteger(given.back());
            return true;
          },
          help)
      ->type_name("N");
}

int parseInteger(const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) {
    using Limits = std::numeric_limits<int>;
    throw Failure(ExitStatus::Usage, quoted(text) + " is not an integer from " +
                                         std::to_string(Limits::min()) + " to " +
                                         std::to_string(Limits::max()));
  }
  return number;
}

void requireText(const std::string& text, const std::string& what) {
  if (!isText(text)) {
    throw Failure(ExitStatus::Usage, what + " is not UTF-8, or has a NUL in it");
  }
}

void requireFileName(const std::string& text, const std::string& what) {
  requireText(text, what);
  if (!isFileName(text)) {
    throw Failure(ExitStatus::Usage, what + " " + quoted(text) + " cannot be that of a file");
  }
}

void requireOwnDirectory(const Property& property) {
  if (property.isFileProperty() && !isFileName(property.stable_id)) {
    throw Failure(ExitStatus::Damage, "the name of the property " + quoted(property.stable_id) +
                                          " leads out of the directory of its files");
  }
}

Property requireProperty(const DiagnosticReport& report, const std::string& name) {
  if (auto property = report.getReportContentProperty(name)) {
    return *std::move(property);
  }
  throw Failure(ExitStatus::NotFound, "there is no property " + quoted(name));
}

void requireFileProperty(const Property& property) {
  if (!property.isFileProperty()) {
    throw Failure(ExitStatus::Usage, "the property " + quoted(property.stable_id) +
                                         " holds no files; its type is " +
                                         typeName(property.property_type));
  }
  requireOwnDirectory(property);
}

const Variation& requireVariation(const Property& property, int level) {
  if (const Variation* const variation = findVariation(property, level)) {
    return *variation;
  }
  throw Failure(ExitStatus::NotFound, "the property " + quoted(property.stable_id) +
                                          " has no variation of level " + std::to_string(level));
}

}  // namespace KELP::Tool
