#include "base/interrupt.h"

#include <csignal>
#include <cstdlib>

namespace KELP::Tool {
namespace {

// A handler of signals reaches nothing else.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
volatile std::sig_atomic_t caught = 0;

void remember(int signal) {
  caught = signal;
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

}  // namespace

void catchSignals() {
  struct sigaction action {};
  action.sa_handler = remember;
  ::sigemptyset(&action.sa_mask);
  for (const int signal : kSignals) {
    struct sigaction before {};
    ::sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) {  // Such as SIGHUP under nohup.
      ::sigaction(signal, &action, nullptr);
    }
  }
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  // Not ignored: that would pass on to a program that is executed.
  static_cast<void>(std::signal(SIGXFSZ, [](int) {}));
}

void checkInterrupt() {
  if (caught != 0) {
    throw Interrupted{caught};
  }
}

bool waitUntilReady(std::span<pollfd> polled) {
  const BlockedSignals blocked;
  constexpr timespec kNoTime{};
  return ::ppoll(polled.data(), polled.size(), caught != 0 ? &kNoTime : nullptr,
                 &blocked.before()) > 0;
}

void waitUntilReady(int descriptor, short events) {
  pollfd polled{descriptor, events, 0};
  while (!waitUntilReady({&polled, 1})) {
    checkInterrupt();
  }
}

void forgetInterrupt() {
  caught = 0;
}

BlockedSignals::BlockedSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : kSignals) {
    ::sigaddset(&signals, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals, &before_);
}

BlockedSignals::~BlockedSignals() {
  ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void endBySignal(int signal) {
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(std::raise(signal));
  std::_Exit(128 + signal);
}

}  // namespace KELP::Tool
