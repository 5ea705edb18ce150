#include "integration/observer/producer.h"

#include <signal.h>

#include <chrono>
#include <optional>
#include <stdexcept>

namespace KELP::Test {
namespace {

/** Longer than any command takes. */
constexpr std::chrono::seconds kLimit{120};

}  // namespace

Producer::Producer(const std::filesystem::path& root) : process_({OBSERVER_PRODUCER, root}) {}

void Producer::request(const std::string& command) {
  begin(command);
  await();
}

void Producer::end() {
  process_.send("end");
  await();
}

void Producer::await() {
  const std::optional<std::string> answer = process_.receive(kLimit);
  if (answer != "ok") {
    throw std::runtime_error("the producer: " + answer.value_or("no answer"));
  }
}

void Producer::kill() {
  process_.signal(SIGKILL);
  if (process_.wait() != 128 + SIGKILL) {
    throw std::runtime_error("the producer ended before it was killed");
  }
}

std::vector<std::string> Producer::commandLine(const std::filesystem::path& root,
                                               const std::string& command) {
  return {OBSERVER_PRODUCER, root, command};
}

}  // namespace KELP::Test
