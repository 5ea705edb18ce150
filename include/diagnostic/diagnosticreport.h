#pragma once

#include <diagnostic/diagnosticerror.h>
#include <diagnostic/metadataproperty.h>
#include <diagnostic/reportcontentproperties.h>
#include <diagnostic/reporttemporaryfile.h>
#include <diagnostic/reportuuid.h>
#include <os/expected.h>
#include <os/export.h>
#include <os/keyvaluestore.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KELP::OS {
template <typename... Args>
class LogFormat;
}

namespace KELP::Diagnostic {

class ReportStore;

/**
 * One report: a directory under the repository's root that holds a lock file, a metadata store and,
 * later, scratch and content files (docs/on-disk-format.md).
 *
 * Life cycle:
 *  1. The repository (DiagnosticData) creates or opens a report and hands it out. It then holds no
 *     lock.
 *  2. To change it, take the write lock, call the setters and the stage operations, and release the
 *     lock. Queries take no lock of their own; hold a read lock for a consistent picture of several
 *     values.
 *  3. The stages of a report are marked: creation, user interaction, data collection, data policy,
 *     upload; each operation says what must come before. A stage is only ever marked, never
 *     cleared.
 *  4. deleteReport() removes it, or the destructor lets go of it.
 *
 * Each query looks at the store, so what another process changed is seen at once. (The list of
 * contents that was last read or written is kept, and used as long as the stored text is the same.)
 *
 * The object owns the descriptor of its lock file and shares ownership of the store. Locks belong
 * to that descriptor: two objects on one report exclude each other as two processes do. No lock
 * passes to a program that the process executes. A process that forks without executing another
 * program must not use, in the child, a report that the parent opened: both would share one lock.
 *
 * Threads: an object is used by one thread at a time.
 *
 * Errors: each operation that can fail returns an error whose message is a fixed sentence, named
 * with the operation, and, unless something else is said, writes one log line at error priority
 * under the tag "diagnosticdata". The line is the message unless it is given too. A line that is
 * given with the error of another operation comes after those of that operation. The code is 0
 * unless another is given. Every operation that changes the report can also fail as touch() does,
 * and then has changed nothing (but that a copy has made its directories). On a report without a
 * store (default-constructed, deleted, or moved from) every key reads as absent and every write
 * fails.
 *
 * A stored value that cannot be read counts as absent. When that is the list of libraries or of
 * contents, each operation that asks for it also writes the line "Failed to parse json data: %s,
 * error: %s", with the text and what is wrong with it.
 */
class KELP_EXPORT DiagnosticReport {
 public:
  /** The lock file's name in the report's directory. */
  static constexpr const char* kReportLockFilename = "lock";
  /** The metadata store's name in the report's directory. */
  static constexpr const char* kReportMetadataFilename = "metadata.db";
  /** The scratch directory's name in the report's directory. */
  static constexpr const char* kReportTmpDirectoryName = "tmp";
  /** The name of the directory of attached files, in the report's directory. */
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
   *
   * @param other the report to move from.
   */
  DiagnosticReport(DiagnosticReport&& other) noexcept;

  /**
   * As the move constructor. A descriptor that this report had is neither released nor closed.
   *
   * @param other the report to move from.
   * @return this report.
   */
  DiagnosticReport& operator=(DiagnosticReport&& other) noexcept;

  DiagnosticReport(const DiagnosticReport&) = delete;
  DiagnosticReport& operator=(const DiagnosticReport&) = delete;

  /** Releases the lock and closes the lock file and the store. What was changed in the metadata is
   *  on stable storage then, and so is the way to a report that this object created; files are not
   *  (docs/durability.md). So this waits for the disk, unless nothing was changed. */
  ~DiagnosticReport();

  /** @name Locks */
  ///@{

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
   * A conversion that fails, in either direction, loses the lock that was held, though the object
   * still counts it as held: call releaseLock() then.
   *
   * @param wait true: wait until it is granted; false: fail at once when anyone holds the report.
   * @return true, or "Failed acquire write lock for report" with `errno` and the line "Failed
   *         acquire write lock for report. errno = %d (%s)"; or, without a line, "Unable to acquire
   *         write lock for report with no valid lock file descriptor".
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

  /**
   * As waitForAndAquireReadLock(), for the write lock.
   *
   * @param timeoutMs as there.
   * @return as acquireWriteLock() with false; on time-out the error of the last attempt.
   */
  Result waitForAndAquireWriteLock(long timeoutMs);

  /**
   * Gives the lock up. A report that holds none is left alone, without a system call.
   *
   * @return true, or "Failed release lock for report" with `errno` and the line "Failed to release
   *         lock for report. errno = %d (%s)".
   */
  Result releaseLock();

  ///@}

  /** @name Identity and times */
  ///@{

  /** The report's identifier. @return it; null for a report of nothing. */
  [[nodiscard]] ReportUuid getId() const;

  /** The report's directory. @return the path, or "Unable to get report path for report with null
   *  UUID". */
  [[nodiscard]] PathResult getReportDirPath() const;

  /** The identifier of the application that reports. @return it, or "Report doesn't have an
   *  associated App Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getReporterAppId() const;
  /** The build's identifier. @return it, or "Report doesn't have an associated Build Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getBuildId() const;
  /** The user's identifier. @return it, or "Report doesn't have an associated User Id". */
  [[nodiscard]] OS::expected<int, DiagnosticError> getUserId() const;
  /** The device's identifier. @return it, or "Report doesn't have an associated Device Id". */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getDeviceId() const;
  /** The session's identifier. @return it, or "Report doesn't have an associated Session Id". */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getSessionId() const;

  /** When the report was created. @return seconds since the epoch; now, when not recorded or not
   *  readable. */
  [[nodiscard]] long getCreatedTime() const;
  /** When the report was last changed. @return seconds since the epoch; now, when not recorded or
   *  not readable. */
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

  ///@}

  /**
   * @name Stages and consent
   * The stage operations check the stages before they check for the write lock. A flag counts as
   * set only when it is stored and true.
   */
  ///@{

  /** The consent level that the user has given; 20 at first. @return any `int`; 0 when not
   *  recorded or not readable. */
  [[nodiscard]] int getCurrentConsentLevel() const;

  /**
   * Changes the consent level that the user has given.
   *
   * @param level any level will do, above the maximum too.
   * @return true; once both creation and user interaction are complete, "Current report status does
   *         not support consent level changes"; or "Failed to write updated consent level to
   *         report".
   */
  Result setCurrentConsentLevel(int level);

  /** The highest consent level that the report may be raised to; 30 at first. @return any `int`; 0
   *  when not recorded or not readable. */
  [[nodiscard]] int getMaxConsentLevel() const;

  /**
   * Changes the highest consent level.
   *
   * @param level any level will do, below the current one too.
   * @return true; once creation is complete, "Current report status does not support max consent
   *         level changes"; or "Failed to write updated max consent level to report".
   */
  Result setMaxConsentLevel(int level);

  /** Whether the creating process has finished filling the report. @return true if so. */
  [[nodiscard]] bool isCreationComplete() const;
  /** Marks that it has. @return true; the second time, "Report creation is already complete"; or
   *  "Failed to write updated creation status to report". */
  Result markCreationComplete();

  /** Whether the user has finished deciding about the report. @return true if so. */
  [[nodiscard]] bool isUserInteractionComplete() const;
  /** Marks that the user has, which may be before creation is complete. @return true; the second
   *  time, "User interaction is already complete"; or "Failed to write updated interaction status
   *  to report". */
  Result markUserInteractionComplete();

  /** Whether data may be collected: creation complete, data collection not. @return true if so. */
  [[nodiscard]] bool canCollectData() const;
  /** Whether all contents have been gathered. @return true if so. */
  [[nodiscard]] bool isDataCollectionComplete() const;
  /** Marks that they have. @return true; unless canCollectData(), "Current report status does not
   *  support marking data collection as completed"; or "Failed to write updated data collection
   *  status to report". */
  Result markDataCollectionComplete();

  /** Whether the policy may be applied: creation, user interaction and data collection complete,
   *  policy not applied. @return true if so. */
  [[nodiscard]] bool canApplyDataPolicy() const;
  /** Whether the data policy has been applied. @return true if so. */
  [[nodiscard]] bool isDataPolicyApplied() const;
  /** Marks that it has, and does nothing else: applyPolicyFilters() applies it. @return true;
   *  unless canApplyDataPolicy(), "Current report status does not support marking policy
   *  application as completed"; or "Failed to write updated policy application status to report".
   */
  Result markDataPolicyApplied();

  /** Whether the report may be uploaded: everything before is done, upload is not complete. @return
   *  true if so. */
  [[nodiscard]] bool canUpload() const;
  /** Whether the report has been uploaded. @return true if so. */
  [[nodiscard]] bool isUploadComplete() const;
  /** Marks that it has. @return true; unless canUpload(), "Current report status does not support
   *  marking upload as completed"; or "Failed to write updated upload status to report". */
  Result markUploadComplete();

  ///@}

  /** @name What produced the report */
  ///@{

  /** The free-text description. @return it; empty when never set or not readable. */
  [[nodiscard]] std::optional<std::string> getDescription() const;
  /**
   * Changes the description, at any stage.
   *
   * @param description any bytes.
   * @return true, or "Failed to write updated description to report".
   */
  Result setDescription(std::string description);

  /** The process id of the process that the report is about. @return it; empty when never set or
   *  not readable. */
  [[nodiscard]] std::optional<int> getPID() const;
  /**
   * Changes the process id.
   *
   * @param pid any number.
   * @return true; once creation is complete, "PID can only be set during report creation"; or
   *         "Failed to write updated pid to report".
   */
  Result setPID(int pid);

  /** The name of that process. @return it; empty when never set or not readable. */
  [[nodiscard]] std::optional<std::string> getProcessName() const;
  /**
   * Changes the name of the process.
   *
   * @param name any bytes.
   * @return true; once creation is complete, "Process name can only be set during report creation";
   *         or "Failed to write updated process name to report".
   */
  Result setProcessName(std::string name);

  /** The libraries loaded in that process, in the order given. @return them; empty when never set
   *  or not readable. */
  [[nodiscard]] std::optional<std::vector<std::string>> getLoadedLibraries() const;
  /**
   * Stores the whole list of libraries in the given order, duplicates kept.
   *
   * @param libraries their names, which should be UTF-8.
   * @return true; once creation is complete, "Loaded Libraries list can only be set during report
   *         creation"; or "Failed to write updated loaded libraries to report".
   */
  Result setLoadedLibraries(std::vector<std::string> libraries);

  ///@}

  /**
   * @name Contents: properties
   * The contents are a list of properties that is read and written as a whole. A report has none
   * until the first property is created. Where two texts are given, the one with "(%s)" is the log
   * line.
   *
   * Each operation that takes a type exists once more for each type, under its name: FILE, STRING,
   * INTEGER, DOUBLE and BOOLEAN. To these a property of another type is absent.
   */
  ///@{

  /** One property of the contents. */
  using Properties = DiagnosticReportContentProperties;
  /** One variation of a property. */
  using Variations = DiagnosticReportContentVariations;
  /** What a property holds. */
  using PropertyTypes = DiagnosticReportContentPropertyTypes;
  /** The tags of a property. */
  using Tags = std::set<std::string>;

  /** All properties in the order of their creation. @return them; empty when there are no contents,
   *  or they are not readable. */
  [[nodiscard]] std::optional<std::vector<Properties>> getReportContents() const;

  /**
   * Whether there is a property of that name, of any type.
   *
   * @param name the property's name, which is compared byte by byte.
   * @return true if so.
   */
  [[nodiscard]] bool hasReportContentProperty(std::string name) const;
  /**
   * Whether there is a property of that name and type.
   *
   * @param name the property's name.
   * @return true if so.
   */
  [[nodiscard]] bool hasReportFileProperty(std::string name) const;
  /** @copydoc hasReportFileProperty() */
  [[nodiscard]] bool hasReportStringProperty(std::string name) const;
  /** @copydoc hasReportFileProperty() */
  [[nodiscard]] bool hasReportIntegerProperty(std::string name) const;
  /** @copydoc hasReportFileProperty() */
  [[nodiscard]] bool hasReportDoubleProperty(std::string name) const;
  /** @copydoc hasReportFileProperty() */
  [[nodiscard]] bool hasReportBooleanProperty(std::string name) const;

  /**
   * The first property of that name.
   *
   * @param name the property's name.
   * @return the property; empty when there is none.
   */
  [[nodiscard]] std::optional<Properties> getReportContentProperty(std::string name) const;
  /**
   * The first property of that name, when it has that type.
   *
   * @param name the property's name.
   * @param type what it shall hold.
   * @return the property; empty when there is none or it is of another type.
   */
  [[nodiscard]] std::optional<Properties> getReportContentProperty(std::string name,
                                                                   PropertyTypes type) const;
  /**
   * The first property of that name, when it has that type.
   *
   * @param name the property's name.
   * @return the property; empty when there is none or it is of another type.
   */
  [[nodiscard]] std::optional<Properties> getReportFileProperty(std::string name) const;
  /** @copydoc getReportFileProperty() */
  [[nodiscard]] std::optional<Properties> getReportStringProperty(std::string name) const;
  /** @copydoc getReportFileProperty() */
  [[nodiscard]] std::optional<Properties> getReportIntegerProperty(std::string name) const;
  /** @copydoc getReportFileProperty() */
  [[nodiscard]] std::optional<Properties> getReportDoubleProperty(std::string name) const;
  /** @copydoc getReportFileProperty() */
  [[nodiscard]] std::optional<Properties> getReportBooleanProperty(std::string name) const;

  /**
   * Appends a property without variations.
   *
   * @param name      its name, unique within the report, in UTF-8.
   * @param type      what its variations hold.
   * @param mediaType free text, for files usually a MIME type.
   * @param tags      its first tags.
   * @return true; once data collection is complete, "Report status does not allow creation of new
   *         content properties"; "Report content property to be created already exists" ("Report
   *         content property to be created (%s) already exists"; the report is stamped as modified
   *         all the same); or "Failed to write updated content property value to report metadata".
   */
  Result createReportContentProperty(std::string name, PropertyTypes type, std::string mediaType,
                                     Tags tags);
  /**
   * As createReportContentProperty(), of the type FILE.
   *
   * @param name      as there.
   * @param mediaType as there.
   * @param tags      as there.
   * @return as there.
   */
  Result createReportFileProperty(std::string name, std::string mediaType, Tags tags);
  /**
   * As createReportContentProperty(), of the type in its name, with an empty media type.
   *
   * @param name as there.
   * @param tags as there.
   * @return as there.
   */
  Result createReportStringProperty(std::string name, Tags tags);
  /** @copydoc createReportStringProperty() */
  Result createReportIntegerProperty(std::string name, Tags tags);
  /** @copydoc createReportStringProperty() */
  Result createReportDoubleProperty(std::string name, Tags tags);
  /** @copydoc createReportStringProperty() */
  Result createReportBooleanProperty(std::string name, Tags tags);

  /**
   * Removes a property at any stage, and then, for a file property, the directory of its files;
   * failing to remove that is no failure.
   *
   * @param name the property's name.
   * @return true; "Cannot remove content properties from report with no contents"; "Report content
   *         property to be removed does not exist in the report" ("Report content property to be
   *         removed (%s) does not exist in the report"); an error of the path builders with the
   *         line "Unable to determine destination path for file to remove"; or "Failed to write
   *         updated content property value to report metadata".
   */
  Result removeReportContentProperty(std::string name);
  /**
   * As removeReportContentProperty(), for a property of that type.
   *
   * @param name the property's name.
   * @return as there; without such a property of that type, "Report file property to be removed
   *         does not exist in the report" ("Report file property to be removed (%s) does not exist
   *         in the report").
   */
  Result removeReportFileProperty(std::string name);
  /** @copydoc removeReportFileProperty() The error's texts say "string" instead. */
  Result removeReportStringProperty(std::string name);
  /** @copydoc removeReportFileProperty() The error's texts say "integer" instead. */
  Result removeReportIntegerProperty(std::string name);
  /** @copydoc removeReportFileProperty() The error's texts say "double" instead. */
  Result removeReportDoubleProperty(std::string name);
  /** @copydoc removeReportFileProperty() The error's texts say "boolean" instead. */
  Result removeReportBooleanProperty(std::string name);

  /**
   * Adds tags to a property. Those that it has already stay once.
   *
   * @param name the property's name.
   * @param tags the tags to add.
   * @return true; once data collection is complete, "Adding tags to report after collection is
   *         completed is not allowed"; "Cannot update content tags on report with no contents";
   *         "Report content property to be tagged does not exist in the report" ("Report content
   *         property to be tagged (%s) does not exist in the report"); or "Failed to write updated
   *         contents for variation removal".
   */
  Result addTagsToContentProperty(std::string name, Tags tags);
  /**
   * As addTagsToContentProperty(), with one tag.
   *
   * @param name the property's name.
   * @param tag  the tag to add.
   * @return as there.
   */
  Result addTagToContentProperty(std::string name, std::string tag);

  ///@}

  /**
   * @name Contents: variations
   * Within its property a variation is known by its sensitivity level, which may be any `int`; of
   * several with one level the first counts.
   */
  ///@{

  /**
   * The variation of a property, of any type, at a level.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportContentVariation(std::string name,
                                                                    int level) const;
  /**
   * The variation of a property of that type at a level.
   *
   * @param name  the property's name.
   * @param type  what the property shall hold.
   * @param level the variation's sensitivity level.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportContentVariation(std::string name,
                                                                    PropertyTypes type,
                                                                    int level) const;
  /**
   * The variation of a property of that type at a level.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportFileVariation(std::string name, int level) const;
  /** @copydoc getReportFileVariation() */
  [[nodiscard]] std::optional<Variations> getReportStringVariation(std::string name,
                                                                   int level) const;
  /** @copydoc getReportFileVariation() */
  [[nodiscard]] std::optional<Variations> getReportIntegerVariation(std::string name,
                                                                    int level) const;
  /** @copydoc getReportFileVariation() */
  [[nodiscard]] std::optional<Variations> getReportDoubleVariation(std::string name,
                                                                   int level) const;
  /** @copydoc getReportFileVariation() */
  [[nodiscard]] std::optional<Variations> getReportBooleanVariation(std::string name,
                                                                    int level) const;

  /**
   * Whether a property, of any type, has a variation at a level.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return true if so.
   */
  [[nodiscard]] bool hasReportContentVariation(std::string name, int level) const;
  /**
   * Whether a property of that type has a variation at a level.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return true if so.
   */
  [[nodiscard]] bool hasReportFileVariation(std::string name, int level) const;
  /** @copydoc hasReportFileVariation() */
  [[nodiscard]] bool hasReportStringVariation(std::string name, int level) const;
  /** @copydoc hasReportFileVariation() */
  [[nodiscard]] bool hasReportIntegerVariation(std::string name, int level) const;
  /** @copydoc hasReportFileVariation() */
  [[nodiscard]] bool hasReportDoubleVariation(std::string name, int level) const;
  /** @copydoc hasReportFileVariation() */
  [[nodiscard]] bool hasReportBooleanVariation(std::string name, int level) const;

  /**
   * The best variation of a property, of any type: the one with the highest level that is not
   * negative and not above the smaller of the two consent levels.
   *
   * @param name the property's name.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportContentBestVariation(std::string name) const;
  /**
   * The best variation of a property of that type.
   *
   * @param name the property's name.
   * @param type what the property shall hold.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportContentBestVariation(std::string name,
                                                                        PropertyTypes type) const;
  /**
   * The best variation of a property of that type.
   *
   * @param name the property's name.
   * @return the variation; empty when there is none.
   */
  [[nodiscard]] std::optional<Variations> getReportFileBestVariation(std::string name) const;
  /** @copydoc getReportFileBestVariation() */
  [[nodiscard]] std::optional<Variations> getReportStringBestVariation(std::string name) const;
  /** @copydoc getReportFileBestVariation() */
  [[nodiscard]] std::optional<Variations> getReportIntegerBestVariation(std::string name) const;
  /** @copydoc getReportFileBestVariation() */
  [[nodiscard]] std::optional<Variations> getReportDoubleBestVariation(std::string name) const;
  /** @copydoc getReportFileBestVariation() */
  [[nodiscard]] std::optional<Variations> getReportBooleanBestVariation(std::string name) const;

  /**
   * The value of a property's variation at a level.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return the value, or "Unable to get value for report string variation that does not exist".
   */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getReportStringVariationValue(
      std::string name, int level) const;
  /** @copydoc getReportStringVariationValue() The error's text says "integer" instead. */
  [[nodiscard]] OS::expected<int, DiagnosticError> getReportIntegerVariationValue(std::string name,
                                                                                  int level) const;
  /** @copydoc getReportStringVariationValue() The error's text says "double" instead. */
  [[nodiscard]] OS::expected<double, DiagnosticError> getReportDoubleVariationValue(
      std::string name, int level) const;
  /** @copydoc getReportStringVariationValue() The error's text says "boolean" instead. */
  [[nodiscard]] OS::expected<bool, DiagnosticError> getReportBooleanVariationValue(std::string name,
                                                                                   int level) const;

  /**
   * The value of a property's best variation.
   *
   * @param name the property's name.
   * @return the value, or "Unable to get path for report string variation that does not exist".
   */
  [[nodiscard]] OS::expected<std::string, DiagnosticError> getReportStringBestVariationValue(
      std::string name) const;
  /** @copydoc getReportStringBestVariationValue() The error's text says "integer" instead. */
  [[nodiscard]] OS::expected<int, DiagnosticError> getReportIntegerBestVariationValue(
      std::string name) const;
  /** @copydoc getReportStringBestVariationValue() The error's text says "double" instead. */
  [[nodiscard]] OS::expected<double, DiagnosticError> getReportDoubleBestVariationValue(
      std::string name) const;
  /** @copydoc getReportStringBestVariationValue() The error's text says "boolean" instead. */
  [[nodiscard]] OS::expected<bool, DiagnosticError> getReportBooleanBestVariationValue(
      std::string name) const;

  /**
   * Adds a variation at any stage, or replaces the one with its level in its place. When there is
   * no property of that name, nothing is added and that is no failure.
   *
   * @param name      the property's name. Its type is not checked.
   * @param variation what to add; its sensitivity_level says where.
   * @param overwrite whether a variation with that level may be replaced.
   * @return true; "Cannot update file variations on report with no contents" (line: "Cannot update
   *         variations on report with no contents"); "Variation already exists and overwrite is not
   *         allowed"; or "Failed to write updated contents for variation removal".
   */
  Result addReportContentVariation(std::string name, Variations variation, bool overwrite);
  /**
   * As addReportContentVariation(), with a value of the type in its name.
   *
   * @param name      the property's name. Its type is not checked.
   * @param level     the variation's sensitivity level.
   * @param value     the value; a text should be UTF-8.
   * @param overwrite whether a variation with that level may be replaced.
   * @return as there.
   */
  Result addReportStringVariation(std::string name, int level, std::string value, bool overwrite);
  /** @copydoc addReportStringVariation() */
  Result addReportIntegerVariation(std::string name, int level, int value, bool overwrite);
  /**
   * As addReportContentVariation(), with a value of the type in its name.
   *
   * @param name      the property's name. Its type is not checked.
   * @param level     the variation's sensitivity level.
   * @param value     the value. It must be finite: a NaN is not read back, and contents with an
   *                  infinity cannot be read at all.
   * @param overwrite whether a variation with that level may be replaced.
   * @return as there.
   */
  Result addReportDoubleVariation(std::string name, int level, double value, bool overwrite);
  /** @copydoc addReportStringVariation() */
  Result addReportBooleanVariation(std::string name, int level, bool value, bool overwrite);

  /**
   * Removes a variation at any stage, and then, for a file property, its file; failing to remove
   * that is no failure.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return true; "Cannot remove content property variations from report with no contents";
   *         "Content property variation to remove does not exist in report" ("Content property
   *         variation to remove (%s, %d) does not exist in report"); an error of the path builders
   *         with the line "Unable to determine destination path for file to remove"; or "Failed to
   *         write updated contents for variation removal".
   */
  Result removeContentPropertyVariation(std::string name, int level);
  /**
   * As removeContentPropertyVariation(), for a property of that type.
   *
   * @param name  the property's name.
   * @param level the variation's sensitivity level.
   * @return as there; without such a variation of a property of that type, "Report file variation
   *         to be removed does not exist in the report" ("Report file variation to be removed (%s,
   *         %d) does not exist in the report").
   */
  Result removeFileVariation(std::string name, int level);
  /** @copydoc removeFileVariation() The error's texts say "string" instead. */
  Result removeStringVariation(std::string name, int level);
  /** @copydoc removeFileVariation() The error's texts say "integer" instead. */
  Result removeIntegerVariation(std::string name, int level);
  /** @copydoc removeFileVariation() The error's texts say "double" instead. */
  Result removeDoubleVariation(std::string name, int level);
  /** @copydoc removeFileVariation() The error's texts say "boolean" instead. */
  Result removeBooleanVariation(std::string name, int level);

  ///@}

  /** @name Contents: files */
  ///@{

  /** What createReportTemporaryFile() and the filters return. */
  using TemporaryFileResult = OS::expected<std::shared_ptr<ReportTemporaryFile>, DiagnosticError>;

  /** Reads the stored file from the first stream and writes what is to replace it to the second.
   *  Returns whether its output counts. A stream that could not be opened is in its failed state.
   */
  using FileFilter = std::function<bool(std::ifstream&, std::ofstream&)>;

  /**
   * Picks a fresh name in the report's scratch directory, which is made when it is missing. No file
   * is made. Needs no lock.
   *
   * @return the handle; an error of the path builders with the line "Failed to get report temporary
   *         directory path"; or "Failed to create temp directory for report" with the system's
   *         code.
   * @throws std::filesystem::filesystem_error when the directory cannot be examined.
   */
  TemporaryFileResult createReportTemporaryFile();

  /**
   * Removes the scratch directory with all that is in it. Needs no lock. Handles stay valid.
   *
   * @return true; an error of the path builders with the line "Cannot purge unknown report
   *         temporary directory path"; or "err, Failed to remove temp directory for report" (code
   *         0; line: "Failed to remove temp directory for report").
   */
  Result purgeReportTemporaryFiles();

  /**
   * Copies a file into the report as a variation of a property (whose type is not checked). A file
   * of size 0 is read to its end, since those of /proc have that size.
   *
   * The file is copied first and the record written afterwards, without rollback: a failure leaves
   * at most directories, a file without a record or, when a stored file was being replaced, a part
   * or the whole of the new one in its place.
   *
   * @param name      the property.
   * @param variation the variation's level.
   * @param source    the file to copy.
   * @param fileName  name of the stored file; empty for @p name. Not used for a variation that
   *                  exists.
   * @param overwrite whether a variation that exists may get the new file.
   * @return true; "Cannot update file variations on report with no contents"; "Unable to determine
   *         destination path for new file" (no such property); an error of the path builders with
   *         that line; "File already exists and overwrite is not allowed"; "Failed to create
   *         directory for report file variation" or "Failed to copy file to report location" with
   *         the system's code (line: "Failed to copy file to report location: %s"); or "Failed to
   *         write updated contents for variation removal".
   * @throws std::filesystem::filesystem_error when the destination's directory cannot be examined,
   *         or the root is a relative path and there is no working directory.
   */
  Result copyFileToFileProperty(std::string name, int variation, std::filesystem::path source,
                                std::string fileName, bool overwrite);

  /**
   * Copies a temporary file into the report, as copyFileToFileProperty() does, and deletes it.
   *
   * @param name      the property.
   * @param variation the variation's level.
   * @param file      the temporary file, of any report.
   * @param fileName  as there.
   * @param overwrite as there.
   * @return true; "Temporary file to move to report is null", "Temporary file to move to report is
   *         not valid" or "Temporary file to move to report does not have a path"; or the error of
   *         copyFileToFileProperty() with the line "Failed to copy temporary file to report file
   *         variations"; the temporary file is then kept.
   * @throws std::filesystem::filesystem_error as copyFileToFileProperty(), the temporary file being
   *         kept; and, when everything else is done, as ReportTemporaryFile::cleanup().
   */
  Result moveReportTemporaryFileToFileProperty(std::string name, int variation,
                                               std::shared_ptr<ReportTemporaryFile> file,
                                               std::string fileName, bool overwrite);

  /**
   * The path of a stored file.
   *
   * @param name      the property.
   * @param variation the variation's level.
   * @return the path of the variation's file, "Unable to get path for report file variation that
   *         does not exist", or an error of the path builders.
   */
  [[nodiscard]] PathResult getReportFileVariationPath(std::string name, int variation) const;
  /**
   * As getReportFileVariationPath(), for the best variation.
   *
   * @param name the property.
   * @return as there.
   */
  [[nodiscard]] PathResult getReportFileBestVariationPath(std::string name) const;

  ///@}

  /** @name Contents: filters and policy */
  ///@{

  /**
   * Drops every variation whose level is above the smaller of the two consent levels, and then
   * removes the files of those that are dropped; failing to remove one is no failure. A consent
   * level that cannot be read counts as 0. The stage is marked by markDataPolicyApplied().
   *
   * @return true; "Cannot remove content property variations from report with no contents"; or
   *         "Failed to write updated contents for variation removal". A dropped file whose path
   *         leaves the report is not removed, with the line "Unable to determine destination path
   *         for file to remove".
   */
  Result applyPolicyFilters();

  /**
   * Runs a filter from a stored file into a new temporary file.
   *
   * @param name      the property.
   * @param variation the variation's level.
   * @param filter    called once, on the calling thread; not empty.
   * @return the temporary file; the error of createReportTemporaryFile() with the line "Failed to
   *         write updated contents for file variation filter"; "Temporary file to filter is null",
   *         "Temporary file to filter is not valid" or "Temporary file to filter has no path"; the
   *         error of getReportFileVariationPath(); "Temporary file to filter does not exist" when
   *         the stored file is gone (line: "Temporary file (%s) to filter does not exist"); or,
   *         without a line, "Filter aborted without error condition" when the filter returned
   *         false. The temporary file has the mode of the stored one, and may be read and written
   * by its owner.
   * @throws std::bad_function_call for an empty filter.
   * @throws std::filesystem::filesystem_error when the stored file cannot be examined. No temporary
   *         file stays then, nor when the filter throws, whose exception reaches the caller.
   */
  TemporaryFileResult filterFileVariationToTemporaryFile(std::string name, int variation,
                                                         FileFilter filter);

  /**
   * Replaces a stored file by what a filter makes of it.
   *
   * @param name      the property.
   * @param variation the variation's level.
   * @param filter    called once, on the calling thread; not empty.
   * @return true; an error of filterFileVariationToTemporaryFile() or
   *         moveReportTemporaryFileToFileProperty(); "Filtered temporary file is null" or "Filtered
   *         temporary file is not valid".
   * @throws std::filesystem::filesystem_error and all else, as filterFileVariationToTemporaryFile()
   *         and copyFileToFileProperty() do.
   */
  Result filterFileVariation(std::string name, int variation, FileFilter filter);

  ///@}

  /** @name Deletion */
  ///@{

  /**
   * Removes the report's whole directory. Needs the write lock, which is given up before the files
   * are removed. Afterwards, also when the removal failed, the object refers to no report.
   *
   * @return true, also when the directory was gone already; "Cannot delete report without a write
   *         lock" (nothing changed); the error of getReportDirPath() with the line "Unable to
   *         determine directory to delete for report" (nothing changed); or "Encountered errors
   *         while removing report files" with the removal's code and the line "Encountered errors
   *         while removing report files: %s".
   */
  Result deleteReport();

  ///@}

  /** @name Internal: for the repository */
  ///@{

  /**
   * Internal. Makes a new report of a default-constructed object, by way of the directory, the lock
   * file, the write lock and the sixteen initial keys. It holds no lock afterwards. Nothing that
   * was made is removed when it fails.
   *
   * @param root      the repository's root, which is made when it is missing.
   * @param id        the report's identifier.
   * @param appId     see DiagnosticData::createReport().
   * @param buildId   as there.
   * @param userId    as there.
   * @param deviceId  as there.
   * @param sessionId as there.
   * @return true; an error of the path builders with the line "Unable to create report with unknown
   *         path", "Unable to create report with unknown lock path" or "Unable to create report
   *         with unknown metadata path", after those of all three builders (for the null identifier
   *         six lines in all); "Failed to create directory for report" with the system's code;
   *         "Failed to create lock file for new report" with `errno` (`EEXIST` when there is one)
   *         and the line "Failed to create lock file for new report %s. errno = %d"; an error of
   *         acquireWriteLock() with the line "Unable to acquire write lock for new report %s"; or
   *         "Failed to to write initial metadata for report".
   */
  Result _create(std::filesystem::path root, ReportUuid id, int appId, int buildId, int userId,
                 std::string deviceId, std::string sessionId);

  /**
   * Internal. Attaches a default-constructed object to an existing report. Waits up to a second for
   * a writer to let go, and goes on without that (with the line "Unable to acquire opening read
   * lock for report %s"). It holds no lock afterwards.
   *
   * @param root the repository's root.
   * @param id   the report's identifier.
   * @return true; an error of the path builders with the line "Unable to open report with unknown
   *         lock path" or "Unable to open report with unknown metadata path", after those of both
   *         builders; "Lock file does not exist for diagnostic report" or "Metadata file does not
   *         exist for diagnostic report" with the system's code, or 0 when something else than a
   *         regular file is there, and the lines "Lock file %s does not exist for diagnostic
   *         report" and "Metadata file %s does not exist for diagnostic report"; "Failed to open
   *         lock file for existing report" with `errno` and the line "Failed to open lock file for
   *         existing report %s. errno = %d"; "Failed to initialize metadata kv store for report";
   *         or "Report id mismatch" with the line "Report id mismatch: expected %s, got %s" at
   *         warning priority.
   */
  Result _open(std::filesystem::path root, ReportUuid id);

  ///@}

  /**
   * @name Internal: path builders
   * All but the first fail as that does, with one more line, "Unable to prepare relative report
   * path for report with unknown report directory"; or with "Path is not within report directory"
   * and the line "Path: %s, is not within report directory: %s". When the place could not be
   * resolved, "Error %s while attempting to resolve path: %s" (or "… required path: %s") comes
   * before that line. A path with a NUL is refused too, as not within the directory.
   */
  ///@{

  /** Internal. See getReportDirPath(). @return as there. */
  [[nodiscard]] PathResult _getReportDirPath() const;
  /**
   * Internal. A path within the report.
   *
   * @param relative below the report's directory, or absolute and within it.
   * @return the path, or an error.
   */
  [[nodiscard]] PathResult _getReportRelativePath(std::filesystem::path relative) const;
  /** Internal. The path of "lock". @return it, or an error. */
  [[nodiscard]] PathResult _getReportLockPath() const;
  /** Internal. The path of "metadata.db". @return it, or an error. */
  [[nodiscard]] PathResult _getReportMetadataPath() const;
  /** Internal. The path of "tmp". @return it, or an error. */
  [[nodiscard]] PathResult _getReportTmpDirPath() const;
  /** Internal. The path of "contentfiles". @return it, or an error. */
  [[nodiscard]] PathResult _getReportContentFilesDirPath() const;
  /**
   * Internal. The path of "contentfiles/{propertyName}".
   *
   * @param propertyName the property.
   * @return the path, or an error.
   */
  [[nodiscard]] PathResult _getReportContentFileDirPath(std::string propertyName) const;
  /**
   * Internal. The path of "contentfiles/{propertyName}/{level}".
   *
   * @param propertyName the property.
   * @param level        the variation's level.
   * @return the path, or an error.
   */
  [[nodiscard]] PathResult _getReportFileVariationDirPath(std::string propertyName,
                                                          int level) const;
  /**
   * Internal. The path of "contentfiles/{propertyName}/{level}/{fileName}".
   *
   * @param propertyName the property.
   * @param level        the variation's level.
   * @param fileName     the stored file's name.
   * @return the path, or an error.
   */
  [[nodiscard]] PathResult _getReportFileVariationFilePath(std::string propertyName, int level,
                                                           std::string fileName) const;

  ///@}

 private:
  struct KELP_HIDDEN LockKind;

  KELP_HIDDEN Result acquireLock(const LockKind& kind, bool wait);
  KELP_HIDDEN Result waitForLock(const LockKind& kind, long timeoutMs);
  KELP_HIDDEN void resetLock(int descriptor);

  [[nodiscard]] KELP_HIDDEN int permittedLevel() const;
  KELP_HIDDEN PathResult filePathOf(const std::optional<Variations>& variation) const;

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
  std::shared_ptr<ReportStore> store_;
};

}  // namespace KELP::Diagnostic
