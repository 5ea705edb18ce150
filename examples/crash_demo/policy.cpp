#include "contents.h"
#include "openreport.h"
#include "roles.h"
#include "steps.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <utility>

namespace CrashDemo {
namespace {

namespace fs = std::filesystem;
using KELP::Diagnostic::DiagnosticReport;

/** What is said of each variation, under the name of its property and its level. */
using Inventory = std::map<std::pair<std::string, int>, std::string>;

Inventory takeInventory(const DiagnosticReport& report) {
  Inventory inventory;
  for (const auto& property : require(report.getReportContents(), "the contents")) {
    for (const auto& variation : property.variations) {
      inventory[{property.stable_id, variation.sensitivity_level}] =
          Contents::describe(report, property, variation);
    }
  }
  return inventory;
}

/** The files on disk, with their paths in the report. */
std::set<std::string> storedFiles(const DiagnosticReport& report) {
  const fs::path directory = require(report.getReportDirPath(), "the directory of the report");
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(
           directory / DiagnosticReport::kReportContentFilesDirectoryName)) {
    if (entry.is_regular_file()) {
      files.insert(entry.path().lexically_relative(directory).string());
    }
  }
  return files;
}

/** What @p before has and @p after has not. */
template <typename Collection>
Collection lost(const Collection& before, const Collection& after) {
  Collection difference;
  std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                      std::inserter(difference, difference.end()));
  return difference;
}

void show(const Console& console, const char* fate, const Inventory& inventory) {
  for (const auto& [key, text] : inventory) {
    console.field(fate, key.first + " at level " + std::to_string(key.second) + ": " + text);
  }
}

}  // namespace

void runPolicy(const Console& console, Assignment& assignment) {
  OpenReport report(console, assignment);
  require(report->canApplyDataPolicy(), "being allowed to apply the policy");
  const int permitted = std::min(report->getCurrentConsentLevel(), report->getMaxConsentLevel());
  const Inventory before = takeInventory(*report);
  const auto filesBefore = storedFiles(*report);

  require(report->applyPolicyFilters(), "applying the policy");
  const Inventory kept = takeInventory(*report);
  const Inventory dropped = lost(before, kept);
  console.say("applied the policy: what is above level " + std::to_string(permitted) +
              " is dropped");
  show(console, "dropped", dropped);
  show(console, "kept", kept);
  for (const std::string& file : lost(filesBefore, storedFiles(*report))) {
    console.field("removed from disk", file);
  }
  for (const auto& [key, text] : before) {
    require((key.second > permitted) == (dropped.count(key) == 1),
            "dropping what is above the permitted level, and only that");
  }

  require(report->markDataPolicyApplied(), "marking the policy as applied");
  console.say("marked the data policy as applied");
  report.release();
}

}  // namespace CrashDemo
