#include "base/clock.h"
#include "base/files.h"
#include "base/json.h"
#include "base/output.h"
#include "base/table.h"
#include "base/text.h"
#include "reports/contents.h"
#include "reports/describe.h"
#include "reports/repository.h"
#include "verbs/verb.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

struct ShowOptions {
  std::string id;
  bool allLevels = false;
};

/** A part of a line: an escaped text and its style. */
using Piece = Table::Cell;

/** Prints one line, whose end is cut off where a terminal ends. */
void printLine(const std::vector<Piece>& pieces) {
  std::size_t left = outputIsTerminal() ? terminalColumns() : std::string::npos;
  std::string line;
  for (const Piece& piece : pieces) {
    const std::string text = shortened(piece.text, left);
    left -= columnsOf(text);
    line += styled(text, piece.style);
  }
  print(line + "\n");
}

/** What stands before the value of a field, "Label:" in a column; without a label, as much room. */
std::string labelText(const std::string& label) {
  constexpr std::size_t kColumns = 17;
  std::string text = label.empty() ? "" : label + ":";
  text.resize(std::max(text.size(), kColumns), ' ');
  return text;
}

void printField(const std::string& label, const Piece& value) {
  printLine({labelText(label), value});
}

/** As printField(), but never shortened: what is copied to be used elsewhere. */
void printWhole(const std::string& label, const std::string& value) {
  print(labelText(label) + value + "\n");
}

std::string textOf(const std::optional<int>& number) {
  return number ? std::to_string(*number) : "-";
}

std::string textOf(const std::optional<std::string>& text) {
  return text ? escaped(*text) : "-";
}

std::string textOf(const std::optional<std::vector<std::string>>& texts) {
  if (!texts) {
    return "-";
  }
  const std::string all = joined(*texts);
  return std::to_string(texts->size()) + (all.empty() ? "" : ": " + all);
}

std::string textOfTime(const std::optional<long>& time, bool utc) {
  if (!time) {
    return "-";
  }
  std::string text = timeText(*time, utc);
  const long now = currentTime();
  if (*time >= 0 && *time <= now) {
    text += " (" + ageText(now - *time) + " ago)";
  }
  return text;
}

Piece stagePiece(const StoredReport& report) {
  switch (report.soundness) {
    case Soundness::HalfMade:
      return {"half-made (being created, or left by a process that died)", Style::Red};
    case Soundness::Damaged:
      return {report.hasStore
                  ? "damaged (cannot be read: " + joined(report.metadata.unreadable) + ")"
                  : "damaged (its metadata cannot be read)",
              Style::Red};
    case Soundness::Mismatched:
      return {"mismatched (its metadata is that of " + report.metadata.reportId->toString() + ")",
              Style::Red};
    case Soundness::Unreadable:
      return {"unreadable (" + report.refusal.message() + ")", Style::Red};
    case Soundness::Sound:
      break;
  }
  return report.stageText();
}

void printStages(const Metadata& metadata) {
  const std::pair<const char*, std::optional<bool>> stages[] = {
      {"creation", metadata.creationComplete},
      {"user interaction", metadata.userInteractionComplete},
      {"data collection", metadata.dataCollectionComplete},
      {"data policy", metadata.dataPolicyApplied},
      {"upload", metadata.uploadComplete},
  };
  std::string label = "Done";
  for (const auto& [name, isDone] : stages) {
    const bool isYes = isDone.value_or(false);
    printField(label,
               {std::string(isYes ? "[x] " : "[ ] ") + name, isYes ? Style::Green : Style::Plain});
    label.clear();
  }
}

void printMetadata(const Metadata& metadata, bool utc) {
  printField("Created", textOfTime(metadata.created, utc));
  printField("Modified", textOfTime(metadata.modified, utc));
  printField("Application", textOf(metadata.appId));
  printField("Build", textOf(metadata.buildId));
  printField("User", textOf(metadata.userId));
  printField("Device", textOf(metadata.deviceId));
  printField("Session", textOf(metadata.sessionId));
  printField("Version", textOf(metadata.version));
  printField("Process", textOf(metadata.processName));
  printField("PID", textOf(metadata.pid));
  printField("Libraries", textOf(metadata.loadedLibraries));
  printField("Description", textOf(metadata.description));
  printField("Consent level", textOf(metadata.currentConsentLevel));
  printField("Maximum level", textOf(metadata.maxConsentLevel));
  printField("Permitted level", std::to_string(metadata.permittedLevel()));
  printStages(metadata);
}

std::vector<Piece> filePieces(const StoredReport& report, const Variation& variation) {
  const FileLook look = lookAtFile(report, variation);
  const std::string name =
      escaped(std::filesystem::path(variation.relative_path).filename().native());
  switch (look.state) {
    case FileState::Present:
      return {name + ", " + sizeText(look.size)};
    case FileState::Missing:
      return {name + ", ", {"missing", Style::Red}};
    case FileState::Irregular:
      return {name + ", ", {"not a regular file", Style::Red}};
    case FileState::Outside:
      break;
  }
  return {{"outside of the report", Style::Red}, ": " + escaped(variation.relative_path)};
}

std::vector<Piece> valuePieces(const StoredReport& report, const Property& property,
                               const Variation& variation) {
  if (property.isFileProperty()) {
    return filePieces(report, variation);
  }
  const std::string value = escaped(valueText(variation, property.property_type));
  return {property.property_type == PropertyType::STRING ? "\"" + value + "\"" : value};
}

void printVariation(const StoredReport& report, const Property& property,
                    const Variation& variation, std::size_t levelColumns, bool allLevels) {
  const int permitted = report.metadata.permittedLevel();
  const bool isBest = &variation == bestVariation(property, permitted);
  std::string level = std::to_string(variation.sensitivity_level);
  level.insert(0, levelColumns - level.size(), ' ');
  std::vector<Piece> line{{isBest ? "    * " : "      ", Style::Green}, "level " + level + ": "};
  if (allLevels || isPermitted(variation, permitted)) {
    for (Piece& piece : valuePieces(report, property, variation)) {
      line.push_back(std::move(piece));
    }
  } else {
    line.emplace_back("(hidden)", Style::Dim);
  }
  printLine(line);
}

void printProperty(const StoredReport& report, const Property& property, bool allLevels) {
  std::string kind = ": " + typeName(property.property_type);
  if (!property.media_type.empty()) {
    kind += ", " + escaped(property.media_type);
  }
  std::string tags;
  for (const std::string& tag : property.tags) {
    tags += (tags.empty() ? ", tags: " : " ") + escaped(tag);
  }
  printLine({std::string("  "), {escaped(property.stable_id), Style::Bold}, kind, tags});
  std::size_t levelColumns = 0;
  for (const Variation& variation : property.variations) {
    levelColumns = std::max(levelColumns, std::to_string(variation.sensitivity_level).size());
  }
  for (const Variation& variation : property.variations) {
    printVariation(report, property, variation, levelColumns, allLevels);
  }
}

void printReport(const StoredReport& report, std::uint64_t size, const ShowOptions& options,
                 bool utc) {
  printWhole("Report", report.name);
  printField("Stage", stagePiece(report));
  if (report.hasStore) {
    printMetadata(report.metadata, utc);
  }
  printWhole("Path", escaped(report.directory.native()));
  printField("Size", sizeText(size));
  printField("Lock",
             {nameOf(report.lock), report.lock == LockState::Free ? Style::Plain : Style::Yellow});
  if (!report.hasStore) {
    return;
  }
  if (report.metadata.hasUnreadableContents()) {
    printField("Contents", {"unreadable", Style::Red});
    return;
  }
  if (!report.metadata.contents || report.metadata.contents->empty()) {
    printField("Contents", std::string("none"));
    return;
  }
  const std::size_t count = report.metadata.contents->size();
  printField("Contents", std::to_string(count) + (count == 1 ? " property" : " properties"));
  for (const Property& property : *report.metadata.contents) {
    printProperty(report, property, options.allLevels);
  }
}

Json::Value describe(const StoredReport& report, std::uint64_t size, const ShowOptions& options,
                     bool utc) {
  Json::Value value = describeReport(report, {.allLevels = options.allLevels, .utc = utc});
  value["stored_id"] =
      report.metadata.reportId ? Json::Value(report.metadata.reportId->toString()) : Json::Value();
  value["path"] = report.directory.native();
  value["size"] = static_cast<Json::UInt64>(size);
  value["lock"] = nameOf(report.lock);
  return value;
}

ExitStatus show(const Context& context, const ShowOptions& options) {
  const StoredReport report = findReport(context.root, options.id);
  const std::uint64_t size = sizeBelow(report.directory);
  if (context.json) {
    Json::Value document = jsonDocument("report");
    document["report"] = describe(report, size, options, context.utc);
    printJson(document);
  } else {
    printReport(report, size, options, context.utc);
  }
  if (report.soundness == Soundness::Unreadable) {
    return ExitStatus::Failed;
  }
  return report.isSound() ? ExitStatus::Done : ExitStatus::Damage;
}

}  // namespace

void addShow(CLI::App& program, Context& context) {
  const auto verb = addVerb<ShowOptions>(
      program, context, "show", "Show everything that a report holds",
      "  kelp-diagnostics show 3f2a\n"
      "  kelp-diagnostics show 3f2a --all-levels --json\n"
      "\n"
      "\"*\" marks the best variation of each property: the one with the highest level that\n"
      "is permitted. Of a report that is damaged, half-made, mismatched or unreadable, what is\n"
      "known is shown.\n"
      "\n"
      "Exit status: 5 for a report that is damaged, half-made or mismatched, 1 for one that may\n"
      "not be read.\n",
      show);
  addId(*verb.app, verb->id);
  verb.app->add_flag("--all-levels", verb->allLevels, "Also the values above the permitted level");
  addJson(*verb.app, context);
  addUtc(*verb.app, context);
}

}  // namespace KELP::Tool
