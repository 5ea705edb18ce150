// power_actor RUN WORLD: does a run in a directory that was prepared for it.

#include "faults/power/runs.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) try {
  if (count != 3) return 2;
  KELP::Test::powerRun(arguments[1]).run({arguments[2]});
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s: %s\n", arguments[1], error.what());
  return 3;
}
