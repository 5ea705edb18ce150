#include "reports/follower.h"

#include "base/clock.h"
#include "base/failure.h"
#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/repository.h"

#include <diagnostic/diagnosticreport.h>

#include <sys/inotify.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;

constexpr std::uint32_t kAppears = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t kDisappears = IN_DELETE | IN_MOVED_FROM;
constexpr std::uint32_t kRootGoes = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;
constexpr std::uint32_t kRootMask = kAppears | kDisappears | kRootGoes | IN_ONLYDIR;
constexpr std::uint32_t kReportMask =
    kAppears | kDisappears | IN_MODIFY | IN_CLOSE_WRITE | IN_ONLYDIR;

std::string reasonOf(int error) {
  return std::system_category().message(error);
}

}  // namespace

Follower::Follower(std::filesystem::path root) : root_(std::move(root)), now_(currentTime()) {
  // Watched before it is looked at, so that nothing falls between.
  const int watch = notices_.watch(root_, kRootMask, "");
  const int error = errno;
  const std::vector<std::string> names =
      reportNames(root_);  // Fails better where there is no root.
  if (watch < 0) {
    throw Failure(ExitStatus::Failed,
                  "cannot watch " + escaped(root_.native()) + ": " + reasonOf(error));
  }
  for (const std::string& name : names) {
    watchReport(name);
    if (hasMetadata(name)) {
      tell(name, Happening::Existing);
    }
  }
}

std::vector<ReportEvent> Follower::take() {
  while (told_.empty()) {
    if (isRootGone_) {
      throw Failure(ExitStatus::NotFound, escaped(root_.native()) + " is gone");
    }
    for (const Notice& notice : notices_.take()) {
      now_ = notice.time;
      notice.watched.empty() ? handleRoot(notice) : handleReport(notice);
    }
  }
  return std::exchange(told_, {});
}

void Follower::handleRoot(const Notice& notice) {
  if ((notice.mask & IN_Q_OVERFLOW) != 0) {
    lookAgain();
  } else if ((notice.mask & kRootGoes) != 0) {
    isRootGone_ = true;
  } else if (isReportName(notice.entry)) {
    if ((notice.mask & kDisappears) != 0) {
      tellRemoval(notice.entry);
      unwatchReport(notice.entry);
    } else {
      watchReport(notice.entry);
      if (!known_.contains(notice.entry)) {
        tellOfMetadata(notice.entry);
      }
    }
  }
}

void Follower::handleReport(const Notice& notice) {
  const std::string& name = notice.watched;
  const auto watch = watches_.find(name);
  if (watch == watches_.end() || watch->second != notice.watch ||  // Of an earlier directory.
      notice.entry != DiagnosticReport::kReportMetadataFilename) {
    return;
  }
  if ((notice.mask & kDisappears) != 0) {
    tellRemoval(name);
  } else if ((notice.mask & IN_MODIFY) != 0) {
    modified_.insert(name);
  } else if ((notice.mask & kAppears) != 0 || modified_.contains(name)) {
    modified_.erase(name);
    tellOfMetadata(name);
  }
}

/** Makes up for notices that are lost. */
void Follower::lookAgain() {
  std::set<std::string> names = known_;
  for (std::string& name : reportNames(root_)) {
    names.insert(std::move(name));
  }
  modified_.clear();
  for (const std::string& name : names) {
    watchReport(name);
    hasMetadata(name) ? tellOfMetadata(name) : tellRemoval(name);
  }
}

/** Watches what is now the directory of that name, in place of what was. */
void Follower::watchReport(const std::string& name) {
  const int watch = notices_.watch(root_ / name, kReportMask, name);
  const int error = errno;
  const auto [entry, isNew] = watches_.try_emplace(name, watch);
  if (!isNew && watch != entry->second) {
    notices_.unwatch(std::exchange(entry->second, watch));
  }
  if (watch < 0 && error != ENOENT && error != ENOTDIR && !std::exchange(isRefusalTold_, true)) {
    warn("cannot watch " + escaped((root_ / name).native()) + ": " + reasonOf(error) +
         "; changes of some reports will be missed");
  }
}

void Follower::unwatchReport(const std::string& name) {
  if (const auto watch = watches_.find(name); watch != watches_.end()) {
    notices_.unwatch(watch->second);
    watches_.erase(watch);
  }
}

bool Follower::hasMetadata(const std::string& name) const {
  return entryAt(root_ / name / DiagnosticReport::kReportMetadataFilename).has_value();
}

void Follower::tell(const std::string& name, Happening happening) {
  known_.insert(name);
  told_.push_back({name, happening, now_});
}

/** It may be gone again; that comes as another notice. */
void Follower::tellOfMetadata(const std::string& name) {
  if (hasMetadata(name)) {
    tell(name, known_.contains(name) ? Happening::Updated : Happening::Added);
  }
}

void Follower::tellRemoval(const std::string& name) {
  modified_.erase(name);
  if (known_.erase(name) != 0) {
    told_.push_back({name, Happening::Removed, now_});
  }
}

}  // namespace KELP::Tool
