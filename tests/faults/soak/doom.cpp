#include "faults/soak/doom.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>

namespace KELP::Test::Soak {
namespace {

constexpr suseconds_t kLongestRespite = 400;  ///< Microseconds, about as long as a change takes.

volatile std::sig_atomic_t doomed = 0;

}  // namespace

void mayBeDoomed() {
  struct sigaction action {};
  action.sa_flags = SA_RESTART;
  action.sa_handler = [](int) { doomed = 1; };
  ::sigaction(SIGUSR1, &action, nullptr);
  action.sa_handler = [](int) { ::kill(::getpid(), SIGKILL); };
  ::sigaction(SIGALRM, &action, nullptr);
}

void meetDoom(Chance& chance) {
  if (doomed != 0) {
    itimerval timer{};
    timer.it_value.tv_usec = 1 + static_cast<suseconds_t>(chance.below(kLongestRespite));
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
}

}  // namespace KELP::Test::Soak
