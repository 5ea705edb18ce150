#include "check/repair.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/progress.h"
#include "base/text.h"
#include "check/finders.h"
#include "check/removing.h"
#include "check/temporaries.h"
#include "reports/access.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

/** A report's lock while its findings are mended, and what is wrong with the report then. */
class Hold {
 public:
  /** Takes the lock, unless somebody has it, and looks at the report again. */
  Hold(const fs::path& root, const std::string& name) : name_(name) {
    try {
      report_ = openForChange(root, name, 0);
      findings_ = findInReport(readSubject(root, name, LockTable()));
      isReady_ = report_ != nullptr;
    } catch (const Failure& failure) {
      refusal_ = failure.status() == ExitStatus::Busy ? "the report is in use" : failure.what();
    } catch (const std::system_error& error) {
      refusal_ = escaped(error.code().message());
    }
    if (refusal_.empty()) {
      refusal_ = "the report does not open";
    }
  }

  [[nodiscard]] const std::string& name() const { return name_; }

  /** Why a finding cannot be mended now; nothing when it can. */
  [[nodiscard]] std::optional<std::string> objectionTo(const Finding& finding) const {
    if (!isReady_) {
      return refusal_;
    }
    const auto now = std::find_if(findings_.begin(), findings_.end(), [&](const Finding& other) {
      return other.kind == finding.kind && other.path.native() == finding.path.native();
    });
    if (now == findings_.end()) {
      return "it has changed meanwhile";
    }
    if (now->remedy != finding.remedy) {
      return now->objection.empty() ? textOf(now->kind).whyLeft : now->objection;
    }
    return std::nullopt;
  }

 private:
  std::string name_;
  std::unique_ptr<DiagnosticReport> report_;
  Findings findings_;
  bool isReady_ = false;  ///< Whether the lock is held, and findings_ are those of now.
  std::string refusal_;   ///< Why not; escaped.
};

/** The repair of all findings, one after the other. */
class Repair {
 public:
  explicit Repair(fs::path root) : root_(std::move(root)) {}

  /** @return why @p finding is left, escaped; nothing when it is mended. */
  std::optional<std::string> mend(const Finding& finding) {
    switch (finding.remedy) {
      case Remedy::RemoveEmptyReport:
        return removeEmptyReport(finding);
      case Remedy::RemoveTree:
      case Remedy::RemoveEmptyDirectories:
        return removeUnderLock(finding);
      case Remedy::None:
        break;
    }
    return finding.objection.empty() ? textOf(finding.kind).whyLeft : finding.objection;
  }

 private:
  static std::optional<std::string> removeEmptyReport(const Finding& finding) {
    // Whether it is still empty is seen by the system, in one step with the removal.
    if (::rmdir(finding.path.c_str()) == 0 || errno == ENOENT) {
      return std::nullopt;
    }
    return reasonOf({errno, std::system_category()});
  }

  std::optional<std::string> removeUnderLock(const Finding& finding) {
    if (!hold_ || hold_->name() != finding.report) {
      hold_.reset();
      hold_.emplace(root_, finding.report);
    }
    if (auto objection = hold_->objectionTo(finding)) {
      return objection;
    }
    if (finding.remedy == Remedy::RemoveTree && isOpenSomewhere(finding.path)) {
      return "it is in use: a process has it open";
    }
    const fs::path report = root_ / finding.report;
    const fs::path name = finding.path.lexically_relative(report);
    const std::error_code error = finding.remedy == Remedy::RemoveTree
                                      ? removeTree(report, name)
                                      : removeEmptyDirectories(report, name);
    return error ? std::optional(reasonOf(error)) : std::nullopt;
  }

  static std::string reasonOf(const std::error_code& error) { return escaped(error.message()); }

  fs::path root_;
  std::optional<Hold> hold_;
};

}  // namespace

void repair(const fs::path& root, Findings& findings) {
  for (Finding& finding : findings) {
    finding.whyLeft = "the repair was interrupted";
  }
  Repair repair(root);
  Progress progress("Repairing", findings.size());
  for (Finding& finding : findings) {
    checkInterrupt();
    try {
      const std::optional<std::string> reason = repair.mend(finding);
      finding.repaired = !reason;
      finding.whyLeft = reason.value_or("");
    } catch (const std::system_error& error) {
      finding.whyLeft = escaped(error.code().message());
    }
    progress.step();
  }
}

}  // namespace KELP::Tool
