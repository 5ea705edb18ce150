#pragma once

#include <poll.h>

#include <csignal>
#include <span>

/** How the program ends when a signal asks it to: between two steps, with nothing left behind. */
namespace KELP::Tool {

/** Thrown where work stops because of a signal; main() then ends the process by that signal. */
struct Interrupted {
  int signal;
};

/** From now on SIGINT, SIGTERM and SIGHUP are remembered, and SIGPIPE and SIGXFSZ are
 * failed writes. */
void catchSignals();

/** Throws Interrupted when a signal came. Long work calls it between its steps. */
void checkInterrupt();

/** Waits until one of @p polled is ready, unless a signal came, or comes meanwhile: then it only
 * looks. None comes unseen between the look and the wait.
 * @return whether one is ready. */
[[nodiscard]] bool waitUntilReady(std::span<pollfd> polled);

/** Waits until @p descriptor is ready for @p events, as poll() has them. Throws Interrupted when a
 * signal came and it is not. */
void waitUntilReady(int descriptor, short events);

/** Goes on as if no signal had come, because it was answered. The next one counts again. */
void forgetInterrupt();

/** As long as it lives, the signals that are remembered do not reach this thread, nor the threads
 *  that it starts. They come when it goes. */
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

  /** What was blocked before. */
  [[nodiscard]] const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

/** Ends the process by @p signal, as its sender expects. */
[[noreturn]] void endBySignal(int signal);

}  // namespace KELP::Tool
