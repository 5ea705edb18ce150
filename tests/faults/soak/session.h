#pragma once

#include "faults/soak/changes.h"
#include "faults/soak/journal.h"
#include "support/logcapture.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test::Soak {

/** How long a lock may be held by somebody; after that it is held by nobody. */
constexpr long kLongestLock = 30000;

/** What a process of the soak works with. */
struct Place {
  std::filesystem::path root;
  std::filesystem::path work;  ///< A directory outside of the root, with the journal.
  std::string who;
  std::uint64_t seed;

  [[nodiscard]] std::filesystem::path journal() const { return work / "journal"; }
  /** What the process copies into reports. */
  [[nodiscard]] std::filesystem::path source() const { return work / who; }
};

/** The identifiers that name something in the root, whether it is a report or not. */
[[nodiscard]] std::vector<Diagnostic::ReportUuid> namesIn(const std::filesystem::path& root);

/** Whether a line has come on the standard input, or its end. */
[[nodiscard]] bool isToldSomething();

/** How many descriptors this process has open. */
[[nodiscard]] std::size_t descriptorCount();

/** Opens one report, and tells the journal of all that is done with it, before and after. */
class Session {
 public:
  Session(const Diagnostic::DiagnosticData& repository, const Journal& journal, LogCapture& log,
          const Diagnostic::ReportUuid& id);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  [[nodiscard]] bool isOpen() const { return report_ != nullptr; }
  [[nodiscard]] const std::string& id() const { return id_; }

  /** Says so in the journal when the lock was taken, and what the report says. */
  bool lockForWriting(const Report::Result& result) { return locked(result, Kind::WriteLocked); }
  bool lockForReading(const Report::Result& result) { return locked(result, Kind::ReadLocked); }
  void unlock();

  /** Makes up a change and makes it, under the write lock. */
  void change(MakeUp* makeUp, Chance& chance, const std::string& number, const Place& place);
  /** Deletes the report, under the write lock. */
  void remove(Chance& chance);

  Report* operator->() { return report_.get(); }

 private:
  bool locked(const Report::Result& result, Kind kind);
  void judge(const Change& change, const Report::Result& result);

  const Journal& journal_;
  LogCapture& log_;
  Diagnostic::ReportUuid uuid_;
  std::string id_;
  std::unique_ptr<Report> report_;
  ReportState state_;
};

/** The last line of the log at error or warning priority, which says why something was refused. */
[[nodiscard]] std::string lastLine(LogCapture& log);

}  // namespace KELP::Test::Soak
