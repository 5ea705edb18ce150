#include "diagnostic/removefiles.h"
#include "diagnostic/reportmetadata.h"
#include "os/filedescriptor.h"
#include "os/fileio.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>

#include <array>
#include <cerrno>
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
/** How long opening waits for a writer, in milliseconds. */
constexpr long kOpeningPatience = 1000;
constexpr const char* kStoreName = "metadata";

/** Never waits, and takes no terminal, whatever somebody has put in the file's place. */
int openLockFile(const fs::path& path, int flags) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  constexpr mode_t kMode = 0644;
  return OS::retryOnSignal([&] { return ::open(path.c_str(), kFlags | flags, kMode); });
}

/** Opens the lock file that is there, or else makes one, but not where a link leads to. */
int openOrCreateLockFile(const fs::path& path) {
  const int descriptor = openLockFile(path, 0);
  return descriptor < 0 && errno == ENOENT ? openLockFile(path, O_CREAT | O_NOFOLLOW) : descriptor;
}

/** The directory itself, or the nearest one above it that is there. */
fs::path nearestPresent(fs::path directory) {
  std::error_code ignored;
  while (directory.has_relative_path() && !fs::exists(directory, ignored)) {
    directory = directory.parent_path();
  }
  return directory;
}

OS::KeyValueStore::Options storeOptions() {
  using Option = OS::KVStoreOpenOption;
  return {Option::CreateIfMissing, Option::Shared, Option::SyncOnClose};
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
      : entries(path.parent_path(), std::move(present)),
        store(path.string(), kStoreName, storeOptions()) {}

  EntriesOf entries;
  OS::KeyValueStore store;
};

}  // namespace

DiagnosticReport::DiagnosticReport() = default;

DiagnosticReport::DiagnosticReport(DiagnosticReport&& other) noexcept {
  *this = std::move(other);
}

DiagnosticReport& DiagnosticReport::operator=(DiagnosticReport&& other) noexcept {
  if (this != &other) {
    root_ = std::move(other.root_);
    id_ = other.id_;
    locked_ = other.locked_;
    shared_ = other.shared_;
    touched_ = other.touched_;
    lockDescriptor_ = other.lockDescriptor_;
    store_ = std::move(other.store_);
  }
  return *this;
}

DiagnosticReport::~DiagnosticReport() {
  if (lockDescriptor_ >= 0) {
    releaseLock();
    resetLock(-1);
  }
}

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
  std::error_code creation;
  fs::create_directories(*directory, creation);
  std::error_code ignored;
  if (!fs::is_directory(*directory, ignored)) {
    return fail(creation, "Failed to create directory for report");
  }
  const int descriptor = openLockFile(*lock, O_CREAT | O_EXCL);
  if (descriptor < 0) {
    const std::error_code code = lastSystemError();
    return fail(code, "Failed to create lock file for new report",
                "Failed to create lock file for new report %s. errno = %d", lock->c_str(),
                code.value());
  }
  resetLock(descriptor);
  if (Result locked = acquireWriteLock(true); !locked) {
    return passOn(std::move(locked).error(), "Unable to acquire write lock for new report %s",
                  lock->c_str());
  }

  const auto newStore = std::make_shared<NewStore>(*metadata, present);
  store_ = std::shared_ptr<OS::KeyValueStore>(newStore, &newStore->store);
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

DiagnosticReport::Result DiagnosticReport::_open(fs::path root, ReportUuid id) {
  root_ = std::move(root);
  id_ = id;
  const PathResult lock = _getReportLockPath();
  const PathResult metadata = _getReportMetadataPath();
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
  const int descriptor = openOrCreateLockFile(*lock);
  if (descriptor < 0) {
    const std::error_code code = lastSystemError();
    return fail(code, "Failed to open lock file for existing report",
                "Failed to open lock file for existing report %s. errno = %d", lock->c_str(),
                code.value());
  }
  resetLock(descriptor);
  if (waitForAndAquireReadLock(kOpeningPatience)) {
    releaseLock();
  } else {
    OS::logError("Unable to acquire opening read lock for report %s", lock->c_str());
  }

  openStore(*metadata);
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

/** Opens the metadata store, in the place of one that was open. */
void DiagnosticReport::openStore(const fs::path& path) {
  store_ = std::make_shared<OS::KeyValueStore>(path.string(), kStoreName, storeOptions());
}

DiagnosticReport::Result DiagnosticReport::touch() {
  if (!locked_ || shared_) {
    return fail("Cannot modify report without a write lock");
  }
  if (!write(keys::kModified, static_cast<long>(std::time(nullptr)))) {
    return fail("Failed to update report modified time");
  }
  touched_ = true;
  return true;
}

DiagnosticReport::Result DiagnosticReport::deleteReport() {
  if (!locked_ || shared_) {
    return fail("Cannot delete report without a write lock");
  }
  const PathResult directory = _getReportDirPath();
  if (!directory) {
    return passOn(directory.error(), "Unable to determine directory to delete for report");
  }
  releaseLock();
  resetLock(-1);
  store_.reset();
  id_ = ReportUuid();

  if (const std::error_code code = removeReportDirectory(*directory)) {
    return fail(code, "Encountered errors while removing report files",
                "Encountered errors while removing report files: %s", code.message().c_str());
  }
  return true;
}

}  // namespace KELP::Diagnostic
