#include "unit/os/directoryevents.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

namespace KELP::Test {
namespace {

constexpr std::array<std::pair<std::uint32_t, const char*>, 8> kNames{{
    {IN_MODIFY, "MODIFY"},
    {IN_CLOSE_WRITE, "CLOSE_WRITE"},
    {IN_CREATE, "CREATE"},
    {IN_DELETE, "DELETE"},
    {IN_MOVED_FROM, "MOVED_FROM"},
    {IN_MOVED_TO, "MOVED_TO"},
    {IN_ATTRIB, "ATTRIB"},
    {IN_Q_OVERFLOW, "Q_OVERFLOW"},
}};

constexpr std::uint32_t kWatched =
    IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB;

std::string describe(const inotify_event& event, const std::string& entry) {
  for (const auto& [bit, name] : kNames) {
    if ((event.mask & bit) != 0) {
      return std::string(name) + ' ' + entry;
    }
  }
  return std::to_string(event.mask) + ' ' + entry;
}

}  // namespace

DirectoryEvents::DirectoryEvents(const std::filesystem::path& directory)
    : descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (descriptor_ < 0 || ::inotify_add_watch(descriptor_, directory.c_str(), kWatched) < 0) {
    throw std::system_error(errno, std::system_category(), "inotify on " + directory.string());
  }
}

DirectoryEvents::~DirectoryEvents() {
  ::close(descriptor_);
}

std::vector<std::string> DirectoryEvents::take() {
  std::vector<std::string> events;
  std::array<char, 65536> buffer{};
  for (ssize_t size = 0; (size = ::read(descriptor_, buffer.data(), buffer.size())) > 0;) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char* name = event.len == 0 ? "" : buffer.data() + at + sizeof event;
      events.push_back(describe(event, name));
      at += sizeof event + event.len;
    }
  }
  return events;
}

std::vector<std::string> DirectoryEvents::takeOf(const std::string& name) {
  std::vector<std::string> events;
  for (const std::string& event : take()) {
    if (event.ends_with(' ' + name)) {
      events.push_back(event.substr(0, event.size() - name.size() - 1));
    }
  }
  return events;
}

}  // namespace KELP::Test
