#include "support/threadcount.h"

#include "support/temporarydirectory.h"

#include <string>

namespace KELP::Test {

std::size_t threadCount() {
  const std::string label = "Threads:";
  const std::string status = readFile("/proc/self/status");
  return std::stoul(status.substr(status.find(label) + label.size()));
}

}  // namespace KELP::Test
