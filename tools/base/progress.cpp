#include "base/progress.h"

#include "base/interrupt.h"
#include "base/output.h"

#include <iostream>
#include <utility>

namespace KELP::Tool {
namespace {

constexpr std::chrono::milliseconds kPatience{300};
constexpr std::chrono::milliseconds kRefresh{100};

/** Whether there is a line to be taken away. */
bool& isShown() {
  static bool shown = false;
  return shown;
}

}  // namespace

Progress::Progress(std::string what, std::size_t total)
    : what_(std::move(what)), total_(total), next_(std::chrono::steady_clock::now() + kPatience) {}

Progress::~Progress() {
  hide();
}

void Progress::step() {
  checkInterrupt();
  ++done_;
  if (!errorsAreTerminal() || std::chrono::steady_clock::now() < next_) {
    return;
  }
  next_ = std::chrono::steady_clock::now() + kRefresh;
  std::cerr << '\r' << what_ << ": " << done_ << " of " << total_ << " (" << done_ * 100 / total_
            << " %)\033[K";
  isShown() = true;
}

void Progress::hide() {
  if (std::exchange(isShown(), false)) {
    std::cerr << "\r\033[K";
  }
}

}  // namespace KELP::Tool
