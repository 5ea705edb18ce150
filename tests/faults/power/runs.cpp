#include "faults/power/runs.h"

#include "support/namedrow.h"
#include "support/temporarydirectory.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>
#include <os/keyvaluestore.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticReport;
using ReportPtr = std::unique_ptr<DiagnosticReport>;

constexpr const char* kText = "text";
constexpr const char* kLog = "log";

/** Throws unless the result, the pointer or the truth is there: no run goes on without. */
template <typename T>
T need(T value) {
  if (!value) throw std::runtime_error("a step of the run failed");
  return value;
}

/** One system call each, which the recorder sees. */
void say(const std::string& line) {
  const std::string text = line + "\n";
  need(::write(STDOUT_FILENO, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
}

Diagnostic::ReportUuid idOf(const char* text) {
  Diagnostic::ReportUuid id;
  need(id.parse(text));
  return id;
}

std::string nameOf(const char* id) {
  return std::string("reports/") + id;
}

ReportPtr create(const World& world, const char* id) {
  ReportPtr report = need(
      DiagnosticData(world.root()).createReport(idOf(id), 11, 22, -33, "device-4", "session-5"));
  need(report->acquireWriteLock(false));
  return report;
}

ReportPtr open(const World& world, const char* id) {
  ReportPtr report = need(DiagnosticData(world.root()).openReport(idOf(id)));
  need(report->acquireWriteLock(false));
  return report;
}

void close(ReportPtr& report, const char* id) {
  report.reset();
  say("sealed " + nameOf(id));
}

void fill(DiagnosticReport& report) {
  need(report.setDescription("what happened"));
  need(report.createReportStringProperty(kText, {"ui"}));
  need(report.addReportStringVariation(kText, 21, "value", false));
  need(report.markCreationComplete());
}

void prepareBystander(const World& world) {
  fill(*create(world, kBystander));
  writeFile(world.source(), std::string(20'000, 's'));
}

void prepareFirst(const World& world) {
  prepareBystander(world);
  fill(*create(world, kFirst));
}

/** A report with files, one of them more confidential than what the user agreed to. */
void prepareFiles(const World& world) {
  prepareBystander(world);
  const ReportPtr report = create(world, kFirst);
  need(report->createReportFileProperty(kLog, "text/plain", {}));
  need(report->copyFileToFileProperty(kLog, 20, world.source(), "a.txt", false));
  need(report->copyFileToFileProperty(kLog, 25, world.source(), "b.txt", false));
  need(report->createReportFileProperty("map", "text/plain", {}));
  need(report->copyFileToFileProperty("map", 25, world.source(), "", false));
  fill(*report);
}

void createAndFill(const World& world) {
  ReportPtr report = create(world, kFirst);
  fill(*report);
  close(report, kFirst);
}

void prepareNothing(const World&) {}

void reopen(const World& world) {
  for (const char* description : {"first", "second"}) {
    ReportPtr report = open(world, kFirst);
    need(report->setDescription(description));
    need(report->setCurrentConsentLevel(10));
    close(report, kFirst);
  }
  const ReportPtr report = open(world, kFirst);
  need(report->markUserInteractionComplete());
  need(report->markDataCollectionComplete());
}

void changeVariations(const World& world) {
  ReportPtr report = open(world, kFirst);
  need(report->createReportIntegerProperty("number", {}));
  for (const int level : {1, 15, 29}) {
    need(report->addReportIntegerVariation("number", level, level, false));
  }
  need(report->addReportStringVariation(kText, 21, std::string(6000, 'v'), true));
  close(report, kFirst);
  report = open(world, kFirst);
  need(report->removeIntegerVariation("number", 1));
  need(report->applyPolicyFilters());
  need(report->removeReportIntegerProperty("number"));
}

void copyFiles(const World& world) {
  ReportPtr report = open(world, kFirst);
  need(report->copyFileToFileProperty(kLog, 5, world.source(), "new.txt", false));
  need(report->copyFileToFileProperty(kLog, 20, world.source(), "", true));
  close(report, kFirst);
  report = open(world, kFirst);
  need(report->removeFileVariation(kLog, 20));
  need(report->applyPolicyFilters());
  need(report->removeReportFileProperty(kLog));
}

bool toUpper(std::ifstream& input, std::ofstream& output) {
  std::transform(std::istreambuf_iterator<char>(input), {}, std::ostreambuf_iterator<char>(output),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return true;
}

void useTemporaryFiles(const World& world) {
  ReportPtr report = open(world, kFirst);
  auto file = need(report->createReportTemporaryFile());
  std::ofstream(file.value()->getPath().value()) << "from the scratch directory\n";
  need(report->moveReportTemporaryFileToFileProperty(kLog, 5, file.value(), "new.txt", false));
  need(report->filterFileVariation(kLog, 20, toUpper));
  need(report->purgeReportTemporaryFiles());
  close(report, kFirst);
}

void syncPath(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  need(descriptor >= 0);
  need(::fsync(descriptor) == 0);
  need(::close(descriptor) == 0);
}

/** Copies a file in the way that keeps it through a cut: docs/durability.md. */
void copyFileDurably(const World& world) {
  ReportPtr report = open(world, kFirst);
  need(report->createReportFileProperty("dump", "text/plain", {}));
  need(report->copyFileToFileProperty("dump", 5, world.source(), "d.txt", false));
  const fs::path file = need(report->getReportFileVariationPath("dump", 5)).value();
  const fs::path directory = need(report->getReportDirPath()).value();
  for (fs::path path = file;; path = path.parent_path()) {
    syncPath(path);
    if (fs::equivalent(path, directory)) break;
  }
  close(report, kFirst);
  say("whole " + file.lexically_relative(world.top).string());
  report = open(world, kFirst);
  need(report->setDescription("afterwards"));
}

void prepareDeletion(const World& world) {
  prepareFiles(world);
  fill(*create(world, kSecond));
  fs::resize_file(world.root() / kSecond / "metadata.db", 0);  // Does not open any more.
}

void deleteReports(const World& world) {
  const DiagnosticData repository(world.root());
  for (const char* id : {kFirst, kSecond}) {
    say("deleting " + nameOf(id));
    need(repository.deleteReport(idOf(id), id == kSecond));
  }
}

void deleteNewReport(const World& world) {
  ReportPtr report = create(world, kFirst);
  fill(*report);
  say("deleting " + nameOf(kFirst));
  need(report->deleteReport());
}

void compact(const World& world) {
  ReportPtr report = open(world, kFirst);
  for (int i = 0; i < 18; ++i) {
    need(report->setDescription(std::string(9000, static_cast<char>('a' + i))));
    if (i == 3) {
      report.reset();
      say("sealed " + nameOf(kFirst));
      report = open(world, kFirst);
    }
  }
  close(report, kFirst);
}

OS::KeyValueStore openStore(const World& world, OS::KeyValueStore::Options options) {
  return OS::KeyValueStore(world.store().string(), "store", options);
}

std::string valueOf(int i) {
  return std::string(i % 5 == 0 ? 9000U : 10U, static_cast<char>('a' + i % 26));
}

using Option = OS::KVStoreOpenOption;

void syncEachWrite(const World& world) {
  OS::KeyValueStore store =
      openStore(world, {Option::SyncEachWrite, Option::CreateIfMissing, Option::Shared});
  const std::vector<std::string> keys = storeKeys();
  for (int i = 0; i < 45; ++i) {
    const std::string& key = keys[static_cast<std::size_t>(i) % keys.size()];
    need(i % 7 == 6 ? store.remove(key) : store.set(key, valueOf(i)));
    say("sealed store.db");
  }
}

void syncNowAndThen(const World& world) {
  OS::KeyValueStore store = openStore(world, {Option::CreateIfMissing, Option::Shared});
  const std::vector<std::string> keys = storeKeys();
  for (int i = 0; i < 45; ++i) {
    need(store.set(keys[static_cast<std::size_t>(i) % keys.size()], valueOf(i)));
    if (i % 9 == 4) {
      need(store.sync());
      say("sealed store.db");
    }
  }
}

void changeTwoReports(const World& world) {
  ReportPtr first = create(world, kFirst);
  ReportPtr second = create(world, kSecond);
  fill(*first);
  need(second->setDescription("the other"));
  close(first, kFirst);
  fill(*second);
  first = open(world, kFirst);
  need(first->setDescription("again"));
  need(second->setDescription("again, the other"));
  close(second, kSecond);
  close(first, kFirst);
}

/** Closes a report that its creator still has open: nobody has synced its names yet. */
void closeBeforeCreator(const World& world) {
  const ReportPtr creator = create(world, kFirst);
  need(creator->releaseLock());
  ReportPtr report = open(world, kFirst);
  fill(*report);
  report.reset();
  say("sealed-in-order " + nameOf(kFirst));
}

/** A report whose last change, a long one, was cut by an earlier power cut. */
void prepareTornTail(const World& world) {
  prepareFirst(world);
  const fs::path metadata = world.root() / kFirst / "metadata.db";
  need(open(world, kFirst)->setDescription(std::string(9000, 'T')));
  fs::resize_file(metadata, fs::file_size(metadata) - 100);
}

void changeBehindTornTail(const World& world) {
  ReportPtr report = open(world, kFirst);
  need(report->setDescription("short"));
  close(report, kFirst);
}

}  // namespace

std::vector<std::string> storeKeys() {
  return {"a", "b", "c", "d"};
}

std::ostream& operator<<(std::ostream& out, const PowerRun& run) {
  return out << run.name;
}

const std::vector<PowerRun>& powerRuns() {
  static const std::vector<PowerRun> all{
      {"CreateFirst", prepareNothing, createAndFill},
      {"Create", prepareBystander, createAndFill},
      {"Reopen", prepareFirst, reopen},
      {"Variations", prepareFirst, changeVariations},
      {"CopyFiles", prepareFiles, copyFiles},
      {"CopyFileDurably", prepareFirst, copyFileDurably},
      {"TemporaryFiles", prepareFiles, useTemporaryFiles},
      {"Delete", prepareDeletion, deleteReports},
      {"DeleteNew", prepareBystander, deleteNewReport},
      {"Compact", prepareFirst, compact},
      {"SyncEachWrite", prepareBystander, syncEachWrite, true},
      {"SyncNowAndThen", prepareBystander, syncNowAndThen},
      {"TwoReports", prepareBystander, changeTwoReports},
      {"CloseBeforeCreator", prepareBystander, closeBeforeCreator},
      {"TornTail", prepareTornTail, changeBehindTornTail},
  };
  return all;
}

const PowerRun& powerRun(const std::string& name) {
  return rowNamed(powerRuns(), name);
}

}  // namespace KELP::Test
