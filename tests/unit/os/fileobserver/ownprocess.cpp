#include "unit/os/fileobserver/ownprocess.h"

#include "unit/os/fileobserver/observertest.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace KELP::Test {

std::map<int, std::string> descriptorsSince(const std::map<int, std::string>& before) {
  std::map<int, std::string> since;
  for (const auto& one : descriptorsOf("self")) {
    if (!before.contains(one.first)) {
      since.insert(one);
    }
  }
  return since;
}

int inotifyInstanceSince(const std::map<int, std::string>& before) {
  std::set<int> instances;
  for (const auto& [descriptor, target] : descriptorsSince(before)) {
    if (target == "anon_inode:inotify") {
      instances.insert(descriptor);
    }
  }
  if (instances.size() != 1) {
    throw std::runtime_error(std::to_string(instances.size()) + " inotify instances");
  }
  return *instances.begin();
}

int pendingBytes(int inotifyInstance) {
  int bytes = 0;
  if (::ioctl(inotifyInstance, FIONREAD, &bytes) != 0) {
    throw std::system_error(errno, std::system_category(), "FIONREAD");
  }
  return bytes;
}

std::set<pid_t> threads() {
  std::set<pid_t> running;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    running.insert(std::stoi(entry.path().filename()));
  }
  return running;
}

std::uint64_t blockedSignals(pid_t thread) {
  const std::string field = "SigBlk:";
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) {
      return std::stoull(line.substr(field.size()), nullptr, 16);
    }
  }
  throw std::runtime_error("no thread " + std::to_string(thread));
}

bool Footprint::isBack() const {
  return waitUntil(
      [this] { return descriptorsOf("self") == descriptors_ && threads() == threads_; });
}

}  // namespace KELP::Test
