// sweepactor OPERATION ROOT OUTSIDE LEDGER [arrange]: arranges an operation, says "begin", does it,
// and says "end". What came of it stands in the ledger, and what it says may fail: only the first
// trace listens. With "arrange" it goes no further than that.

#include "faults/sweep/ledger.h"
#include "faults/sweep/operation.h"
#include "support/logcapture.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <utility>

namespace {

using namespace KELP::Test;

void say(const char* line) {
  [[maybe_unused]] const ssize_t ignored = ::write(STDOUT_FILENO, line, std::strlen(line));
}

/** How many descriptors are open, by a system call that no operation makes. */
int openDescriptors() {
  std::array<pollfd, 256> all{};
  for (int i = 0; pollfd & one : all) {
    one.fd = i++;
  }
  ::poll(all.data(), all.size(), 0);
  int open = 0;
  for (const pollfd& one : all) {
    open += (one.revents & POLLNVAL) == 0 ? 1 : 0;
  }
  return open;
}

Outcome outcomeOf(const Operation& operation, Scene& scene) {
  try {
    return operation.act(scene);
  } catch (const std::filesystem::filesystem_error& error) {
    return {Outcome::Kind::ThrewFileError, error.what(), error.code().value()};
  } catch (const std::exception& error) {
    return {Outcome::Kind::ThrewOther, error.what(), 0};
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 5) return 2;
  const Operation& operation = operationNamed(arguments[1]);
  Ledger ledger(arguments[4], false);
  LogCapture log;
  Scene scene;
  scene.root = arguments[2];
  scene.outside = arguments[3];
  const int before = openDescriptors();
  operation.arrange(scene);
  if (count > 5) ::_exit(0);  // Nothing is closed: the operation finds it so too.

  static_cast<void>(log.take());
  ledger.begin();
  say("begin\n");
  const Outcome outcome = outcomeOf(operation, scene);
  say("end\n");
  ledger.end(outcome, log.take());
  const auto kept = std::move(scene.file);  // Its end would remove what a failure has to keep.
  scene = Scene();
  ledger.close(before, openDescriptors());
  std::exit(0);  // Without the ends of what is kept, but with what coverage has counted.
}
