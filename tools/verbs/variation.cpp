#include "base/files.h"
#include "base/text.h"
#include "reports/access.h"
#include "verbs/change.h"

#include <charconv>
#include <cmath>

namespace KELP::Tool {
namespace {

struct VariationOptions {
  ChangeOptions change;
  std::string name;
  int level = 0;
  std::string value;
  bool overwrite = false;
};

[[noreturn]] void refuse(const std::string& text, const std::string& wanted) {
  throw Failure(ExitStatus::Usage, inQuotes(text) + " is not " + wanted);
}

double parseDouble(const std::string& text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || !std::isfinite(number)) {
    refuse(text, "a finite number such as 0.5 or -2e10");
  }
  return number;
}

bool parseBoolean(const std::string& text) {
  if (text != "true" && text != "false") {
    refuse(text, R"("true" or "false")");
  }
  return text == "true";
}

Variation parseVariation(const Property& property, int level, const std::string& text) {
  Variation variation;
  variation.sensitivity_level = level;
  switch (property.property_type) {
    case PropertyType::STRING:
      requireText(text, "the value");
      variation.string = text;
      break;
    case PropertyType::INTEGER:
      variation.integer = parseInteger(text);
      break;
    case PropertyType::DOUBLE:
      variation.double_ = parseDouble(text);
      break;
    case PropertyType::BOOLEAN:
      variation.boolean = parseBoolean(text);
      break;
    case PropertyType::FILE:
      throw Failure(ExitStatus::Usage, "the property \"" + escaped(property.stable_id) +
                                           R"(" holds files; see "attach")");
    case PropertyType::UNKNOWN:
      throw Failure(ExitStatus::Failed, "the property " + inQuotes(property.stable_id) +
                                            " is of no known type, and can hold nothing");
  }
  return variation;
}

/** The value that is meant: the standard input for the "-" of a string. It is read before the
 * report is locked, since it may come from somebody who uses the report. */
std::string valueOf(const Context& context, const VariationOptions& options) {
  if (options.value != "-") {
    return options.value;
  }
  const StoredReport report = findSoundReport(context.root, options.change.id);
  const Property* const property = findProperty(report, options.name);
  const bool isString = property != nullptr && property->property_type == PropertyType::STRING;
  return isString ? standardInput() : options.value;
}

ExitStatus add(const Context& context, const VariationOptions& options) {
  const std::string value = valueOf(context, options);
  const auto report = openForChange(context, options.change);
  const Property property = requireProperty(*report, options.name);
  require(report->addReportContentVariation(
      options.name, parseVariation(property, options.level, value), options.overwrite));
  return ExitStatus::Done;
}

ExitStatus remove(const Context& context, const VariationOptions& options) {
  const auto report = openForChange(context, options.change);
  const Property property = requireProperty(*report, options.name);
  requireOwnDirectory(property);
  static_cast<void>(requireVariation(property, options.level));
  require(report->removeContentPropertyVariation(options.name, options.level));
  return ExitStatus::Done;
}

void addAdd(CLI::App& variation, Context& context) {
  const auto verb = addVerb<VariationOptions>(
      variation, context, "add", "Add a value to a property",
      "  kelp-diagnostics variation add 3f2a restarts 0 17\n"
      "  kelp-diagnostics variation add 3f2a offset 10 --overwrite -- -2.5\n"
      "  dmesg | kelp-diagnostics variation add 3f2a kernel-log 20 -\n"
      "\n"
      "The value is read as the property's type has it: a text, a decimal number, \"true\" or\n"
      "\"false\". Files are added by \"attach\".\n",
      add);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addLevel(*verb.app, verb->level);
  addText(*verb.app, "VALUE", verb->value, "The value; \"-\" reads a text from standard input")
      ->required();
  verb.app->add_flag("--overwrite", verb->overwrite, "Replace the variation of that level");
}

void addRemoval(CLI::App& variation, Context& context) {
  const auto verb = addVerb<VariationOptions>(
      variation, context, "remove", "Remove a value, or a file, from a property",
      "  kelp-diagnostics variation remove 3f2a log 20\n", remove);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addLevel(*verb.app, verb->level);
}

}  // namespace

void addVariation(CLI::App& program, Context& context) {
  CLI::App* const variation =
      program.add_subcommand("variation", "Add and remove the variations of content properties");
  variation->require_subcommand(1);
  variation->footer(
      "Examples:\n"
      "  kelp-diagnostics variation add 3f2a restarts 0 17\n"
      "  kelp-diagnostics variation remove 3f2a log 20\n");
  addAdd(*variation, context);
  addRemoval(*variation, context);
}

}  // namespace KELP::Tool
