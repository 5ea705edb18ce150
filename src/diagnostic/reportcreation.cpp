#include "diagnostic/lockfile.h"
#include "diagnostic/reportmetadata.h"
#include "os/fileio.h"

#include <diagnostic/diagnosticreport.h>

#include <ctime>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;

constexpr int kReportVersion = 1;
constexpr int kInitialConsentLevel = 20;
constexpr int kInitialMaxConsentLevel = 30;

/** The directory itself, or the nearest one above it that is there. */
fs::path nearestPresent(fs::path directory) {
  std::error_code ignored;
  while (directory.has_relative_path() && !fs::exists(directory, ignored)) {
    directory = directory.parent_path();
  }
  return directory;
}

/** At its end, makes the entries durable that lead to a directory from one that was there first. */
class EntriesOf {
 public:
  EntriesOf(fs::path directory, fs::path present)
      : directory_(std::move(directory)), present_(std::move(present)) {}
  ~EntriesOf() {
    for (fs::path entry = directory_; entry != present_; entry = entry.parent_path()) {
      // Closing has no result: who has to know asks the file system.
      [[maybe_unused]] const bool synced = OS::syncDirectoryOf(entry.native());
    }
  }
  EntriesOf(const EntriesOf&) = delete;
  EntriesOf& operator=(const EntriesOf&) = delete;

 private:
  fs::path directory_;
  fs::path present_;
};

/** The store of a new report. Once it is closed, and durable, so is the way to it
 *  (docs/durability.md). */
struct NewStore {
  NewStore(const fs::path& path, fs::path present)
      : entries(path.parent_path(), std::move(present)), store(path.native()) {}

  EntriesOf entries;
  ReportStore store;
};

using LockFileResult = OS::expected<OS::FileDescriptor, DiagnosticError>;

/** Makes the directory of a report and the lock file in it, which must not be there yet. */
LockFileResult makeLockFile(const fs::path& directory, const fs::path& lock) {
  std::error_code creation;
  fs::create_directories(directory, creation);
  std::error_code ignored;
  if (!fs::is_directory(directory, ignored)) {
    return fail(creation, "Failed to create directory for report");
  }
  OS::FileDescriptor made = openLockFile(lock, O_CREAT | O_EXCL);
  if (!made) {
    const std::error_code code = lastSystemError();
    return fail(code, "Failed to create lock file for new report",
                "Failed to create lock file for new report %s. errno = %d", lock.c_str(),
                code.value());
  }
  return made;
}

}  // namespace

DiagnosticReport::Result DiagnosticReport::_create(fs::path root, ReportUuid id, int appId,
                                                   int buildId, int userId, std::string deviceId,
                                                   std::string sessionId) {
  root_ = std::move(root);
  id_ = id;
  const PathResult directory = _getReportDirPath();
  const PathResult lock = _getReportLockPath();
  const PathResult metadata = _getReportMetadataPath();
  if (!directory) {
    return passOn(directory.error(), "Unable to create report with unknown path");
  }
  if (!lock) {
    return passOn(lock.error(), "Unable to create report with unknown lock path");
  }
  if (!metadata) {
    return passOn(metadata.error(), "Unable to create report with unknown metadata path");
  }

  const fs::path present = nearestPresent(directory->parent_path());
  LockFileResult lockFile = makeLockFile(*directory, *lock);
  if (!lockFile) {
    return std::move(lockFile).error();
  }
  resetLock(lockFile->release());
  if (Result locked = acquireWriteLock(true); !locked) {
    return passOn(std::move(locked).error(), "Unable to acquire write lock for new report %s",
                  lock->c_str());
  }

  const auto newStore = std::make_shared<NewStore>(*metadata, present);
  store_ = std::shared_ptr<ReportStore>(newStore, &newStore->store);
  const bool written =
      write(keys::kReportId, id_) && write(keys::kAppId, appId) && write(keys::kBuildId, buildId) &&
      write(keys::kUserId, userId) && write(keys::kDeviceId, std::move(deviceId)) &&
      write(keys::kSessionId, std::move(sessionId)) &&
      write(keys::kReportVersion, kReportVersion) &&
      write(keys::kCreated, static_cast<long>(std::time(nullptr))) &&
      write(keys::kModified, static_cast<long>(std::time(nullptr))) &&
      write(keys::kCurrentConsentLevel, kInitialConsentLevel) &&
      write(keys::kMaxConsentLevel, kInitialMaxConsentLevel) &&
      write(keys::kReportCreationComplete, false) && write(keys::kUserInteractionComplete, false) &&
      write(keys::kDataCollectionComplete, false) && write(keys::kDataPolicyApplied, false) &&
      write(keys::kUploadComplete, false);
  releaseLock();
  if (!written) {
    return fail("Failed to to write initial metadata for report");
  }
  return true;
}

}  // namespace KELP::Diagnostic
