#include "integration/observer/observerfixture.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

Diagnostic::ReportUuid parsed(const std::string& text) {
  Diagnostic::ReportUuid id;
  if (!id.parse(text.c_str())) {
    throw std::invalid_argument(text);
  }
  return id;
}

}  // namespace

std::string idText(int number) {
  std::string digits = std::to_string(number);
  digits.insert(0, 12 - digits.size(), '0');
  return "00000000-0000-4000-8000-" + digits;
}

std::string joined(const std::vector<std::string>& ids) {
  std::string text;
  for (const std::string& id : ids) {
    text += " " + id;
  }
  return text;
}

ObserverTest::ObserverTest(const std::optional<fs::path>& parent)
    : root_(parent.value_or(directory_.path()) / "reports") {
  EXPECT_NE(repository_->createReport(parsed(sentinel_), 1, 2, 3, "device", "session"), nullptr);
}

void ObserverTest::TearDown() {
  EXPECT_THAT(recorder_.contradictions(), testing::IsEmpty());
}

std::unique_ptr<ObserverTest::Observer> ObserverTest::makeObserver() {
  return std::make_unique<Observer>(repository_, recorder_.callback(), nullptr);
}

Ids ObserverTest::reportsOnDisk() const {
  Ids ids;
  for (const fs::directory_entry& entry : fs::directory_iterator(root_)) {
    if (fs::exists(entry.path() / DiagnosticReport::kReportMetadataFilename)) {
      ids.insert(entry.path().filename());
    }
  }
  return ids;
}

void ObserverTest::touch(const std::string& id) const {
  const auto report = repository_->openReport(parsed(id));
  if (!report || !report->acquireWriteLock(true) || !report->touch()) {
    throw std::runtime_error("the report cannot be changed");
  }
}

Announcements ObserverTest::takeAll() {
  touchSentinel();
  return recorder_.takeUntil({sentinel_, EventType::REPORT_UPDATED});
}

}  // namespace KELP::Test
