#include "watchedprocess.h"

#include "steps.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <utility>

namespace CrashDemo {

WatchedProcess::WatchedProcess(std::vector<std::string> command)
    : program_(std::move(command), connection_.programEnd(), kWatcherDescriptor) {
  connection_.leaveProgramEnd();
}

std::optional<CrashNotice> WatchedProcess::waitForCrash() {
  CrashNotice notice{};
  ssize_t count = 0;
  do {
    count = ::recv(connection_.ownEnd(), &notice, sizeof notice, MSG_WAITALL);
  } while (count < 0 && errno == EINTR);
  return count == sizeof notice ? std::optional(notice) : std::nullopt;
}

std::filesystem::path WatchedProcess::proc(const char* name) const {
  return std::filesystem::path("/proc") / std::to_string(pid()) / name;
}

std::string WatchedProcess::name() const {
  std::string name;
  require(static_cast<bool>(std::getline(std::ifstream(proc("comm")), name)),
          "reading the name of the process");
  return name;
}

std::string WatchedProcess::memoryMap() const {
  std::ostringstream map;
  map << std::ifstream(proc("maps")).rdbuf();
  require(!map.str().empty(), "reading the memory map of the process");
  return map.str();
}

std::vector<std::string> WatchedProcess::loadedLibraries() const {
  const std::string program = std::filesystem::read_symlink(proc("exe")).string();
  std::istringstream map(memoryMap());
  std::vector<std::string> libraries;
  for (std::string line; std::getline(map, line);) {
    // Addresses, permissions, offset, device, inode, file.
    std::istringstream fields(line);
    std::string ignored;
    std::string permissions;
    std::string file;
    fields >> ignored >> permissions >> ignored >> ignored >> ignored;
    std::getline(fields >> std::ws, file);
    const bool isCode = permissions.find('x') != std::string::npos;
    const bool isLibrary = file.rfind('/', 0) == 0 && file != program;
    if (isCode && isLibrary &&
        std::find(libraries.begin(), libraries.end(), file) == libraries.end()) {
      libraries.push_back(file);
    }
  }
  require(!libraries.empty(), "finding libraries in the memory map of the process");
  return libraries;
}

int WatchedProcess::letGo() {
  const char seen = 1;
  require(::send(connection_.ownEnd(), &seen, 1, MSG_NOSIGNAL) == 1, "letting the process go");
  return program_.wait();
}

}  // namespace CrashDemo
