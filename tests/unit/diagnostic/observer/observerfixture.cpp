#include "unit/diagnostic/observer/observerfixture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <utility>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** What the identifiers of the fixture's own reports begin with. */
constexpr const char* kSentinel = "5e471e10";

std::string idWith(const char* beginning, int number) {
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "%s-0000-4000-8000-%012d", beginning, number);
  return text.data();
}

std::string textOf(const LogLine& line) {
  return std::to_string(line.priority) + ' ' + line.tag + ": " + line.text;
}

}  // namespace

std::string idText(int number) {
  return idWith("ab00cd00", number);
}

LogLine removalLine(int wd) {
  return {kDebug, "diagnosticdata", "Removing subfile watcher " + std::to_string(wd)};
}

std::vector<std::string> sortedTexts(const std::vector<LogLine>& lines) {
  std::vector<std::string> texts;
  std::transform(lines.begin(), lines.end(), std::back_inserter(texts), textOf);
  std::sort(texts.begin(), texts.end());
  return texts;
}

Events withoutSentinels(Events events) {
  std::erase_if(events, [](const ReportEvent& event) { return event.id.starts_with(kSentinel); });
  return events;
}

ObserverTest::ObserverTest() {
  fs::create_directory(root_);
  before_ = resourcesNow();
  observer_.emplace(std::make_shared<Diagnostic::DiagnosticData>(root_), recorder_.callback(),
                    &client_);
}

void ObserverTest::TearDown() {
  observer_.reset();
}

Events ObserverTest::existingReports() {
  Events events;
  for (const Diagnostic::ReportUuid& id : repository_.getAllReportUuids()) {
    events.push_back(existing(id.toString()));
  }
  return events;
}

ReportEvent ObserverTest::event(EventType type, const std::string& id) {
  return {id, static_cast<int>(type), &client_};
}
ReportEvent ObserverTest::existing(const std::string& id) {
  return event(EventType::REPORT_EXISTING, id);
}
ReportEvent ObserverTest::added(const std::string& id) {
  return event(EventType::REPORT_ADDED, id);
}
ReportEvent ObserverTest::updated(const std::string& id) {
  return event(EventType::REPORT_UPDATED, id);
}
ReportEvent ObserverTest::removed(const std::string& id) {
  return event(EventType::REPORT_REMOVED, id);
}

fs::path ObserverTest::makeBareElsewhere(const std::string& name) const {
  fs::path made = directory_ / "bare" / name;
  fs::create_directories(made);
  writeFile(made / "metadata.db", "");
  return made;
}

fs::path ObserverTest::makeReportElsewhere(const std::string& id) const {
  const Diagnostic::DiagnosticData elsewhere(directory_ / "elsewhere");
  EXPECT_NE(elsewhere.createReport(uuid(id.c_str()), 1, 2, 3, "device", "session"), nullptr);
  return elsewhere.getRootPath() / id;
}

void ObserverTest::link(const fs::path& target, const std::string& name) const {
  fs::create_directory_symlink(target, root_ / name);
}

void ObserverTest::linkUnseen(const fs::path& target, const std::string& name) const {
  fs::create_directory_symlink(target, directory_ / "link");
  fs::rename(directory_ / "link", root_ / name);
}

void ObserverTest::makeReport(const std::string& id) const {
  EXPECT_NE(create(uuid(id.c_str())), nullptr);
}

std::string ObserverTest::makeSentinel() {
  std::string id = idWith(kSentinel, ++sentinels_);
  const fs::path target = makeBareElsewhere(id);
  link(target, id);
  return id;
}

Events ObserverTest::eventsUntilNow() {
  recorder_.waitFor(added(makeSentinel()));
  static_cast<void>(observer().isValidReport(id_));  // Waits for the end of that callback.
  return withoutSentinels(recorder_.take());
}

void ObserverTest::whileDelivering(const std::function<void()>& change) {
  const auto gate = std::make_shared<Gate>();
  recorder_.onEach([gate](const ReportEvent&) { gate->pass(); });
  const std::string held = makeSentinel();
  gate->waitForArrival();
  recorder_.onEach({});
  change();
  gate->open();
}

void ObserverTest::tellRoot(std::uint32_t mask, const std::string& name) {
  InotifyRecord record(mask, name);
  observer().rootFileObserverCallback(record.get(), nullptr);
}

void ObserverTest::tellReport(const std::string& id, std::uint32_t mask, const std::string& name) {
  InotifyRecord record(mask, name);
  observer().reportFileObserverCallback(uuid(id.c_str()), record.get(), nullptr);
}

bool ObserverTest::isWatched(const fs::path& path) const {
  const ino_t inode = inodeOf(path);
  const auto watches = kernelWatches();
  return std::any_of(watches.begin(), watches.end(), [&](const KernelWatch& watch) {
    return watch.inode == inode && watch.mask == kReportMask;
  });
}

std::vector<int> ObserverTest::reportWatches() const {
  std::vector<int> descriptors;
  for (const KernelWatch& watch : kernelWatches()) {
    if (watch.mask == kReportMask) {
      descriptors.push_back(watch.wd);
    }
  }
  return descriptors;
}

std::vector<std::string> ObserverTest::removalTexts() const {
  std::vector<LogLine> lines;
  for (const int wd : reportWatches()) {
    lines.push_back(removalLine(wd));
  }
  return sortedTexts(lines);
}

}  // namespace KELP::Test
