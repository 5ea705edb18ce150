#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace KELP::Tool {

/**
 * Shows how far long work has come, in one line on the standard error when that is a terminal. The
 * line appears when the work takes longer than a moment, and goes with the object.
 */
class Progress {
 public:
  /** @param what what is done, such as "Reading reports". @param total how many steps there are. */
  Progress(std::string what, std::size_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /** One step is done. Throws Interrupted when a signal came. */
  void step();

  /** Takes the line away, if one is shown, because something else will be written. */
  static void hide();

 private:
  std::string what_;
  std::size_t total_;
  std::size_t done_ = 0;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace KELP::Tool
