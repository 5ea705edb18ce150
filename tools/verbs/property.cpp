#include "base/json.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/access.h"
#include "reports/contents.h"
#include "reports/describe.h"
#include "verbs/change.h"

#include <set>

namespace KELP::Tool {
namespace {

struct PropertyOptions {
  ChangeOptions change;
  std::string name;
  std::string type;
  std::string mediaType;
  std::vector<std::string> tags;
};

using Tags = std::set<std::string>;

Tags tagsOf(const PropertyOptions& options) {
  for (const std::string& tag : options.tags) {
    requireText(tag, "a tag");
  }
  return {options.tags.begin(), options.tags.end()};
}

ExitStatus add(const Context& context, const PropertyOptions& options) {
  requireText(options.name, "the name");
  requireText(options.mediaType, "the media type");
  const Tags tags = tagsOf(options);
  const PropertyType type = typeNamed(options.type).value();
  if (type == PropertyType::FILE) {
    requireFileName(options.name, "the name of a property of files");
  }
  require(openForChange(context, options.change)
              ->createReportContentProperty(options.name, type, options.mediaType, tags));
  return ExitStatus::Done;
}

struct ListOptions {
  std::string id;
  bool null = false;
};

ExitStatus list(const Context& context, const ListOptions& options) {
  const StoredReport report = findSoundReport(context.root, options.id);
  if (context.json) {
    Json::Value document = jsonDocument("properties");
    document["properties"] = describeReport(report, {})["contents"];
    printJson(document);
    return ExitStatus::Done;
  }
  for (const Property& property : report.metadata.contents.value_or(std::vector<Property>())) {
    print(options.null ? property.stable_id + '\0' : escaped(property.stable_id) + "\n");
  }
  return ExitStatus::Done;
}

ExitStatus remove(const Context& context, const PropertyOptions& options) {
  const auto report = openForChange(context, options.change);
  requireOwnDirectory(requireProperty(*report, options.name));
  require(report->removeReportContentProperty(options.name));
  return ExitStatus::Done;
}

ExitStatus tag(const Context& context, const PropertyOptions& options) {
  const Tags tags = tagsOf(options);
  const auto report = openForChange(context, options.change);
  static_cast<void>(requireProperty(*report, options.name));
  require(report->addTagsToContentProperty(options.name, tags));
  return ExitStatus::Done;
}

void addAdd(CLI::App& property, Context& context) {
  const auto verb = addVerb<PropertyOptions>(
      property, context, "add", "Add a property without variations",
      "  kelp-diagnostics property add 3f2a log file --media-type text/plain --tag text\n"
      "  kelp-diagnostics property add 3f2a restarts integer\n",
      add);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addChoice(*verb.app, "TYPE", verb->type, {"file", "string", "integer", "double", "boolean"},
            "What its variations hold")
      ->type_name("TYPE")
      ->required();
  addText(*verb.app, "--media-type", verb->mediaType, "What a file is, such as text/plain");
  addTexts(*verb.app, "--tag", verb->tags, "A tag; once for each");
}

void addListing(CLI::App& property, Context& context) {
  const auto verb =
      addVerb<ListOptions>(property, context, "list", "Print the names of a report's properties",
                           "  kelp-diagnostics property list 3f2a\n"
                           "  kelp-diagnostics property list -0 3f2a | xargs -0 -n 1 "
                           "kelp-diagnostics cat 3f2a\n"
                           "\n"
                           "On lines, control characters and backslashes in names are escaped.\n",
                           list);
  addId(*verb.app, verb->id);
  CLI::Option* const null =
      verb.app->add_flag("-0,--null", verb->null, "Names as they are, and NUL behind each");
  verb.app->add_flag("--json", context.json, "Print one JSON document, with all but hidden values")
      ->excludes(null);
}

void addRemoval(CLI::App& property, Context& context) {
  const auto verb = addVerb<PropertyOptions>(
      property, context, "remove", "Remove a property with its variations and their files",
      "  kelp-diagnostics property remove 3f2a log\n", remove);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
}

void addTagging(CLI::App& property, Context& context) {
  const auto verb = addVerb<PropertyOptions>(
      property, context, "tag", "Add tags to a property; those that it has stay",
      "  kelp-diagnostics property tag 3f2a log text kernel\n"
      "  kelp-diagnostics property tag 3f2a log -- -odd- -tags-\n",
      tag);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addRest(*verb.app, "TAG", verb->tags, "The tags");
}

}  // namespace

void addProperty(CLI::App& program, Context& context) {
  CLI::App* const property =
      program.add_subcommand("property", "Add, list, remove and tag content properties");
  property->require_subcommand(1);
  property->footer(
      "Examples:\n"
      "  kelp-diagnostics property list 3f2a\n"
      "  kelp-diagnostics property add 3f2a restarts integer\n");
  addAdd(*property, context);
  addListing(*property, context);
  addRemoval(*property, context);
  addTagging(*property, context);
}

}  // namespace KELP::Tool
