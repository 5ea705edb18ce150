#include "check/stillness.h"

#include "check/subject.h"

#include <algorithm>
#include <filesystem>
#include <functional>

namespace KELP::Tool {
namespace {

template <typename T>
void mix(std::size_t& hash, const T& value) {
  hash = hash * 31 + std::hash<T>()(value);
}

}  // namespace

bool Stillness::isOlderThan(std::chrono::nanoseconds span, std::chrono::nanoseconds now) const {
  return now - lastChange_ >= span;
}

void Stillness::add(const Entry& entry) {
  const timespec& time = entry.status.st_ctim;
  const auto change = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  lastChange_ = std::max(lastChange_, change);
  mix(everything_, entry.path.native());
  mix(everything_, entry.status.st_ino);
  mix(everything_, change.count());
}

Stillness stillnessOf(const Entry& directory) {
  Stillness stillness;
  const auto look = [&](const Entry& entry) { stillness.add(entry); };
  look(directory);
  forEachCertainBelow(directory.path, look);
  return stillness;
}

}  // namespace KELP::Tool
