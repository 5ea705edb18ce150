#include "diagnostic/lockfile.h"
#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;

/** How long opening waits for a writer, in milliseconds. */
constexpr long kOpeningPatience = 1000;

/** Where the two files are that make a directory a report. */
struct Parts {
  std::string lock;
  std::string metadata;
};
using PartsResult = OS::expected<Parts, DiagnosticError>;

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/**
 * Where the parts of a whole report are, found out by one look at each. Empty says nothing.
 *
 * Their paths need no check: what was found directly in a directory is within it. (The check itself
 * would also refuse a root whose links resolve to a path that is too long to be used.) A relative
 * path would need the working directory too, and the system ends one at a NUL.
 */
std::optional<Parts> findParts(const fs::path& root, const ReportUuid& id) {
  const std::string& start = root.native();
  if (id.isNull() || !start.starts_with('/') || start.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  char name[ReportUuid::kTextBufferSize];
  id.unparseLower(name);
  const std::string directory = start + (start.ends_with('/') ? "" : "/") + name + '/';
  Parts parts{directory + DiagnosticReport::kReportLockFilename,
              directory + DiagnosticReport::kReportMetadataFilename};
  return isRegularFile(parts.lock) && isRegularFile(parts.metadata) ? std::optional(parts)
                                                                    : std::nullopt;
}

/** Where the parts of @p report are, or which one is not there and why. */
PartsResult searchParts(const DiagnosticReport& report) {
  const auto lock = report._getReportLockPath();
  const auto metadata = report._getReportMetadataPath();
  if (!lock) {
    return passOn(lock.error(), "Unable to open report with unknown lock path");
  }
  if (!metadata) {
    return passOn(metadata.error(), "Unable to open report with unknown metadata path");
  }
  std::error_code status;
  if (!fs::is_regular_file(*lock, status)) {
    return fail(status, "Lock file does not exist for diagnostic report",
                "Lock file %s does not exist for diagnostic report", lock->c_str());
  }
  if (!fs::is_regular_file(*metadata, status)) {
    return fail(status, "Metadata file does not exist for diagnostic report",
                "Metadata file %s does not exist for diagnostic report", metadata->c_str());
  }
  return Parts{lock->native(), metadata->native()};
}

/** Opens the lock file that is there, or else makes one, but not where a link leads to. */
OS::FileDescriptor openOrCreateLockFile(const std::string& path) {
  OS::FileDescriptor opened = openLockFile(path, 0);
  return !opened && errno == ENOENT ? openLockFile(path, O_CREAT | O_NOFOLLOW) : std::move(opened);
}

}  // namespace

DiagnosticReport::Result DiagnosticReport::_open(fs::path root, ReportUuid id) {
  root_ = std::move(root);
  id_ = id;
  std::optional<Parts> parts = findParts(root_, id_);
  if (!parts) {
    PartsResult searched = searchParts(*this);
    if (!searched) {
      return std::move(searched).error();
    }
    parts = *std::move(searched);
  }
  OS::FileDescriptor lock = openOrCreateLockFile(parts->lock);
  if (!lock) {
    const std::error_code code = lastSystemError();
    return fail(code, "Failed to open lock file for existing report",
                "Failed to open lock file for existing report %s. errno = %d", parts->lock.c_str(),
                code.value());
  }
  resetLock(lock.release());
  if (waitForAndAquireReadLock(kOpeningPatience)) {
    releaseLock();
  } else {
    OS::logError("Unable to acquire opening read lock for report %s", parts->lock.c_str());
  }

  store_ = std::make_shared<ReportStore>(parts->metadata);
  if (!store_->isReady()) {
    return fail("Failed to initialize metadata kv store for report");
  }
  const std::optional<ReportUuid> stored = read(keys::kReportId);
  if (!stored || *stored != id_) {
    OS::log(ANDROID_LOG_WARN, "Report id mismatch: expected %s, got %s", id_.toString().c_str(),
            stored ? stored->toString().c_str() : "null");
    return DiagnosticError(noCode(), "Report id mismatch");
  }
  return true;
}

}  // namespace KELP::Diagnostic
