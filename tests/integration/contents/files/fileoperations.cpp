#include "integration/contents/files/fileoperations.h"

#include "support/namedrow.h"
#include "support/temporarydirectory.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Report = FileOperation::Report;
using Result = Report::Result;

constexpr const char* kLog = "log";

/** What preparations cannot go on without. */
void require(const Result& result) {
  if (!result) throw std::runtime_error(result.error().message);
}

/** Two files, of which new reports may keep the first, and something that is no file. */
void prepareFiles(Report& report, const fs::path& outside) {
  const fs::path source = outside / "former";
  writeFile(source, "a line of the former content\n");
  require(report.createReportFileProperty(kLog, "text/plain", {}));
  require(report.copyFileToFileProperty(kLog, 20, source, "a.txt", false));
  require(report.copyFileToFileProperty(kLog, 21, source, "b.txt", false));
  require(report.createReportFileProperty("map", "text/plain", {}));
  require(report.copyFileToFileProperty("map", 21, source, "", false));
  require(report.createReportStringProperty("text", {}));
  require(report.addReportStringVariation("text", 21, "value", false));
  fs::remove(source);
}

void prepareLink(Report& report, const fs::path& outside) {
  prepareFiles(report, outside);
  const auto path = report.getReportFileVariationPath(kLog, 20);
  fs::remove(path.value());
  fs::create_symlink(outside / "decoy", path.value());
}

Result copyNew(Report& report, const fs::path& outside) {
  return report.copyFileToFileProperty(kLog, 5, outside / "source", "new.txt", false);
}

Result copyOver(Report& report, const fs::path& outside) {
  return report.copyFileToFileProperty(kLog, 20, outside / "source", "", true);
}

Result moveTemporary(Report& report, const fs::path&) {
  auto file = report.createReportTemporaryFile();
  if (!file) return file.error();
  writeFile(file.value()->getPath().value(), "from the scratch directory\n");
  return report.moveReportTemporaryFileToFileProperty(kLog, 5, file.value(), "new.txt", false);
}

bool toUpper(std::ifstream& input, std::ofstream& output) {
  std::transform(std::istreambuf_iterator<char>(input), {}, std::ostreambuf_iterator<char>(output),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return true;
}

Result filter(Report& report, const fs::path&) {
  return report.filterFileVariation(kLog, 20, toUpper);
}

Result removeVariation(Report& report, const fs::path&) {
  return report.removeFileVariation(kLog, 20);
}

Result removeProperty(Report& report, const fs::path&) {
  return report.removeReportFileProperty(kLog);
}

Result applyPolicy(Report& report, const fs::path&) {
  return report.applyPolicyFilters();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const FileOperation& operation) {
  return out << operation.name;
}

const std::vector<FileOperation>& fileOperations() {
  static const std::vector<FileOperation> all{
      {"CopyNew", prepareFiles, copyNew},
      {"CopyOverwrite", prepareFiles, copyOver},
      {"CopyOverwriteLink", prepareLink, copyOver},
      {"MoveTemporary", prepareFiles, moveTemporary},
      {"Filter", prepareFiles, filter, true},
      {"RemoveVariation", prepareFiles, removeVariation},
      {"RemoveProperty", prepareFiles, removeProperty},
      {"ApplyPolicy", prepareFiles, applyPolicy},
  };
  return all;
}

const FileOperation& fileOperation(const std::string& name) {
  return rowNamed(fileOperations(), name);
}

void makeOutside(const fs::path& outside) {
  fs::create_directories(outside);
  writeFile(outside / "source", std::string(200'000, 's'));
  writeFile(outside / "decoy", "decoy");
}

}  // namespace KELP::Test
