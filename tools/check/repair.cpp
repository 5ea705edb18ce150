#include "check/repair.h"

#include "base/failure.h"
#include "base/files.h"
#include "base/progress.h"
#include "base/text.h"
#include "reports/access.h"

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

/** Removes a directory that is empty. Others stay. */
std::error_code removeDirectory(const fs::path& directory) {
  return ::rmdir(directory.c_str()) == 0 || errno == ENOENT
             ? std::error_code()
             : std::error_code(errno, std::system_category());
}

/** Removes a directory that has only directories in it, from below; never a file. */
std::error_code removeEmptyDirectories(const fs::path& top) {
  std::vector<fs::path> directories{top};
  forEachBelow(top, [&](const Entry& entry) {
    if (entry.isDirectory()) {
      directories.push_back(entry.path);
    }
  });
  std::error_code error;
  while (!directories.empty() && !error) {
    error = removeDirectory(directories.back());
    directories.pop_back();
  }
  return error;
}

std::error_code apply(const Finding& finding) {
  std::error_code error;
  switch (finding.remedy) {
    case Remedy::RemoveTree:
      fs::remove_all(finding.path, error);
      break;
    case Remedy::RemoveEmptyDirectories:
      error = removeEmptyDirectories(finding.path);
      break;
    case Remedy::RemoveEmptyReport:
      error = removeDirectory(finding.path);
      break;
    case Remedy::None:
      break;
  }
  return error;
}

/** The report's lock, while its findings are mended. */
class Hold {
 public:
  explicit Hold(fs::path root) : root_(std::move(root)) {}

  /** Takes the lock of another report, unless it is held. @return why it could not be had. */
  std::string take(const std::string& name) {
    if (name != name_) {
      release();
      name_ = name;
      try {
        report_ = openForChange(root_, name, 0);
      } catch (const Failure& failure) {
        refusal_ = failure.status() == ExitStatus::Busy ? "the report is in use" : failure.what();
      }
    }
    return refusal_;
  }

  void release() {
    report_.reset();
    name_.clear();
    refusal_.clear();
  }

 private:
  fs::path root_;
  std::string name_;
  std::string refusal_;
  std::unique_ptr<DiagnosticReport> report_;
};

void repairOne(Finding& finding, Hold& hold) {
  if (finding.remedy == Remedy::None) {
    finding.whyLeft = textOf(finding.kind).whyLeft;
    return;
  }
  if (finding.remedy == Remedy::RemoveEmptyReport) {
    hold.release();
  } else if (const std::string refusal = hold.take(finding.report); !refusal.empty()) {
    finding.whyLeft = refusal;
    return;
  }
  if (const std::error_code error = apply(finding)) {
    finding.whyLeft = escaped(error.message());
  } else {
    finding.repaired = true;
  }
}

}  // namespace

void repair(const fs::path& root, Findings& findings) {
  Hold hold(root);
  Progress progress("Repairing", findings.size());
  for (Finding& finding : findings) {
    repairOne(finding, hold);
    progress.step();
  }
}

}  // namespace KELP::Tool
