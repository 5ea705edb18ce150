#include "roles.h"
#include "steps.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iomanip>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

namespace CrashDemo {
namespace {

namespace fs = std::filesystem;
using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticDataObserver;
using KELP::Diagnostic::ReportUuid;
using Clock = ChangeLog::Clock;
using EventType = DiagnosticDataObserver::EventType;

/** The end of what is waited for, told by one thread to another. */
class End {
 public:
  End() : descriptor_(::eventfd(0, EFD_CLOEXEC)) { require(descriptor_ >= 0, "making an eventfd"); }
  ~End() { ::close(descriptor_); }
  End(const End&) = delete;
  End& operator=(const End&) = delete;

  void tell() const { ::eventfd_write(descriptor_, 1); }
  /** Waits until it was told, or there is no more input. @return whether it was told. */
  [[nodiscard]] bool waitForItOrInputsEnd() const;

 private:
  int descriptor_;
};

bool End::waitForItOrInputsEnd() const {
  for (;;) {
    pollfd either[] = {{descriptor_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (::poll(either, std::size(either), -1) < 0) {
      require(errno == EINTR, "waiting");
      continue;
    }
    if (either[0].revents != 0) {
      return true;
    }
    char ignored[256];
    if (::read(STDIN_FILENO, ignored, sizeof ignored) <= 0) {
      return false;
    }
  }
}

std::string millisecondsText(Clock::duration duration) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2)
       << std::chrono::duration<double, std::milli>(duration).count() << " ms";
  return text.str();
}

/** Whose turn it was, and how much later the change that was begun then was told. */
std::string causeText(const ChangeLog::Turn* turn,
                      std::atomic<Clock::time_point> ChangeLog::Turn::*change,
                      Clock::time_point told) {
  return turn == nullptr ? "by somebody else"
                         : std::string("by the ") + turn->role + ", told within " +
                               millisecondsText(told - (turn->*change).load());
}

/** Sends a word to whoever has started this process with a socket as its standard input. */
void sendWord() {
  const char word = 1;
  ::send(STDIN_FILENO, &word, 1, MSG_NOSIGNAL);  // Fails when the input is no socket.
}

/**
 * Prints what happens to the report of this run, and tells when it is gone.
 *
 * Updates come by the dozen, so those of one role's turn are printed as one line when the turn is
 * over. The time is that of the last one: from when the change was begun, by the process that made
 * it, until this process was called.
 */
class Announcer {
 public:
  Announcer(const Console& console, const Assignment& assignment)
      : console_(console), assignment_(assignment) {}

  void operator()(const ReportUuid& id, EventType type) {
    const auto now = Clock::now();
    if (id == assignment_.id) {
      announce(type, assignment_.changes.at(now), now);
    }
  }

  [[nodiscard]] const End& removed() const { return removed_; }

 private:
  void announce(EventType type, const ChangeLog::Turn* turn, Clock::time_point now) {
    if (type != EventType::REPORT_UPDATED || turn != updatingTurn_) {
      printUpdates();
    }
    switch (type) {
      case EventType::REPORT_EXISTING:
        print("REPORT_EXISTING", "was there");
        break;
      case EventType::REPORT_ADDED:
        print("REPORT_ADDED", causeText(turn, &ChangeLog::Turn::firstChange, now));
        sendWord();
        break;
      case EventType::REPORT_UPDATED:
        updatingTurn_ = turn;
        lastUpdate_ = now;
        ++updates_;
        break;
      case EventType::REPORT_REMOVED:
        print("REPORT_REMOVED", causeText(turn, &ChangeLog::Turn::lastChange, now));
        removed_.tell();
        break;
    }
  }

  void printUpdates() {
    if (updates_ > 0) {
      print("REPORT_UPDATED",
            std::to_string(updates_) + " times " +
                causeText(updatingTurn_, &ChangeLog::Turn::lastChange, lastUpdate_));
      updates_ = 0;
    }
  }

  void print(const char* type, const std::string& text) const {
    console_.field(type, assignment_.id.toString() + "  " + text);
  }

  const Console& console_;
  const Assignment& assignment_;
  const ChangeLog::Turn* updatingTurn_ = nullptr;
  Clock::time_point lastUpdate_;
  int updates_ = 0;
  End removed_;
};

}  // namespace

void runObserver(const Console& console, Assignment& assignment) {
  const auto reports = std::make_shared<DiagnosticData>(assignment.reports);
  std::error_code ignored;  // The log tells when there is no root to watch.
  fs::create_directories(reports->getRootPath(), ignored);

  assignment.changes.clear();
  Announcer announcer(console, assignment);
  DiagnosticDataObserver observer(
      reports,
      [&](const ReportUuid& id, EventType type, void* /*userData*/) { announcer(id, type); },
      nullptr);
  observer.start();
  console.say("observes " + reports->getRootPath().string());
  sendWord();

  const bool isRemoved = announcer.removed().waitForItOrInputsEnd();
  observer.stop();
  console.say(isRemoved ? "the report is gone" : "there is no more input");
}

}  // namespace CrashDemo
