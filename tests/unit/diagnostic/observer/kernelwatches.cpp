#include "unit/diagnostic/observer/kernelwatches.h"

#include "support/descriptors.h"
#include "support/threadcount.h"
#include "support/waituntil.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** The number after @p label in a line of the kernel's list: it writes all of them in base 16. */
unsigned long numberAfter(const std::string& label, const std::string& line) {
  const auto at = line.find(label);
  if (at == std::string::npos) {
    throw std::runtime_error("no " + label + " in " + line);
  }
  return std::stoul(line.substr(at + label.size()), nullptr, 16);
}

std::vector<KernelWatch> watchesIn(const fs::path& list) {
  std::vector<KernelWatch> watches;
  std::ifstream in(list);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("inotify ")) {
      watches.push_back({static_cast<int>(numberAfter(" wd:", line)), numberAfter(" ino:", line),
                         static_cast<std::uint32_t>(numberAfter(" mask:", line))});
    }
  }
  std::sort(watches.begin(), watches.end(),
            [](const KernelWatch& a, const KernelWatch& b) { return a.wd < b.wd; });
  return watches;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const KernelWatch& watch) {
  std::ostringstream mask;
  mask << std::hex << watch.mask;
  return out << "watch " << watch.wd << " on inode " << watch.inode << " for 0x" << mask.str();
}

std::vector<std::vector<KernelWatch>> inotifyInstances() {
  std::vector<std::vector<KernelWatch>> instances;
  for (const auto& [descriptor, target] : descriptorsOf("self")) {
    if (target == "anon_inode:inotify") {
      instances.push_back(watchesIn("/proc/self/fdinfo/" + std::to_string(descriptor)));
    }
  }
  return instances;
}

std::vector<KernelWatch> kernelWatches() {
  std::vector<std::vector<KernelWatch>> instances;
  if (!waitUntil([&] { return (instances = inotifyInstances()).size() == 1; })) {
    throw std::runtime_error(std::to_string(instances.size()) + " inotify instances");
  }
  return instances.front();
}

ino_t inodeOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    throw std::system_error(errno, std::system_category(), path.string());
  }
  return status.st_ino;
}

std::ostream& operator<<(std::ostream& out, const Resources& resources) {
  return out << resources.descriptors << " descriptors and " << resources.threads << " threads";
}

Resources resourcesNow() {
  return {descriptorsOf("self").size(), threadCount()};
}

Resources resourcesAfterReturnTo(const Resources& before) {
  Resources now{};
  waitUntil([&] { return (now = resourcesNow()) == before; });
  return now;
}

}  // namespace KELP::Test
