#include "tools/watching/exporttest.h"

#include "support/childprocess.h"

#include <gmock/gmock.h>
#include <json/reader.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace KELP::Test {

namespace fs = std::filesystem;

namespace {

Json::Value parsed(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  std::string complaint;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &complaint)) {
    throw std::runtime_error(complaint + text);
  }
  return value;
}

}  // namespace

std::string shell(const std::string& script, const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"/bin/bash", "-o", "pipefail", "-ec", script};
  command.insert(command.end(), arguments.begin(), arguments.end());
  ChildProcess process(command);
  process.closeInput();
  std::string output;
  while (const auto line = process.receive(std::chrono::seconds(60))) {
    output += *line + "\n";
  }
  EXPECT_EQ(process.wait(), 0) << script;
  return output;
}

std::string Unpacked::content(const std::string& member) const {
  return readFile(members.at(member));
}

Json::Value Unpacked::json(const std::string& member) const {
  return parsed(content(member));
}

ExportTest::ExportTest() {
  fs::create_directory(work_ / "out");
  fs::create_directory(work_ / "sources");
}

void ExportTest::createUsual(const std::string& id) const {
  const auto report = repository_.create(id);
  EXPECT_TRUE(report->setProcessName("camera"));
  EXPECT_TRUE(report->createReportStringProperty("mode", {"ui"}));
  EXPECT_TRUE(report->addReportStringVariation("mode", 10, "plain mode", false));
  EXPECT_TRUE(report->addReportStringVariation("mode", 30, "secret mode", false));
  EXPECT_TRUE(report->createReportFileProperty("log", "text/plain", {}));
  attach(*report, "log", 10, "short.txt", "short text\n");
  attach(*report, "log", 30, "secret.txt", "secret text\n");
}

void ExportTest::attach(Diagnostic::DiagnosticReport& report, const std::string& property,
                        int level, const std::string& file, const std::string& content) const {
  const fs::path source = work_ / "sources" / "source";
  writeFile(source, content);
  if (!report.hasReportFileProperty(property)) {
    ASSERT_TRUE(report.createReportFileProperty(property, "", {}));
  }
  ASSERT_TRUE(report.copyFileToFileProperty(property, level, source, file, false)) << file;
}

std::vector<std::string> ExportTest::arguments(const std::string& archive,
                                               std::vector<std::string> more) const {
  more.insert(more.begin(), {"export", "-o", pathOf(archive).native()});
  return repository_.arguments(more);
}

ToolResult ExportTest::exportTo(const std::string& archive, const std::vector<std::string>& more,
                                const ToolSetting& setting) const {
  return runTool(arguments(archive, more), setting);
}

fs::path ExportTest::pathOf(const std::string& archive) const {
  return work_ / "out" / archive;
}

std::vector<std::string> ExportTest::outputs() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(work_ / "out")) {
    names.push_back(entry.path().filename().native());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Unpacked ExportTest::unpack(const std::string& archive) const {
  const fs::path target = work_ / ("unpacked-" + archive);
  fs::remove_all(target);
  fs::create_directory(target);
  const bool isZip = archive.ends_with(".zip");
  const std::string complaints = shell(isZip ? R"(TZ=UTC LC_ALL=C.UTF-8 unzip -q "$0" -d "$1" 2>&1)"
                                             : R"(LC_ALL=C.UTF-8 tar -xf "$0" -C "$1" 2>&1)",
                                       {pathOf(archive).native(), target.native()});
  EXPECT_EQ(complaints, "");
  Unpacked unpacked;
  for (const auto& entry : fs::recursive_directory_iterator(target)) {
    if (!entry.is_directory()) {
      unpacked.members[entry.path().lexically_relative(target).native()] = entry.path();
    }
  }
  unpacked.manifest = unpacked.json("manifest.json");
  return unpacked;
}

}  // namespace KELP::Test
