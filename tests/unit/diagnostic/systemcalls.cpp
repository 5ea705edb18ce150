#include "unit/diagnostic/systemcalls.h"

#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace KELP::Test {
namespace {

using std::chrono::microseconds;

FakeClock* clockInUse = nullptr;
FlockSpy* spyInUse = nullptr;

bool isLockFile(int descriptor) {
  std::error_code ignored;
  const auto target =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
  return target.filename() == "lock";
}

timespec systemTime() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

}  // namespace

FakeClock::FakeClock(microseconds start) : now_(start) {
  clockInUse = this;
}
FakeClock::~FakeClock() {
  clockInUse = nullptr;
}

long FakeClock::seconds() const {
  return std::chrono::duration_cast<std::chrono::seconds>(now_).count();
}

long FakeClock::readSeconds() {
  const long read = seconds();
  now_ += step_;
  return read;
}

void FakeClock::sleep(microseconds duration) {
  sleeps_.push_back(duration);
  now_ += duration + extra_;
  if (action_) {
    action_(sleeps_.size());
  }
}

FlockSpy::FlockSpy() {
  spyInUse = this;
}
FlockSpy::~FlockSpy() {
  spyInUse = nullptr;
}

std::vector<int> FlockSpy::take() {
  return std::exchange(operations_, {});
}

int FlockSpy::called(int operation) {
  operations_.push_back(operation);
  if (action_) {
    action_(operation);
  }
  if (errors_.empty()) {
    return 0;
  }
  const int error = errors_.front();
  errors_.erase(errors_.begin());
  return error;
}

}  // namespace KELP::Test

using KELP::Test::clockInUse;
using KELP::Test::spyInUse;

extern "C" int flock(int descriptor, int operation) noexcept {
  if (spyInUse != nullptr && KELP::Test::isLockFile(descriptor)) {
    if (const int error = spyInUse->called(operation); error != 0) {
      errno = error;
      return -1;
    }
  }
  return static_cast<int>(::syscall(SYS_flock, descriptor, operation));
}

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  if (clockInUse != nullptr) {
    now->tv_sec = clockInUse->now().count() / 1'000'000;
    now->tv_usec = clockInUse->now().count() % 1'000'000;
  } else {
    const timespec precise = KELP::Test::systemTime();
    now->tv_sec = precise.tv_sec;
    now->tv_usec = precise.tv_nsec / 1000;
  }
  return 0;
}

extern "C" time_t time(time_t* out) noexcept {
  const time_t now =
      clockInUse != nullptr ? clockInUse->readSeconds() : KELP::Test::systemTime().tv_sec;
  if (out != nullptr) {
    *out = now;
  }
  return now;
}

extern "C" int usleep(useconds_t duration) {
  if (clockInUse != nullptr) {
    clockInUse->sleep(std::chrono::microseconds(duration));
    return 0;
  }
  const timespec wanted{duration / 1'000'000, static_cast<long>(duration % 1'000'000) * 1000};
  return ::nanosleep(&wanted, nullptr);
}
