#include "changelog.h"

#include "steps.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace CrashDemo {

/** All zero at first. */
struct ChangeLog::Memory {
  std::atomic<std::size_t> count;
  Turn turns[16];
};

ChangeLog::ChangeLog(const std::filesystem::path& file) {
  std::filesystem::create_directories(file.parent_path());
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  require(descriptor >= 0 && ::ftruncate(descriptor, sizeof(Memory)) == 0,
          "making " + file.string());
  void* const memory =
      ::mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  ::close(descriptor);
  require(memory != MAP_FAILED, "mapping " + file.string());
  memory_ = static_cast<Memory*>(memory);
}

ChangeLog::~ChangeLog() {
  ::munmap(memory_, sizeof(Memory));
}

void ChangeLog::clear() {
  for (Turn& turn : memory_->turns) {
    turn.firstChange = turn.lastChange = Clock::time_point{};
  }
  memory_->count = 0;
}

void ChangeLog::start(const char* role) {
  const std::size_t count = memory_->count;
  require(count < std::size(memory_->turns), "finding room for one more turn");
  own_ = &memory_->turns[count];
  ::strncpy(own_->role, role, sizeof own_->role - 1);
  own_->start = Clock::now();
  memory_->count = count + 1;
}

void ChangeLog::change() {
  const auto now = Clock::now();
  if (own_->firstChange.load() == Clock::time_point{}) {
    own_->firstChange = now;
  }
  own_->lastChange = now;
}

const ChangeLog::Turn* ChangeLog::at(Clock::time_point time) const {
  for (std::size_t i = memory_->count; i > 0; --i) {
    if (memory_->turns[i - 1].start.load() <= time) {
      return &memory_->turns[i - 1];
    }
  }
  return nullptr;
}

}  // namespace CrashDemo
