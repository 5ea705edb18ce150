#include "base/log.h"

#include "base/progress.h"
#include "base/text.h"

#include <android/log.h>

#include <iostream>
#include <mutex>

namespace KELP::Tool {
namespace {

struct State {
  std::mutex mutex;
  bool isVerbose = false;
  std::string lastError;
};

State& state() {
  static State state;
  return state;
}

const char* priorityText(int priority) {
  switch (priority) {
    case ANDROID_LOG_ERROR:
      return "error";
    case ANDROID_LOG_WARN:
      return "warning";
    default:
      return "debug";
  }
}

}  // namespace

void redirectLog(bool verbose) {
  state().isVerbose = verbose;
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger([](const __android_logger_data* line, const char* message) {
    const std::lock_guard lock(state().mutex);
    const std::string text = escaped(message);
    if (line->priority >= ANDROID_LOG_ERROR) {
      state().lastError = text;
    }
    if (state().isVerbose) {
      Progress::hide();
      std::cerr << line->tag << ": " << priorityText(line->priority) << ": " << text << '\n';
    }
  });
}

std::string lastLoggedError() {
  const std::lock_guard lock(state().mutex);
  return state().lastError;
}

}  // namespace KELP::Tool
