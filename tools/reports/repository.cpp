#include "reports/repository.h"

#include "base/failure.h"
#include "base/files.h"
#include "base/progress.h"
#include "base/text.h"
#include "reports/stage.h"

#include <diagnostic/diagnosticreport.h>

#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <limits>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

bool isFile(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

Soundness soundnessOf(const StoredReport& report, const fs::path& store, bool isReadable) {
  if (!isReadable) {
    struct stat status {};
    const bool isAbsent = ::lstat(store.c_str(), &status) != 0 && errno == ENOENT;
    return isAbsent ? Soundness::HalfMade : Soundness::Damaged;
  }
  if (!report.metadata.reportId ||
      !isFile(report.directory / DiagnosticReport::kReportLockFilename)) {
    return Soundness::HalfMade;
  }
  return *report.metadata.reportId == report.id ? Soundness::Sound : Soundness::Mismatched;
}

/** The one of @p names, which are sorted, that begins with @p prefix. */
std::string pickName(const std::vector<std::string>& names, const std::string& prefix) {
  const std::string wanted = lowerCase(prefix);
  const auto first = std::lower_bound(names.begin(), names.end(), wanted);
  const auto end =
      std::find_if(first, names.end(), [&](const auto& name) { return !name.starts_with(wanted); });
  if (wanted.empty() || first == end) {
    throw Failure(ExitStatus::NotFound, "there is no report \"" + escaped(prefix) + "\"");
  }
  if (end - first > 1) {
    throw Failure(ExitStatus::Usage, "\"" + escaped(prefix) + "\" is the beginning of " +
                                         counted(static_cast<std::size_t>(end - first), "report") +
                                         ", such as " + *first + " and " + *(first + 1));
  }
  return *first;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

std::string StoredReport::stageText() const {
  switch (soundness) {
    case Soundness::HalfMade:
      return "half-made";
    case Soundness::Damaged:
      return "damaged";
    case Soundness::Mismatched:
      return "mismatched";
    case Soundness::Sound:
      break;
  }
  return nameOf(stageOf(metadata));
}

bool isReportName(const std::string& name) {
  ReportUuid id;
  return id.parse(name.c_str()) && id.toString() == name;
}

std::vector<std::string> reportNames(const fs::path& root) {
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(root.c_str()));
  if (!directory) {
    const int error = errno;
    throw Failure(
        error == ENOENT || error == ENOTDIR ? ExitStatus::NotFound : ExitStatus::Failed,
        "cannot read " + escaped(root.native()) + ": " + std::system_category().message(error));
  }
  std::vector<std::string> names;
  while (const dirent* const entry = ::readdir(directory.get())) {
    // What cannot be examined, such as a link that leads to itself, is no directory.
    std::error_code error;
    if (isReportName(entry->d_name) && fs::is_directory(root / entry->d_name, error)) {
      names.emplace_back(entry->d_name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

StoredReport readReport(const fs::path& root, const std::string& name, const LockTable& locks) {
  StoredReport report;
  report.name = name;
  report.id.parse(name.c_str());
  report.directory = root / name;
  report.lock = locks.stateOf(report.directory / DiagnosticReport::kReportLockFilename);
  const fs::path store = report.directory / DiagnosticReport::kReportMetadataFilename;
  auto metadata = readMetadata(store);
  const bool isReadable = metadata.has_value();
  if (isReadable) {
    report.metadata = *std::move(metadata);
  }
  report.soundness = soundnessOf(report, store, isReadable);
  return report;
}

std::vector<StoredReport> readReports(const fs::path& root) {
  const std::vector<std::string> names = reportNames(root);
  const LockTable locks;
  std::vector<StoredReport> reports;
  reports.reserve(names.size());
  Progress progress("Reading reports", names.size());
  for (const std::string& name : names) {
    reports.push_back(readReport(root, name, locks));
    progress.step();
  }
  std::stable_sort(
      reports.begin(), reports.end(), [](const StoredReport& a, const StoredReport& b) {
        constexpr long kNever = std::numeric_limits<long>::min();
        return a.metadata.created.value_or(kNever) > b.metadata.created.value_or(kNever);
      });
  return reports;
}

std::vector<std::uint64_t> sizesOf(const std::vector<StoredReport>& reports) {
  std::vector<std::uint64_t> sizes;
  sizes.reserve(reports.size());
  Progress progress("Measuring reports", reports.size());
  for (const StoredReport& report : reports) {
    sizes.push_back(sizeBelow(report.directory));
    progress.step();
  }
  return sizes;
}

std::string resolveName(const fs::path& root, const std::string& prefix) {
  // A whole name is no reason to read the directory.
  const std::string name = lowerCase(prefix);
  std::error_code error;
  if (isReportName(name) && fs::is_directory(root / name, error)) {
    return name;
  }
  return pickName(reportNames(root), prefix);
}

std::vector<std::string> resolveNames(const fs::path& root,
                                      const std::vector<std::string>& prefixes) {
  const std::vector<std::string> names = reportNames(root);
  std::set<std::string> resolved;
  for (const std::string& prefix : prefixes) {
    resolved.insert(pickName(names, prefix));
  }
  return {resolved.begin(), resolved.end()};
}

StoredReport findReport(const fs::path& root, const std::string& prefix) {
  return readReport(root, resolveName(root, prefix), LockTable());
}

StoredReport findSoundReport(const fs::path& root, const std::string& prefix) {
  StoredReport report = findReport(root, prefix);
  if (!report.isSound()) {
    throw Failure(ExitStatus::Damage, "the report " + report.name + " is " + report.stageText());
  }
  return report;
}

}  // namespace KELP::Tool
