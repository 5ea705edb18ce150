#include "reports/repository.h"

#include "base/failure.h"
#include "base/files.h"
#include "base/progress.h"
#include "base/text.h"
#include "reports/stage.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <limits>
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
  const auto entry = entryAt(path);
  return entry && entry->isFile();
}

bool isDirectory(const fs::path& path) {
  const auto entry = entryAt(path);
  return entry && entry->isDirectory();
}

/** Why the system does not let a file be read; nothing when it does. */
std::error_code refusalOf(const fs::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  const int error = errno;
  if (descriptor >= 0) {
    ::close(descriptor);
    return {};
  }
  return {error, std::system_category()};
}

/** Reads the store of @p report; its soundness is then what the store has to say about it. */
void readStore(StoredReport& report) {
  const fs::path path = report.directory / DiagnosticReport::kReportMetadataFilename;
  struct stat status {};
  const bool isThere = ::lstat(path.c_str(), &status) == 0;
  auto metadata = isThere && S_ISREG(status.st_mode) ? readMetadata(path) : std::nullopt;
  if (metadata) {
    report.metadata = *std::move(metadata);
    report.hasStore = true;
    return;
  }
  report.refusal = refusalOf(path);
  if (report.refusal == std::errc::no_such_file_or_directory) {
    report.soundness = Soundness::HalfMade;
  } else if (report.refusal && (!isThere || S_ISREG(status.st_mode))) {
    report.soundness = Soundness::Unreadable;
  } else {
    report.soundness = Soundness::Damaged;
  }
}

Soundness soundnessOf(const StoredReport& report) {
  const Metadata& metadata = report.metadata;
  if (!metadata.unreadable.empty()) {
    return Soundness::Damaged;
  }
  if (!metadata.missing.empty() ||
      !isFile(report.directory / DiagnosticReport::kReportLockFilename)) {
    return Soundness::HalfMade;
  }
  return *metadata.reportId == report.id ? Soundness::Sound : Soundness::Mismatched;
}

/** The one of @p names, which are sorted, that begins with @p prefix. */
std::string pickName(const std::vector<std::string>& names, const std::string& prefix) {
  const std::string wanted = lowerCase(prefix);
  const auto first = std::lower_bound(names.begin(), names.end(), wanted);
  const auto end =
      std::find_if(first, names.end(), [&](const auto& name) { return !name.starts_with(wanted); });
  if (wanted.empty() || first == end) {
    throw Failure(ExitStatus::NotFound, "there is no report " + inQuotes(prefix) + "");
  }
  if (end - first > 1) {
    throw Failure(ExitStatus::Usage, inQuotes(prefix) + " is the beginning of " +
                                         counted(static_cast<std::size_t>(end - first), "report") +
                                         ", such as " + *first + " and " + *(first + 1));
  }
  return *first;
}

}  // namespace

std::string StoredReport::stageText() const {
  switch (soundness) {
    case Soundness::HalfMade:
      return "half-made";
    case Soundness::Damaged:
      return "damaged";
    case Soundness::Mismatched:
      return "mismatched";
    case Soundness::Unreadable:
      return "unreadable";
    case Soundness::Sound:
      break;
  }
  return nameOf(stageOf(metadata));
}

void requireSound(const StoredReport& report) {
  if (report.soundness == Soundness::Unreadable) {
    throw Failure(ExitStatus::Failed,
                  "cannot read the report " + report.name + ": " + report.refusal.message());
  }
  if (!report.isSound()) {
    throw Failure(ExitStatus::Damage, "the report " + report.name + " is " + report.stageText());
  }
}

void failAsBusy(const std::string& name) {
  throw Failure(ExitStatus::Busy, "the report " + name + " is in use by another process");
}

bool isReportName(const std::string& name) {
  ReportUuid id;
  return id.parse(name.c_str()) && id.toString() == name;
}

std::vector<std::string> reportNames(const fs::path& root) {
  const OpenDirectory directory(::opendir(root.c_str()));
  if (!directory) {
    const int error = errno;
    throw Failure(
        error == ENOENT || error == ENOTDIR ? ExitStatus::NotFound : ExitStatus::Failed,
        "cannot read " + escaped(root.native()) + ": " + std::system_category().message(error));
  }
  std::vector<std::string> names;
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (isReportName(entry->d_name) && isDirectory(root / entry->d_name)) {
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
  readStore(report);
  if (report.hasStore) {
    report.soundness = soundnessOf(report);
  }
  return report;
}

std::vector<StoredReport> readReports(const fs::path& root) {
  const std::vector<std::string> names = reportNames(root);
  const LockTable locks;
  std::vector<StoredReport> reports;
  reports.reserve(names.size());
  Progress progress("Reading reports", names.size());
  for (const std::string& name : names) {
    StoredReport report = readReport(root, name, locks);
    if (report.isSound() || entryAt(report.directory)) {
      reports.push_back(std::move(report));
    }
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
  std::string name = lowerCase(prefix);
  if (isReportName(name) && isDirectory(root / name)) {
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
  requireSound(report);
  return report;
}

}  // namespace KELP::Tool
