#include "base/output.h"
#include "base/text.h"
#include "reports/contents.h"
#include "reports/describe.h"
#include "reports/repository.h"
#include "reports/storedfile.h"
#include "verbs/argument.h"
#include "verbs/protectedfiles.h"
#include "verbs/verb.h"

#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace KELP::Tool {
namespace {

constexpr std::size_t kPiece = 65'536;

struct CatOptions {
  std::string id;
  std::string name;
  std::optional<int> level;
  bool allLevels = false;
  bool force = false;
};

const Property& requireProperty(const StoredReport& report, const std::string& name) {
  if (const Property* const property = findProperty(report, name)) {
    return *property;
  }
  throw Failure(ExitStatus::NotFound,
                "the report " + report.name + " has no property " + inQuotes(name));
}

/** The variation that is asked for. Throws a Failure when there is none, and when it must not get
 * out. */
const Variation& requireVariation(const Property& property, int permitted,
                                  const CatOptions& options) {
  const auto refuse = [&](const std::string& what) {
    throw Failure(ExitStatus::Failed, what + " above the permitted level " +
                                          std::to_string(permitted) +
                                          " (--all-levels writes it all the same)");
  };
  const std::string name = inQuotes(property.stable_id);
  constexpr int kAll = std::numeric_limits<int>::max();
  const Variation* const wanted =
      options.level ? findVariation(property, *options.level)
                    : bestVariation(property, options.allLevels ? kAll : permitted);
  if (wanted == nullptr) {
    if (!options.level && bestVariation(property, kAll) != nullptr) {
      refuse("every variation of " + name + " is");
    }
    throw Failure(ExitStatus::NotFound, options.level ? name + " has no variation of level " +
                                                            std::to_string(*options.level)
                                                      : name + " has no variation to choose");
  }
  if (!options.allLevels && !isPermitted(*wanted, permitted)) {
    refuse("level " + std::to_string(wanted->sensitivity_level) + " of " + name + " is");
  }
  return *wanted;
}

/** Throws a Failure (Damage) unless @p file is a regular file within the report, and not another
 * name of one that must not get out. */
void requireReadable(const StoredFile& file, const std::string& name,
                     const ProtectedFiles& protectedFiles) {
  switch (file.state()) {
    case FileState::Missing:
      throw Failure(ExitStatus::Damage, "the file " + name + " is missing");
    case FileState::Outside:
      throw Failure(ExitStatus::Damage, "the file " + name + " is outside of the report");
    case FileState::Irregular:
      throw Failure(ExitStatus::Damage, "the file " + name + " is not a regular file");
    case FileState::Present:
      break;
  }
  if (protectedFiles.include(file.status())) {
    throw Failure(ExitStatus::Damage,
                  "the file " + name + " is another name of one that is not handed on");
  }
}

/** Calls @p take with one piece of @p file after the other, until it returns false. Characters of
 * UTF-8 stay whole. */
void forEachPieceOfText(StoredFile& file, const std::function<bool(std::string_view)>& take) {
  file.rewind();
  std::string left;
  for (;;) {
    const std::string_view piece = file.read(kPiece);
    left += piece;
    const std::size_t whole = piece.empty() ? left.size() : wholeCharacters(left);
    if (left.empty() || !take(std::string_view(left).substr(0, whole))) {
      return;
    }
    left.erase(0, whole);
  }
}

[[noreturn]] void refuseBinary(const std::string& what) {
  throw Failure(ExitStatus::Failed, what + " is binary (--force writes it to the terminal)");
}

void copyToOutput(StoredFile& file) {
  for (std::string_view piece = file.read(kPiece); !piece.empty(); piece = file.read(kPiece)) {
    print(piece);
  }
}

void writeFile(StoredFile& file, const std::string& name, bool forTerminal) {
  if (!forTerminal) {
    copyToOutput(file);
    return;
  }
  bool isBinary = false;
  forEachPieceOfText(file, [&](std::string_view piece) {
    isBinary = !isText(piece);
    return !isBinary;
  });
  if (isBinary) {
    refuseBinary("the file " + name);
  }
  forEachPieceOfText(file, [](std::string_view piece) {
    print(escapedLines(piece));
    return true;
  });
}

void writeValue(const std::string& value, const std::string& name, bool forTerminal) {
  if (forTerminal && !isText(value)) {
    refuseBinary("the value of " + inQuotes(name));
  }
  print(forTerminal ? escapedLines(value) : value);
}

ExitStatus cat(const Context& context, const CatOptions& options) {
  const StoredReport report = findSoundReport(context.root, options.id);
  const Property& property = requireProperty(report, options.name);
  const Variation& variation =
      requireVariation(property, report.metadata.permittedLevel(), options);
  const bool forTerminal = outputIsTerminal() && !options.force;
  if (property.isFileProperty()) {
    StoredFile file(report, variation);
    const std::string name = inQuotes(pathInReport(report, variation));
    requireReadable(file, name, ProtectedFiles(report, options.allLevels));
    writeFile(file, name, forTerminal);
  } else {
    writeValue(valueText(variation, property.property_type), options.name, forTerminal);
  }
  return ExitStatus::Done;
}

}  // namespace

void addCat(CLI::App& program, Context& context) {
  const auto verb = addVerb<CatOptions>(
      program, context, "cat", "Write a value or a file of a report to the standard output",
      "  kelp-diagnostics cat 3f2a log > log.txt\n"
      "  kelp-diagnostics cat 3f2a screenshot --level 10 | display\n"
      "  kelp-diagnostics cat 3f2a log --level 40 --all-levels\n"
      "\n"
      "Bytes are written as they are stored, and nothing is added. Only on a terminal are\ncontrol "
      "characters escaped, but for newlines and tabs.\n",
      cat);
  addId(*verb.app, verb->id);
  addText(*verb.app, "NAME", verb->name, "The property")->required();
  addInteger(*verb.app, "--level", verb->level,
             "The variation of this level, instead of the best one that is permitted")
      ->type_name("LEVEL");
  verb.app->add_flag("--all-levels", verb->allLevels, "Also levels above the permitted one");
  verb.app->add_flag("--force", verb->force,
                     "Write to a terminal too what is binary, and escape nothing");
}

}  // namespace KELP::Tool
