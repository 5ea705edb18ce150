#include "faults/soak/session.h"

#include "faults/soak/doom.h"
#include "support/descriptors.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <system_error>

namespace KELP::Test::Soak {

namespace fs = std::filesystem;

std::vector<Diagnostic::ReportUuid> namesIn(const fs::path& root) {
  std::vector<Diagnostic::ReportUuid> ids;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(root, ignored)) {
    if (Diagnostic::ReportUuid id; id.parse(entry.path().filename().c_str())) {
      ids.push_back(id);
    }
  }
  return ids;
}

bool isToldSomething() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) > 0;
}

std::size_t descriptorCount() {
  return descriptorsOf("self").size();
}

std::string lastLine(LogCapture& log) {
  const auto lines = log.take();
  const auto last = std::find_if(lines.rbegin(), lines.rend(),
                                 [](const LogLine& line) { return line.priority >= kWarning; });
  return last != lines.rend() ? last->text : "nothing was logged";
}

Session::Session(const Diagnostic::DiagnosticData& repository, const Journal& journal,
                 LogCapture& log, const Diagnostic::ReportUuid& id)
    : journal_(journal), log_(log), uuid_(id), id_(id.toString()) {
  static_cast<void>(log_.take());
  journal_.write(Kind::Opening, id_);
  report_ = repository.openReport(id);
  if (report_) {
    journal_.write(Kind::Opened, id_);
  } else {
    journal_.write(Kind::NotOpened, id_, lastLine(log_));
  }
}

Session::~Session() {
  report_.reset();
  journal_.write(Kind::Closed, id_);
}

bool Session::locked(const Report::Result& result, Kind kind) {
  if (!result) {
    journal_.write(Kind::LockRefused, id_, result.error().message);
    return false;
  }
  state_ = readState(*report_);
  journal_.write(kind, id_, state_.token() + (isBeginning(state_, uuid_) ? " beginning" : " full"));
  for (const auto& [variation, file] : state_.files) {
    if (file == "damaged") {
      journal_.write(Kind::NotAsExpected, id_, "a file is damaged: " + state_.filesText());
    }
  }
  return true;
}

void Session::unlock() {
  journal_.write(Kind::Unlocking, id_);
  if (const auto released = report_->releaseLock(); !released) {
    journal_.write(Kind::Violation, id_, "a lock is not released: " + released.error().message);
  }
}

void Session::change(MakeUp* makeUp, Chance& chance, const std::string& number,
                     const Place& place) {
  const fs::path directory = place.root / id_;
  const Change change = makeUp({state_, chance, number, directory, place.source()});
  std::string text = change.name + ' ' + state_.token() + ' ' +
                     (change.refusal ? state_.token() : change.after.token());
  for (const ReportState& torn : change.torn) {
    text += ' ' + torn.token();
  }
  journal_.write(Kind::Changing, id_, text);
  const long before = report_->getModifiedTime();
  if (!change.refusal) {
    meetDoom(chance);
  }
  const std::time_t begin = std::time(nullptr);
  const Report::Result result = change.act(*report_);
  const long modified = report_->getModifiedTime();
  if (modified != before && (modified < begin || modified > std::time(nullptr))) {
    journal_.write(
        Kind::NotAsExpected, id_,
        "the time of modification is " + std::to_string(modified) + " at " + std::to_string(begin));
  }
  judge(change, result);
}

void Session::judge(const Change& change, const Report::Result& result) {
  const ReportState& expected = change.refusal ? state_ : change.after;
  ReportState seen = readState(*report_);
  const std::string message = result ? "success" : result.error().message;
  const bool isAsExpected = message == change.refusal.value_or("success");
  if (isAsExpected && seen.token() == expected.token()) {
    journal_.write(result ? Kind::Changed : Kind::Refused, id_,
                   result ? change.name : change.name + ": " + message);
  } else {
    journal_.write(Kind::NotAsExpected, id_,
                   change.name + ": expected " + change.refusal.value_or("success") + " with [" +
                       expected.metadataText() + expected.filesText() + "], seen " + message +
                       " with [" + seen.metadataText() + seen.filesText() + "], log " +
                       lastLine(log_));
  }
  state_ = std::move(seen);
}

void Session::remove(Chance& chance) {
  journal_.write(Kind::Deleting, id_);
  meetDoom(chance);
  const auto deleted = report_->deleteReport();
  if (deleted) {
    journal_.write(Kind::Deleted, id_);
  } else {
    journal_.write(Kind::NotDeleted, id_, deleted.error().message);
  }
}

}  // namespace KELP::Test::Soak
