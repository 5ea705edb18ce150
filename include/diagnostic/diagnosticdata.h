#pragma once

#include <diagnostic/diagnosticerror.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>
#include <os/expected.h>
#include <os/export.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Diagnostic {

/**
 * The repository: all reports under one root directory. This is where a client begins.
 *
 * Life cycle:
 *  1. Construct it on the root's path. Nothing is looked at or created yet.
 *  2. Create, open, list, count and delete reports. Each call goes to the file system, so any
 *     number of processes may share a root.
 *  3. Reports that were handed out belong to the caller and outlive the repository.
 *
 * Threads: nothing changes after construction, so any thread may call at any time.
 *
 * Errors: creation and opening fail by an empty pointer, and the reason is in the log, at error
 * priority under the tag "diagnosticdata".
 */
class KELP_EXPORT DiagnosticData {
 public:
  /**
   * Keeps the path, and looks at nothing.
   *
   * @param root the directory of all reports; it need not exist until a report is created, which
   *             creates it.
   */
  explicit DiagnosticData(std::filesystem::path root);

  /** The root. @return the path that was given. */
  [[nodiscard]] std::filesystem::path getRootPath() const;

  /**
   * Opens a report. Waits up to a second for a writer to let go of it, and then opens it all the
   * same.
   *
   * @param id the report's identifier.
   * @return the report, without a lock; empty when it does not exist or is damaged (see
   *         DiagnosticReport::_open for the lines logged).
   */
  [[nodiscard]] std::unique_ptr<DiagnosticReport> openReport(ReportUuid id) const;

  /**
   * Creates a report with a random identifier.
   *
   * @param appId     identifier of the application that reports. Any number will do, here and for
   *                  the next two: the library gives them no meaning.
   * @param buildId   identifier of its build.
   * @param userId    identifier of the user.
   * @param deviceId  identifier of the device, any text.
   * @param sessionId identifier of the session, any text.
   * @return the report, without a lock; empty on failure (see DiagnosticReport::_create for the
   *         lines logged).
   */
  [[nodiscard]] std::unique_ptr<DiagnosticReport> createReport(int appId, int buildId, int userId,
                                                               std::string deviceId,
                                                               std::string sessionId) const;

  /**
   * Creates a report with a given identifier.
   *
   * @param id        the report's identifier; not null.
   * @param appId     as in the other form.
   * @param buildId   as in the other form.
   * @param userId    as in the other form.
   * @param deviceId  as in the other form.
   * @param sessionId as in the other form.
   * @return as the other form; also empty for the null identifier ("Cannot create diagnostic report
   *         with null uuid") and when anything stands in the report's place ("Cannot create
   *         diagnostic report because another report already exists with the same uuid").
   */
  [[nodiscard]] std::unique_ptr<DiagnosticReport> createReport(ReportUuid id, int appId,
                                                               int buildId, int userId,
                                                               std::string deviceId,
                                                               std::string sessionId) const;

  /**
   * Deletes a report. It waits for a writer as openReport() does, up to a second, and then not at
   * all: a report that opens and that someone holds is not deleted. With @p force, one that does
   * not open is deleted without asking for its lock, also while it is being created.
   *
   * @param id    the report's identifier.
   * @param force true: also delete what does not open, or is only a part of a report.
   * @return true when nothing of the report is left. With @p force, what cannot be examined counts
   *         as not there: who may not look into the root is told true. Otherwise
   *         - unless @p force, the error of DiagnosticReport::_open or
   *           DiagnosticReport::deleteReport;
   *         - "Unable to acquire write lock on report" (code 0, no line beyond that of the lock);
   *         - "Failed to remove empty report", "Failed to remove lock file from report while force
   *           deleting" or "Failed to remove metadata file from report while force deleting" (also
   *           when the directory could not be removed), each with the removal's code;
   *         - "Failed to force remove report directory" (code 0).
   *         What was not removed is left for a later forced deletion.
   */
  OS::expected<bool, DiagnosticError> deleteReport(ReportUuid id, bool force) const;

  /**
   * Counts the directories under the root whose names do not begin with ".", whether they are
   * reports or not. An entry that cannot be examined is skipped with the line "Error while counting
   * diagnostic reports: %s".
   *
   * @return their number; 0 for a root that cannot be read.
   */
  [[nodiscard]] std::uint64_t countAllReports() const;

  /**
   * Lists the reports that can be opened. Opens each of them to find out, so a report that is being
   * written can cost a second. An entry that cannot be examined is skipped with the line "Error
   * while enumerating diagnostic reports: %s". The names of directories are read as identifiers in
   * either case, but only the directory in lower case is opened: a report with a twin in upper case
   * is listed twice, and one in upper case alone is not.
   *
   * @return their identifiers, in the order of the directory; none for a root that cannot be read.
   */
  [[nodiscard]] std::vector<ReportUuid> getAllReportUuids() const;

 private:
  std::filesystem::path root_;
};

}  // namespace KELP::Diagnostic
