#pragma once

#include "sampledata.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace KELP::Bench {

/** What main() of a probe does: runs it with its arguments, and tells why it failed. @return what
 *  @p run returns, or 1. */
inline int runProbe(const char* name, int argc, char** argv,
                    int (*run)(const std::vector<std::string>& arguments)) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << name << ": " << error.what() << '\n';
    return 1;
  }
}

/** Tells the benchmark that the probe is ready, and returns when it may begin. */
inline void waitForGo() {
  std::cout << "ready" << std::endl;
  std::string line;
  require(static_cast<bool>(std::getline(std::cin, line)), "waiting for the benchmark");
}

}  // namespace KELP::Bench
