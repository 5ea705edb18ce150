#include "unit/diagnostic/observer/inotifyrecord.h"

#include <cstddef>
#include <cstring>

namespace KELP::Test {
namespace {

/** Records that a name and the NUL after it take. */
std::size_t recordsFor(const std::string& name) {
  return name.empty() ? 0 : name.size() / sizeof(inotify_event) + 1;
}

}  // namespace

InotifyRecord::InotifyRecord(std::uint32_t mask, const std::string& name)
    : storage_(1 + recordsFor(name)) {
  storage_.front().wd = 1;
  storage_.front().mask = mask;
  storage_.front().len = static_cast<std::uint32_t>(recordsFor(name) * sizeof(inotify_event));
  if (!name.empty()) {
    std::memcpy(static_cast<void*>(storage_.data() + 1), name.data(), name.size());
  }
}

}  // namespace KELP::Test
