#pragma once

#include <diagnostic/diagnosticerror.h>
#include <diagnostic/metadataproperty.h>
#include <diagnostic/reportuuid.h>
#include <os/expected.h>
#include <os/export.h>
#include <os/keyvaluestore.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::OS {
template <typename... Args>
class LogFormat;
}

namespace KELP::Diagnostic {

/**
 * One report: a directory under the repository's root that holds a lock file, a metadata store and,
 * later, scratch and content files (docs/on-disk-format.md).
 *
 * Life cycle:
 *  1. The repository (DiagnosticData) creates or opens a report and hands it out. It then holds no
 *     lock.
 *  2. To change it, take the write lock, call the setters and the stage operations, and release the
 *     lock. Queries take no lock of their own; hold a read lock for a consistent picture of
 * several.
 *  3. The stages of a report are marked in order: creation, user interaction, data collection, data
 *     policy, upload. A stage is only ever marked, never cleared.
 *  4. deleteReport() removes it, or the destructor lets go of it.
 *
 * Nothing is cached: each query reads the store, so what another process changed is seen at once.
 *
 * The object owns the descriptor of its lock file and shares ownership of the store. Locks belong
 * to that descriptor: two objects on one report exclude each other as two processes do. No lock
 * passes to a program that the process executes. A process that forks without executing another
 * program must not use, in the child, a report that the parent opened: both would share one lock.
 *
 * Threads: an object is used by one thread at a time.
 *
 * Errors: each operation that can fail returns an error whose message is a fixed sentence, named
 * with the operation, and writes one log line at error priority under the tag "diagnosticdata". The
 * line is the message unless it is given too. The code is 0 unless another is given. Every
 * operation that changes the report can also fail as touch() does, and then has changed nothing. On
 * a report without a store (default-constructed, deleted, or moved from) every key reads as absent
 * and every write fails.
 */
class KELP_EXPORT DiagnosticReport {
 public:
  static constexpr const char* kReportLockFilename = "lock";
  static constexpr const char* kReportMetadataFilename = "metadata.db";
  static constexpr const char* kReportTmpDirectoryName = "tmp";
  static constexpr const char* kReportContentFilesDirectoryName = "contentfiles";

  /** What operations return that only succeed or fail: true, or the error. */
  using Result = OS::expected<bool, DiagnosticError>;
  /** What the path builders return. */
  using PathResult = OS::expected<std::filesystem::path, DiagnosticError>;

  /** A report of nothing: no root, the null identifier, no descriptor, no store. */
  DiagnosticReport();

  /**
   * Takes over the root and the store of @p other and copies the rest, the lock descriptor
   * included, which @p other keeps. When @p other is destroyed, it releases the lock and closes the
   * descriptor that this report uses: destroy it only when this report is done with the lock.
   */
  DiagnosticReport(DiagnosticReport&& other) noexcept;

  /** As the move constructor. A descriptor that this report had is neither released nor closed. */
  DiagnosticReport& operator=(DiagnosticReport&& other) noexcept;

  DiagnosticReport(const DiagnosticReport&) = delete;
  DiagnosticReport& operator=(const DiagnosticReport&) = delete;

  /** Releases the lock and closes the lock file and the store. */
  ~DiagnosticReport();

  // --- Locks -----------------------------------------------------------------------------------

  /**
   * Takes a read lock, which other readers may hold as well. A write lock that this object holds is
   * converted (not atomically); a read lock that it holds already is kept, without a system call.
   *
   * @param wait true: wait until it is granted; false: fail at once when a writer holds the report.
   * @return true, or "Failed acquire read lock for report" with `errno` (usually `EWOULDBLOCK`) and
   *         the line "Failed acquire read lock for report. errno = %d (%s)"; or, without a line,
   *         "Unable to acquire read lock for report with no valid lock file descriptor".
   */
  Result acquireReadLock(bool wait);

  /**
   * Takes the write lock, which nobody else may hold. A read lock that this object holds is
   * converted (not atomically); the write lock, when held already, is kept, without a system call.
   *
   * @param wait true: wait until it is granted; false: fail at once when anyone holds the report.
   * @return true, or "Failed acquire write lock for report" with `errno` and the line "Failed
   * acquire write lock for report. errno = %d (%s)"; or, without a line, "Unable to acquire write
   *         lock for report with no valid lock file descriptor".
   */
  Result acquireWriteLock(bool wait);

  /**
   * Tries to take a read lock, again and again for a limited time: after 1, 2, 4 … 128 and then
   * every 256 ms.
   *
   * @param timeoutMs limit in milliseconds by the wall clock; with 0 or less there is one attempt.
   *                  The last pause may pass the limit by up to 256 ms.
   * @return as acquireReadLock() with false; on time-out the error of the last attempt. Each failed
   *         attempt writes its line.
   */
  Result waitForAndAquireReadLock(long timeoutMs);

  /** As waitForAndAquireReadLock(), for the write lock. */
  Result waitForAndAquireWriteLock(long timeoutMs);

  /**
   * Gives the lock up. A report that holds none is left alone, without a system call.
   *
   * @return true, or "Failed release lock for report" with `errno` and the line "Failed to release
   *         lock for report. errno = %d (%s)".
   */
  Result releaseLock();

  // --- Identity and times ----------------------------------------------------------------------

  /** The report's identifier; null for a report of nothing. */
  [[nodiscard]] ReportUuid getId() const;

  /** The report's directory. @return the path, or "Unable to get report path for report with null
   *  UUID". */
  [[nodiscard]] PathResult getReportDirPath() const;

  /** @return the identifier of the application that reports, or "Report doesn't have an associated
   *  App Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getReporterAppId() const;
  /** @return the build's identifier, or "Report doesn't have an associated Build Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getBuildId() const;
  /** @return the user's identifier, or "Report doesn't have an associated User Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getUserId() const;
  /** @return the device's identifier, or "Report doesn't have an associated Device Id". */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getDeviceId() const;
  /** @return the session's identifier, or "Report doesn't have an associated Session Id". */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getSessionId() const;

  /** When the report was created, in seconds since the epoch; now, when that is not recorded. */
  [[nodiscard]] long getCreatedTime() const;
  /** When the report was last changed, in seconds since the epoch; now, when not recorded. */
  [[nodiscard]] long getModifiedTime() const;

  /**
   * Stamps the time of modification. Every operation that changes the report calls it before it
   * writes, which is also how it checks for the write lock; the stamp stays when the write that
   * follows fails.
   *
   * @return true, or "Cannot modify report without a write lock", or "Failed to update report
   *         modified time".
   */
  Result touch();

  // --- Stages and consent ----------------------------------------------------------------------
  // The stage operations check the stages before they check for the write lock. A flag counts as
  // set only when it is stored and true.

  /** The consent level that the user has given; 0 when not recorded. Any `int`; 20 at first. */
  [[nodiscard]] int getCurrentConsentLevel() const;

  /**
   * Changes the consent level that the user has given. Any level will do, above the maximum too.
   *
   * @return true; once both creation and user interaction are complete, "Current report status does
   *         not support consent level changes"; or "Failed to write updated consent level to
   * report".
   */
  Result setCurrentConsentLevel(int level);

  /** The highest consent level that the report may be raised to; 0 when not recorded. 30 at first.
   */
  [[nodiscard]] int getMaxConsentLevel() const;

  /**
   * Changes the highest consent level.
   *
   * @return true; once creation is complete, "Current report status does not support max consent
   *         level changes"; or "Failed to write updated max consent level to report".
   */
  Result setMaxConsentLevel(int level);

  /** Whether the creating process has finished filling the report. */
  [[nodiscard]] bool isCreationComplete() const;
  /** @return true; the second time, "Report creation is already complete"; or "Failed to write
   *  updated creation status to report". */
  Result markCreationComplete();

  /** Whether the user has finished deciding about the report. */
  [[nodiscard]] bool isUserInteractionComplete() const;
  /** May be marked before creation is complete. @return true; the second time, "User interaction is
   *  already complete"; or "Failed to write updated interaction status to report". */
  Result markUserInteractionComplete();

  /** Whether data may be collected: creation complete, data collection not. */
  [[nodiscard]] bool canCollectData() const;
  /** Whether all contents have been gathered. */
  [[nodiscard]] bool isDataCollectionComplete() const;
  /** @return true; unless canCollectData(), "Current report status does not support marking data
   *  collection as completed"; or "Failed to write updated data collection status to report". */
  Result markDataCollectionComplete();

  /** Whether the policy may be applied: creation, user interaction and data collection complete,
   *  policy not applied. */
  [[nodiscard]] bool canApplyDataPolicy() const;
  /** Whether the data policy has been applied. */
  [[nodiscard]] bool isDataPolicyApplied() const;
  /** @return true; unless canApplyDataPolicy(), "Current report status does not support marking
   *  policy application as completed"; or "Failed to write updated policy application status to
   *  report". */
  Result markDataPolicyApplied();

  /** Whether the report may be uploaded: everything before is done, upload is not complete. */
  [[nodiscard]] bool canUpload() const;
  /** Whether the report has been uploaded. */
  [[nodiscard]] bool isUploadComplete() const;
  /** @return true; unless canUpload(), "Current report status does not support marking upload as
   *  completed"; or "Failed to write updated upload status to report". */
  Result markUploadComplete();

  // --- What produced the report ----------------------------------------------------------------

  /** The free-text description; empty when never set. */
  [[nodiscard]] std::optional<std::string> getDescription() const;
  /** At any stage. @return true, or "Failed to write updated description to report". */
  Result setDescription(std::string description);

  /** The process id of the process that the report is about; empty when never set. */
  [[nodiscard]] std::optional<int> getPID() const;
  /** @return true; once creation is complete, "PID can only be set during report creation"; or
   *  "Failed to write updated pid to report". */
  Result setPID(int pid);

  /** The name of that process; empty when never set. */
  [[nodiscard]] std::optional<std::string> getProcessName() const;
  /** @return true; once creation is complete, "Process name can only be set during report
   * creation"; or "Failed to write updated process name to report". */
  Result setProcessName(std::string name);

  /** The libraries loaded in that process; empty when never set. */
  [[nodiscard]] std::optional<std::vector<std::string>> getLoadedLibraries() const;
  /** Stores the whole list in the given order, duplicates kept; names should be UTF-8. @return
   * true; once creation is complete, "Loaded Libraries list can only be set during report
   * creation"; or "Failed to write updated loaded libraries to report". */
  Result setLoadedLibraries(std::vector<std::string> libraries);

  // --- Deletion --------------------------------------------------------------------------------

  /**
   * Removes the report's whole directory. Needs the write lock, which is given up before the files
   * are removed. Afterwards, also when the removal failed, the object refers to no report.
   *
   * @return true, also when the directory was gone already; "Cannot delete report without a write
   *         lock" (nothing changed); the error of getReportDirPath() with the line "Unable to
   *         determine directory to delete for report" (nothing changed); or "Encountered errors
   * while removing report files" with the removal's code and the line "Encountered errors while
   *         removing report files: %s".
   */
  Result deleteReport();

  // --- Internal: for the repository ------------------------------------------------------------

  /**
   * Internal. Makes a new report of a default-constructed object, by way of the directory, the lock
   * file, the write lock and the sixteen initial keys. It holds no lock afterwards. Nothing that
   * was made is removed when it fails.
   *
   * @return true; an error of the path builders; "Failed to create directory for report" with the
   *         system's code; "Failed to create lock file for new report" with `errno` (`EEXIST` when
   *         there is one) and the line "Failed to create lock file for new report %s. errno = %d";
   * an error of acquireWriteLock() with the line "Unable to acquire write lock for new report %s";
   * or "Failed to to write initial metadata for report".
   */
  Result _create(std::filesystem::path root, ReportUuid id, int appId, int buildId, int userId,
                 std::string deviceId, std::string sessionId);

  /**
   * Internal. Attaches a default-constructed object to an existing report. Waits up to a second for
   * a writer to let go, and goes on without that (with the line "Unable to acquire opening read
   * lock for report %s"). It holds no lock afterwards.
   *
   * @return true; an error of the path builders; "Lock file does not exist for diagnostic report"
   * or "Metadata file does not exist for diagnostic report" with the system's code and the lines
   *         "Lock file %s does not exist for diagnostic report" and "Metadata file %s …"; "Failed
   * to open lock file for existing report" with `errno` and the line "Failed to open lock file for
   * existing report %s. errno = %d"; "Failed to initialize metadata kv store for report"; or
   * "Report id mismatch" with the line "Report id mismatch: expected %s, got %s" at warning
   * priority.
   */
  Result _open(std::filesystem::path root, ReportUuid id);

  // --- Internal: path builders -----------------------------------------------------------------
  // Each fails as getReportDirPath() does (with one more line, "Unable to prepare relative report
  // path for report with unknown report directory"), or with "Path is not within report directory"
  // and the line "Path: %s, is not within report directory: %s".

  /** Internal. See getReportDirPath(). */
  [[nodiscard]] PathResult _getReportDirPath() const;
  /** Internal. @param relative below the report's directory, or absolute and within it. */
  [[nodiscard]] PathResult _getReportRelativePath(std::filesystem::path relative) const;
  /** Internal. "lock". */
  [[nodiscard]] PathResult _getReportLockPath() const;
  /** Internal. "metadata.db". */
  [[nodiscard]] PathResult _getReportMetadataPath() const;
  /** Internal. "tmp". */
  [[nodiscard]] PathResult _getReportTmpDirPath() const;
  /** Internal. "contentfiles". */
  [[nodiscard]] PathResult _getReportContentFilesDirPath() const;
  /** Internal. "contentfiles/{propertyName}". */
  [[nodiscard]] PathResult _getReportContentFileDirPath(std::string propertyName) const;
  /** Internal. "contentfiles/{propertyName}/{level}". */
  [[nodiscard]] PathResult _getReportFileVariationDirPath(std::string propertyName,
                                                          int level) const;
  /** Internal. "contentfiles/{propertyName}/{level}/{fileName}". */
  [[nodiscard]] PathResult _getReportFileVariationFilePath(std::string propertyName, int level,
                                                           std::string fileName) const;

 private:
  struct KELP_HIDDEN LockKind;

  KELP_HIDDEN Result acquireLock(const LockKind& kind, bool wait);
  KELP_HIDDEN Result waitForLock(const LockKind& kind, long timeoutMs);
  KELP_HIDDEN void resetLock(int descriptor);

  KELP_HIDDEN void openStore(const std::filesystem::path& path);

  // Defined in src/diagnostic/reportmetadata.h.
  template <typename T>
  KELP_HIDDEN std::optional<T> read(const MetadataProperty<T>& property) const;
  template <typename T>
  KELP_HIDDEN bool write(const MetadataProperty<T>& property, T value);
  template <typename T>
  KELP_HIDDEN Result change(const MetadataProperty<T>& property, T value,
                            OS::LogFormat<> writeFailure);

  std::filesystem::path root_;
  ReportUuid id_;
  bool locked_ = false;
  bool shared_ = false;
  bool touched_ = false;
  int lockDescriptor_ = -1;
  std::shared_ptr<OS::KeyValueStore> store_;
};

}  // namespace KELP::Diagnostic
