#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <regex>
#include <sstream>
#include <stdexcept>

namespace KELP::Test {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

ToolResult ReadingTest::run(const std::vector<std::string>& arguments,
                            const ToolSetting& setting) const {
  return runTool(repository_.arguments(arguments), setting);
}

ToolResult ReadingTest::runOnTerminal(const std::vector<std::string>& arguments,
                                      unsigned short columns, const ToolSetting& setting) const {
  return runToolOnTerminal(repository_.arguments(arguments), setting, columns);
}

void ReadingTest::make(const std::string& id, long created) const {
  const auto report = repository_.create(id);
  repository_.writeKey(id, "created", std::to_string(created));
  repository_.writeKey(id, "modified", std::to_string(created + 60));
}

void ReadingTest::makeDamaged(const std::string& id) const {
  make(id);
  writeFile(storeOf(id), "This is no store, and never was one.");
}

void ReadingTest::makeHalf(const std::string& id) const {
  fs::create_directory(repository_.root() / id);
  writeFile(repository_.root() / id / DiagnosticReport::kReportLockFilename, "");
}

void ReadingTest::makeMismatched(const std::string& id, const std::string& storedId) const {
  make(id);
  repository_.writeKey(id, "report_id", storedId);
}

std::unique_ptr<DiagnosticReport> ReadingTest::open(const std::string& id) const {
  Diagnostic::ReportUuid uuid;
  uuid.parse(id.c_str());
  auto report = repository_.data().openReport(uuid);
  if (!report || !report->acquireWriteLock(false)) {
    throw std::runtime_error("the report was not opened");
  }
  return report;
}

void ReadingTest::addFile(DiagnosticReport& report, const std::string& name,
                          const std::string& content, const std::vector<int>& levels) {
  const TemporaryDirectory directory;
  writeFile(directory / "source", content);
  EXPECT_TRUE(report.createReportFileProperty(name, "text/plain", {}));
  for (const int level : levels) {
    EXPECT_TRUE(report.copyFileToFileProperty(name, level, directory / "source",
                                              name + std::to_string(level) + ".txt", false));
  }
}

std::uint64_t ReadingTest::sizeOf(const std::string& id) const {
  std::uint64_t size = 0;
  for (const auto& entry : fs::recursive_directory_iterator(repository_.root() / id)) {
    size += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
  }
  return size;
}

fs::path ReadingTest::storeOf(const std::string& id) const {
  return repository_.root() / id / DiagnosticReport::kReportMetadataFilename;
}

ToolSetting withEnvironment(const std::map<std::string, std::string>& variables) {
  ToolSetting setting;
  setting.environment = variables;
  return setting;
}

std::string withoutStyles(const std::string& text) {
  return std::regex_replace(text, std::regex("\x1b\\[[0-9;]*m"), "");
}

std::vector<std::string> terminalLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(withoutStyles(text));
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    lines.push_back(line);
  }
  return lines;
}

}  // namespace KELP::Test
