#include "integration/report/actor.h"

#include "support/startedby.h"
#include "support/temporarydirectory.h"

#include <signal.h>
#include <sys/syscall.h>

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace KELP::Test {
namespace {

using namespace std::chrono_literals;

void await(const std::function<bool()>& condition, const char* what) {
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error(what);
    }
    std::this_thread::sleep_for(1ms);
  }
}

std::string processFile(pid_t pid, const char* name) {
  return readFile("/proc/" + std::to_string(pid) + "/" + name);
}

/** Whether a signal sent to the process as a whole waits for delivery. */
bool isPending(pid_t pid, int signal) {
  const std::string status = processFile(pid, "status");
  const std::string label = "ShdPnd:";
  const std::size_t at = status.find(label);
  if (at == std::string::npos) {
    throw std::runtime_error("the actor is gone");
  }
  const auto mask = std::stoull(status.substr(at + label.size()), nullptr, 16);
  return (mask >> (signal - 1) & 1U) != 0;
}

}  // namespace

Actor::Actor(const std::filesystem::path& root, std::vector<std::string> starter)
    : process_(startedBy(std::move(starter), {KELP_REPORT_ACTOR, root.string()})) {}

std::string Actor::ask(const std::string& command) {
  tell(command);
  return answer();
}

std::string Actor::answer() {
  const std::optional<std::string> line = process_.receive(60s);
  if (!line) {
    throw std::runtime_error("the actor does not answer");
  }
  return *line;
}

void Actor::awaitBlockedInFlock() const {
  const std::string flockCall = std::to_string(SYS_flock) + " ";
  await([&] { return processFile(pid(), "syscall").starts_with(flockCall); },
        "the actor does not wait for a lock");
}

void Actor::interrupt() const {
  process_.signal(SIGUSR1);
  await([&] { return !isPending(pid(), SIGUSR1); }, "the actor does not take the signal");
}

}  // namespace KELP::Test
