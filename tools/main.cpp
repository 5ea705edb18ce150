// kelp-diagnostics: looks at and keeps a repository of diagnostic reports.

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/log.h"
#include "base/output.h"
#include "base/text.h"
#include "verbs/program.h"

#include <clocale>
#include <exception>
#include <string>

namespace {

using KELP::Tool::ExitStatus;

/** Writes what was printed before. The failure that is there already is the one to be told. */
void flushAtFailure() {
  try {
    KELP::Tool::flushOutput();
  } catch (...) {
    KELP::Tool::discardOutput();
  }
}

int statusOf(ExitStatus status) {
  return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace KELP::Tool;
  // Numbers keep their points. No other thread runs yet.
  static_cast<void>(std::setlocale(LC_CTYPE, ""));  // NOLINT(concurrency-mt-unsafe)
  keepStandardDescriptors();
  catchSignals();
  try {
    const ExitStatus status = runProgram(argc, argv);
    flushOutput();
    checkInterrupt();  // Whoever asked for the end is not to be told of success alone.
    return statusOf(status);
  } catch (const Interrupted& interrupted) {
    endBySignal(interrupted.signal);
  } catch (const Failure& failure) {
    flushAtFailure();
    warn(failure.what());
    return statusOf(failure.status());
  } catch (const std::exception& exception) {
    flushAtFailure();
    warn(escaped(exception.what()));
    return statusOf(ExitStatus::Failed);
  }
}
