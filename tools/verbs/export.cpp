#include "base/clock.h"
#include "base/digest.h"
#include "base/failure.h"
#include "base/interrupt.h"
#include "base/json.h"
#include "base/newfile.h"
#include "base/output.h"
#include "base/progress.h"
#include "base/text.h"
#include "reports/contents.h"
#include "reports/describe.h"
#include "reports/repository.h"
#include "reports/storedfile.h"
#include "verbs/archive.h"
#include "verbs/argument.h"
#include "verbs/protectedfiles.h"
#include "verbs/verb.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kChunk = 256UL * 1024;
constexpr std::chrono::milliseconds kLookEvery{50};

struct ExportOptions {
  std::vector<std::string> ids;
  fs::path output;
  bool allLevels = false;
  bool force = false;
  long waitMs = 0;
};

/** The report, once no writer has it, until @p deadline. Throws a Failure: Busy, or Damage. */
StoredReport readWhenFree(const fs::path& root, const std::string& name,
                          Clock::time_point deadline) {
  for (;;) {
    StoredReport report = readReport(root, name, LockTable());
    if (report.lock != LockState::Write) {
      requireSound(report);
      return report;
    }
    if (Clock::now() >= deadline) {
      failAsBusy(report.name);
    }
    checkInterrupt();
    std::this_thread::sleep_for(kLookEvery);
  }
}

/** A variation that is to be a member. */
struct Wanted {
  const Property* property;
  const Variation* variation;
};

/** Puts reports into an archive, one after the other, and keeps the manifest. */
class Exporter {
 public:
  Exporter(ArchiveWriter& archive, bool allLevels)
      : archive_(archive), allLevels_(allLevels), manifest_(jsonDocument("reports")) {
    manifest_["created"] = timeText(now_, true);
    manifest_["all_levels"] = allLevels_;
  }

  /** @param before the report as it is now. */
  void add(const StoredReport& before, const fs::path& root) {
    entry_ = Json::Value(Json::objectValue);
    entry_["id"] = before.name;
    entry_["stage"] = before.stageText();
    entry_["modified"] = jsonTime(before.metadata.modified, true);
    entry_["permitted_level"] = before.metadata.permittedLevel();
    entry_["members"] = Json::Value(Json::arrayValue);
    entry_["left_out"] = Json::Value(Json::arrayValue);
    const Json::Value stateBefore = describeReport(before, {true, true});

    Json::Value document(Json::objectValue);
    document["schema"] = kJsonSchema;
    document["report"] = describeReport(before, {allLevels_, true});
    addText(before, "report.json", jsonText(document));
    addFiles(before);

    const StoredReport after = readReport(root, before.name, LockTable());
    if (!allLevels_ && after.isSound() &&
        after.metadata.permittedLevel() < before.metadata.permittedLevel()) {
      throw Failure(ExitStatus::Busy, "the permitted level of the report " + before.name +
                                          " was lowered while it was read");
    }
    const bool hasChanged = !after.isSound() || describeReport(after, {true, true}) != stateBefore;
    entry_["changed_while_read"] = hasChanged;
    if (hasChanged) {
      warn("the report " + before.name + " changed while it was read");
    }
    manifest_["reports"].append(std::move(entry_));
  }

  /** Whether every file was there that had to be. */
  [[nodiscard]] bool isComplete() const { return isComplete_; }

  /** Adds the manifest. @return what it says. */
  const Json::Value& finish() {
    const std::string text = jsonText(manifest_);
    archive_.begin("manifest.json", text.size(), now_);
    archive_.write(text);
    return manifest_;
  }

 private:
  static long timeOf(const StoredReport& report) { return report.metadata.modified.value_or(0); }

  void addText(const StoredReport& report, const std::string& name, const std::string& text) {
    const std::string path = report.name + "/" + name;
    archive_.begin(path, text.size(), timeOf(report));
    archive_.write(text);
    Json::Value& member = entry_["members"].append(Json::Value(Json::objectValue));
    member["name"] = path;
    member["size"] = static_cast<Json::UInt64>(text.size());
    member["sha256"] = sha256Of(text);
  }

  void addFiles(const StoredReport& report) {
    const ProtectedFiles protectedFiles(report, allLevels_);
    for (const auto& [path, wanted] : wantedOf(report)) {
      addFile(report, path, wanted, protectedFiles);
    }
  }

  /** The members by their paths. What is above the permitted level is noted as left out. */
  std::map<std::string, Wanted> wantedOf(const StoredReport& report) {
    std::map<std::string, Wanted> members;
    if (!report.metadata.contents) {
      return members;
    }
    for (const Property& property : *report.metadata.contents) {
      for (const Variation& variation : property.variations) {
        const Wanted wanted{&property, &variation};
        if (!allLevels_ && !isPermitted(variation, report.metadata.permittedLevel())) {
          leaveOut(wanted, "level");
        } else if (property.isFileProperty()) {
          const std::string path = pathOf(report, wanted);
          std::string free = path;  // One property, or level, may be there twice.
          for (int number = 2; !members.try_emplace(free, wanted).second; ++number) {
            free = path + "%~" + std::to_string(number);
          }
        }
      }
    }
    return members;
  }

  static std::string pathOf(const StoredReport& report, const Wanted& wanted) {
    return report.name + "/files/" + memberNameOf(wanted.property->stable_id) + "/" +
           std::to_string(wanted.variation->sensitivity_level) + "/" +
           memberNameOf(fs::path(wanted.variation->relative_path).filename().native());
  }

  void addFile(const StoredReport& report, const std::string& path, const Wanted& wanted,
               const ProtectedFiles& protectedFiles) {
    StoredFile file(report, *wanted.variation);
    if (const FileState state = file.state(); state != FileState::Present) {
      leaveOutFile(report, wanted, nameOf(state));
      return;
    }
    if (protectedFiles.include(file.status())) {
      leaveOutFile(report, wanted, "protected");
      return;
    }
    const auto size = static_cast<std::uint64_t>(file.status().st_size);
    archive_.begin(path, size, timeOf(report));
    Json::Value member(Json::objectValue);
    member["sha256"] = copy(file, size);
    member["name"] = path;
    member["size"] = static_cast<Json::UInt64>(size);
    member["property"] = wanted.property->stable_id;
    member["level"] = wanted.variation->sensitivity_level;
    member["file"] = fs::path(wanted.variation->relative_path).filename().native();
    member["changed_while_read"] = file.hasChanged();
    if (file.hasChanged()) {
      warn(whatOf(report, wanted) + ": the file changed while it was read");
    }
    entry_["members"].append(std::move(member));
  }

  /** The first @p size bytes; zeros for what it has less by now. @return their digest. */
  std::string copy(StoredFile& file, std::uint64_t size) {
    Sha256 digest;
    const std::string zeros(kChunk, '\0');
    while (size > 0) {
      const std::size_t wanted = std::min<std::uint64_t>(size, kChunk);
      std::string_view piece = file.read(wanted);
      if (piece.empty()) {
        piece = std::string_view(zeros).substr(0, wanted);
      }
      digest.add(piece);
      archive_.write(piece);
      size -= piece.size();
    }
    return digest.take();
  }

  void leaveOut(const Wanted& wanted, const char* reason) {
    Json::Value& left = entry_["left_out"].append(Json::Value(Json::objectValue));
    left["property"] = wanted.property->stable_id;
    left["level"] = wanted.variation->sensitivity_level;
    left["reason"] = reason;
  }

  void leaveOutFile(const StoredReport& report, const Wanted& wanted, const char* reason) {
    leaveOut(wanted, reason);
    isComplete_ = false;
    warn(whatOf(report, wanted) + ": left out, the file is " + reason);
  }

  static std::string whatOf(const StoredReport& report, const Wanted& wanted) {
    return report.name + ": " + inQuotes(wanted.property->stable_id) + " at level " +
           std::to_string(wanted.variation->sensitivity_level);
  }

  ArchiveWriter& archive_;
  bool allLevels_;
  long now_ = currentTime();
  bool isComplete_ = true;
  Json::Value manifest_;
  Json::Value entry_;  ///< Of the report that is being added.
};

ExitStatus exportReports(const Context& context, const ExportOptions& options) {
  const std::optional<ArchiveFormat> format = archiveFormatOf(options.output);
  if (!format) {
    throw Failure(ExitStatus::Usage, inQuotes(options.output.native()) +
                                         " does not end in .tar.zst, .tar.gz, .tgz or .zip");
  }
  const std::vector<std::string> names = resolveNames(context.root, options.ids);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(options.waitMs);
  for (const std::string& name : names) {  // Before anything is written.
    static_cast<void>(readWhenFree(context.root, name, deadline));
  }
  NewFile file(options.output, options.force);
  ArchiveWriter archive(file.descriptor(), escaped(options.output.native()), *format);
  Exporter exporter(archive, options.allLevels);
  {
    Progress progress("Exporting reports", names.size());
    for (const std::string& name : names) {
      exporter.add(readWhenFree(context.root, name, deadline), context.root);
      progress.step();
    }
  }
  const Json::Value& manifest = exporter.finish();
  archive.close();
  checkInterrupt();
  file.commit();
  if (context.json) {
    printJson(manifest);
  }
  return exporter.isComplete() ? ExitStatus::Done : ExitStatus::Damage;
}

}  // namespace

void addExport(CLI::App& program, Context& context) {
  const auto verb = addVerb<ExportOptions>(
      program, context, "export", "Put reports into an archive, with what their consent permits",
      "  kelp-diagnostics export 3f2a -o report.zip\n"
      "  kelp-diagnostics export 3f2a 91c0 -o reports.tar.zst --force\n"
      "  kelp-diagnostics export 3f2a -o all.tar.gz --all-levels --wait 10s\n"
      "\n"
      "Exit status: 5 also when the archive was written without a file that is missing, or is "
      "none;\n"
      "the manifest says which.\n",
      exportReports);
  verb.app->add_option("ID", verb->ids, "The reports: identifiers, or beginnings of them")
      ->required();
  addWord(*verb.app, "-o,--output", verb->output,
          "The archive: a name that ends in .tar.zst, .tar.gz, .tgz or .zip")
      ->type_name("FILE")
      ->required();
  verb.app->add_flag("--all-levels", verb->allLevels,
                     "Also values and files above the permitted level");
  verb.app->add_flag("--force", verb->force, "Replace the archive if it exists");
  addWait(*verb.app, verb->waitMs);
  verb.app->add_flag("--json", context.json, "Print the archive's manifest");
}

}  // namespace KELP::Tool
