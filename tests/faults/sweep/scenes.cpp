#include "faults/sweep/scenes.h"

#include "support/temporarydirectory.h"

#include <diagnostic/reportcontentproperties.h>

#include <stdexcept>

namespace KELP::Test {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

Diagnostic::ReportUuid sweptId(const char* text) {
  Diagnostic::ReportUuid id;
  require(id.parse(text));
  return id;
}

namespace {

void addFile(DiagnosticReport& report, const fs::path& source, const char* property, int level,
             const char* name) {
  require(report.copyFileToFileProperty(property, level, source, name, false));
}

void addContents(DiagnosticReport& report, const fs::path& outside) {
  const fs::path source = outside / "former";
  writeFile(source, "a line of the former content\n");
  require(report.createReportFileProperty("log", "text/plain", {"t"}));
  addFile(report, source, "log", 20, "a.txt");
  addFile(report, source, "log", 21, "b.txt");
  require(report.createReportFileProperty("map", "text/plain", {}));
  addFile(report, source, "map", 21, "");
  fs::remove(source);
  require(report.createReportStringProperty("text", {}));
  require(report.addReportStringVariation("text", 5, "low", false));
  require(report.addReportStringVariation("text", 21, "high", false));
  require(report.createReportIntegerProperty("number", {}));
  require(report.addReportIntegerVariation("number", 3, 7, false));
}

/** So that a new time of modification can be told from the old one. */
void makeOld(const fs::path& root) {
  using Option = OS::KVStoreOpenOption;
  OS::KeyValueStore store((root / kSweptId / "metadata.db").string(), "metadata", {Option::Shared});
  require(store.set("modified", "1"));
}

void prepareWith(Scene& scene, bool contents, int stages) {
  const auto report = repository(scene).createReport(sweptId(), 1, 2, 3, "device", "session");
  require(report);
  require(report->acquireWriteLock(false));
  require(report->setDescription("old"));
  require(report->setPID(4711));
  require(report->setProcessName("worker"));
  require(report->setLoadedLibraries({"/lib/a", "/lib/b"}));
  if (contents) addContents(*report, scene.outside);
  using Mark = DiagnosticReport::Result (DiagnosticReport::*)();
  const Mark marks[] = {
      &DiagnosticReport::markCreationComplete, &DiagnosticReport::markUserInteractionComplete,
      &DiagnosticReport::markDataCollectionComplete, &DiagnosticReport::markDataPolicyApplied};
  for (int i = 0; i < stages; ++i) {
    require((report.get()->*marks[i])());
  }
  makeOld(scene.root);
}

}  // namespace

void prepareNothing(Scene& /*scene*/) {}
void prepareReport(Scene& scene) {
  prepareWith(scene, true, 0);
}
void prepareBareReport(Scene& scene) {
  prepareWith(scene, false, 0);
}
void prepareCreated(Scene& scene) {
  prepareWith(scene, true, 1);
}
void prepareCollected(Scene& scene) {
  prepareWith(scene, true, 3);
}
void prepareApplied(Scene& scene) {
  prepareWith(scene, true, 4);
}
void prepareDirectory(Scene& scene) {
  fs::create_directories(scene.root);
}

void bloat(const fs::path& file, const std::string& key) {
  constexpr std::uint64_t kFull = std::uint64_t{64} << 10;
  const std::uint64_t header = 16 + key.size();
  OS::KeyValueStore store(file.string(), "", {OS::KVStoreOpenOption::Shared});
  const std::string own = store.get(key).value();
  const std::string filler(3000, 'x');
  while (fs::file_size(file) + 2 * filler.size() < kFull) {
    require(store.set(key, filler));
  }
  const std::uint64_t left = kFull - fs::file_size(file) - header - own.size();
  require(store.set(key, std::string(left - header, 'x')));
  require(store.set(key, own));
}

void arrangeNothing(Scene& /*scene*/) {}
void openUnlocked(Scene& scene) {
  scene.report = repository(scene).openReport(sweptId());
  require(scene.report);
}
void openReadLocked(Scene& scene) {
  openUnlocked(scene);
  require(scene.report->acquireReadLock(false));
}
void openLocked(Scene& scene) {
  openUnlocked(scene);
  require(scene.report->acquireWriteLock(false));
}

std::string inWords(const std::vector<std::string>& values) {
  std::string words;
  for (const std::string& value : values)
    words += value + " ";
  return words;
}

std::string inWords(const DiagnosticReport::Variations& variation) {
  return std::to_string(variation.sensitivity_level) + "=" + variation.relative_path +
         variation.string + std::to_string(variation.integer);
}

std::string inWords(const DiagnosticReport::Properties& property) {
  std::string words = property.stable_id + ":";
  for (const auto& variation : property.variations)
    words += inWords(variation) + ",";
  return words;
}

std::string inWords(const std::vector<DiagnosticReport::Properties>& contents) {
  std::string words;
  for (const auto& property : contents)
    words += inWords(property) + " ";
  return words;
}

Expectation change(std::vector<std::string> messages) {
  Expectation expectation{{kTouchFailure}};
  for (std::string& message : messages)
    expectation.errors.push_back({std::move(message)});
  return expectation;
}

}  // namespace KELP::Test
