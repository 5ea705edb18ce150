#pragma once

#include "reports/notices.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace KELP::Tool {

/** What became of a report. */
enum class Happening { Existing, Added, Updated, Removed };

struct ReportEvent {
  std::string name;  ///< The identifier's text.
  Happening happening;
  long time;  ///< When it was heard of, in seconds since the epoch.
};

/**
 * Hears of what happens to the reports of a repository, beginning with those that exist. It looks
 * at the files from outside. The library's own observer opens every report when it starts, which
 * takes their locks for a moment and waits for those that are being written.
 *
 * A report is there as soon as its metadata is. Nothing is missed, however late take() is called;
 * when the kernel itself loses notices, what is there is compared with what was told.
 */
class Follower {
 public:
  /** Throws a Failure: NotFound when @p root is no directory, Failed when the system refuses. */
  explicit Follower(std::filesystem::path root);

  /**
   * What happened since the last call; waits until something did.
   *
   * Throws Interrupted when a signal came, or (SIGPIPE) when nobody reads the standard output any
   * more, and a Failure (NotFound) when the root itself is gone and all has been told.
   */
  [[nodiscard]] std::vector<ReportEvent> take();

 private:
  void handleRoot(const Notice& notice);
  void handleReport(const Notice& notice);
  void lookAgain();
  void watchReport(const std::string& name);
  void unwatchReport(const std::string& name);
  [[nodiscard]] bool hasMetadata(const std::string& name) const;
  void tell(const std::string& name, Happening happening);
  void tellOfMetadata(const std::string& name);
  void tellRemoval(const std::string& name);

  std::filesystem::path root_;
  Notices notices_;
  std::map<std::string, int> watches_;  ///< By the names of the reports.
  std::set<std::string> known_;         ///< Those that were told of and not removed since.
  std::set<std::string> modified_;      ///< Those whose metadata is being written.
  std::vector<ReportEvent> told_;       ///< For take().
  long now_;                            ///< When the notice that is being handled came.
  bool isRootGone_ = false;
  bool isRefusalTold_ = false;
};

}  // namespace KELP::Tool
