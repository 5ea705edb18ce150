#include "support/descriptors.h"

#include <filesystem>
#include <system_error>

namespace KELP::Test {

namespace fs = std::filesystem;

std::map<int, std::string> descriptorsOf(const std::string& process) {
  std::map<int, std::string> open;
  for (const auto& entry : fs::directory_iterator("/proc/" + process + "/fd")) {
    std::error_code isClosed;
    const std::string target = fs::read_symlink(entry.path(), isClosed);
    const bool lists = target.starts_with("/proc/") && target.ends_with("/fd");
    if (!isClosed && !lists) {
      open.emplace(std::stoi(entry.path().filename()), target);
    }
  }
  return open;
}

}  // namespace KELP::Test
