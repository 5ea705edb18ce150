#pragma once

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>
#include <os/export.h>
#include <os/fileobserver.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace KELP::Diagnostic {

/**
 * Tells a client, by a callback, when reports exist, become usable, change or go away under the
 * root of a repository, whichever process caused it. A report is usable ("valid") when its
 * directory has a metadata store.
 *
 * Life cycle:
 *  1. Construct it on a repository. Nothing is watched yet.
 *  2. start() announces the reports that are there, on the calling thread, and then all that
 *     happens, on the observer's own thread.
 *  3. stop() ends that and forgets everything; start() may follow, and begins anew.
 *  4. The destructor stops.
 *
 * What is noticed, for a root directory whose entries are made by this library:
 *  - a report that is created, as soon as its metadata store is there;
 *  - each change of a report's metadata, after it was written; quick changes may be told as one;
 *  - the deletion of a report's directory or of its metadata, and moving its directory away.
 * Changes of other files are not noticed, nor is a metadata file that is moved away. Neither is,
 * before the next start(): a report directory that is moved into the root; one that was there at
 * the start, but could not be opened then; one whose metadata was deleted and written again in the
 * same directory; one whose directory came and went before, without ever having metadata; a root
 * that was not there at the start (logged), or was removed and made again.
 *
 * When so much happens that the kernel gives up telling, the observer looks at the root again: what
 * appeared is announced as added, what vanished as removed, and all else as updated.
 *
 * Threads: any thread may call start() and stop(). The callback is called with the observer's
 * recursive mutex held, so one call at a time, and may call start() and stop() itself, but must not
 * wait for another thread that needs the observer. When stop() has returned on another thread than
 * the one that is in the callback, no callback is running or will run; so do not hold a lock that
 * the callback takes. The object may not be destroyed from inside its callback.
 *
 * Errors: no operation reports any. What cannot be watched for want of a resource is logged at
 * error priority with the limit to raise (see OS::FileObserver), once for each start; such a report
 * is still announced when it is seen, but what happens to it later is not. The reports that are
 * watched go on.
 *
 * When the callback throws: out of start(), the exception reaches its caller, and the observer is
 * stopped; on the observer's own thread it is logged, the event counts as delivered, and observing
 * goes on. An empty callback throws std::bad_function_call in this way.
 */
class KELP_EXPORT DiagnosticDataObserver {
 public:
  /** What has happened to a report. */
  enum class EventType : int {
    REPORT_EXISTING = 0,  ///< It was there when the observer started.
    REPORT_ADDED = 1,     ///< It became valid.
    REPORT_UPDATED = 2,   ///< Its metadata was written again.
    REPORT_REMOVED = 3,   ///< Its directory was deleted or moved away, or its metadata deleted.
  };

  /** Called with the report, what happened, and the client's user data. */
  using Callback = std::function<void(const ReportUuid&, EventType, void*)>;

  /**
   * Watches nothing yet.
   *
   * @param data     the repository; not null.
   * @param callback called for each event; it may be called until stop() has returned.
   * @param userData passed to the callback as it is.
   */
  DiagnosticDataObserver(std::shared_ptr<DiagnosticData> data, Callback callback, void* userData);

  /** Stops, as stop() does. */
  ~DiagnosticDataObserver();

  DiagnosticDataObserver(const DiagnosticDataObserver&) = delete;
  DiagnosticDataObserver& operator=(const DiagnosticDataObserver&) = delete;
  DiagnosticDataObserver(DiagnosticDataObserver&&) = delete;
  DiagnosticDataObserver& operator=(DiagnosticDataObserver&&) = delete;

  /**
   * Begins to observe, and announces each report that can be opened as EventType::REPORT_EXISTING
   * before it returns; opening them may take a second for one that is being written. Does nothing
   * when started already.
   *
   * A root that is not there is logged as "Unable to watch %s: %s", and not watched.
   */
  void start();

  /** The same as clearObservers(). */
  void stop();

  /**
   * Ends all watches and forgets everything; the observer can be started again. Each report's watch
   * is logged as "Removing subfile watcher %d" at debug priority. Does nothing when stopped
   * already.
   */
  void clearObservers();

  /**
   * @name Internal operations
   * The steps of observing, which the watches call. They do nothing while the observer is stopped,
   * except that isValidReport() answers all the same.
   */
  ///@{

  /**
   * Internal: an event of the root. A created entry whose name is an identifier is a possible new
   * report; an overflow of the kernel's queue has everything looked at again.
   *
   * @param event    what the kernel tells.
   * @param userData not used.
   */
  void rootFileObserverCallback(inotify_event* event, void* userData);

  /**
   * Internal: an event of a report's directory. Announces what it means for the report.
   *
   * @param uuid     the report.
   * @param event    what the kernel tells.
   * @param userData not used.
   */
  void reportFileObserverCallback(ReportUuid uuid, inotify_event* event, void* userData);

  /**
   * Internal: watches a report's directory unless it is watched already, and announces the report
   * when it is valid.
   *
   * @param uuid the report.
   * @param type what it is announced as.
   */
  void handlePossibleNewReport(const ReportUuid& uuid, EventType type);

  /**
   * Internal: whether the report's directory and, in it, the metadata store are there. An error in
   * finding out counts as absence.
   *
   * @param uuid the report.
   * @return true if so.
   */
  bool isValidReport(const ReportUuid& uuid);

  ///@}

 private:
  class KELP_HIDDEN Lock;

  [[nodiscard]] KELP_HIDDEN bool isStarted() const;
  [[nodiscard]] KELP_HIDDEN std::string pathOf(const ReportUuid& uuid) const;
  template <typename Handler>
  [[nodiscard]] KELP_HIDDEN OS::FileObserver::Callback inThisSession(Handler handler);
  KELP_HIDDEN void watchRoot();
  KELP_HIDDEN void watchReport(const ReportUuid& uuid);
  KELP_HIDDEN bool announceIfValid(const ReportUuid& uuid);
  KELP_HIDDEN void announceRemoval(const ReportUuid& uuid);
  KELP_HIDDEN void lookAgain();
  KELP_HIDDEN void lookAgainAt(const ReportUuid& uuid);

  std::recursive_mutex mutex_;  ///< Guards everything below.
  std::shared_ptr<DiagnosticData> data_;
  void* userData_;
  Callback callback_;
  std::unique_ptr<OS::FileObserver> fileObserver_;      ///< Null while stopped.
  int rootWatch_ = 0;                                   ///< 0 when there is none.
  std::unordered_map<std::string, int> reportWatches_;  ///< By identifier.
  std::unordered_set<std::string> knownReports_;        ///< Announced, and not yet as removed.
  std::unordered_set<std::string> metadataBeingWritten_;
  std::string root_;  ///< The path of the repository's root.
  /// Changes with each start and each stop; odd while started. Who calls the client compares it
  /// afterwards, since the client may have stopped the observer, and started it again.
  std::atomic<std::uint64_t> session_{0};
  int lockDepth_ = 0;  ///< How often the thread that has the mutex has locked it.
  std::vector<std::unique_ptr<OS::FileObserver>> endingFileObservers_;
};

}  // namespace KELP::Diagnostic
