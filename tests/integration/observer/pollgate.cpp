#include "integration/observer/pollgate.h"

#include <poll.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

namespace KELP::Test {
namespace {

std::mutex gateMutex;
/** Counts those who are inside, so that the gate is not destroyed under them. */
int visitors = 0;
PollGate* gateInUse = nullptr;
std::condition_variable gateIsLeft;

}  // namespace

PollGate::PollGate() {
  const std::lock_guard lock(gateMutex);
  gateInUse = this;
}

PollGate::~PollGate() {
  open();
  std::unique_lock lock(gateMutex);
  gateInUse = nullptr;
  gateIsLeft.wait(lock, [] { return visitors == 0; });
}

void PollGate::awaitHeld(int threads) {
  // By the system's clock: the thread sanitizer knows no wait by the steady one.
  const auto limit = std::chrono::system_clock::now() + std::chrono::seconds(30);
  std::unique_lock lock(mutex_);
  if (!changed_.wait_until(lock, limit, [&] { return held_ >= threads; })) {
    throw std::runtime_error("the threads do not come to the gate");
  }
}

void PollGate::open() {
  const std::lock_guard lock(mutex_);
  isOpen_ = true;
  changed_.notify_all();
}

void PollGate::pass() {
  PollGate* gate = nullptr;
  {
    const std::lock_guard lock(gateMutex);
    gate = gateInUse;
    if (gate == nullptr || gate->owner_ == std::this_thread::get_id()) return;
    ++visitors;
  }
  gate->hold();
  const std::lock_guard lock(gateMutex);
  --visitors;
  gateIsLeft.notify_all();
}

void PollGate::hold() {
  std::unique_lock lock(mutex_);
  ++held_;
  changed_.notify_all();
  changed_.wait(lock, [this] { return isOpen_; });
}

}  // namespace KELP::Test

extern "C" int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
  const int ready = ::ppoll(descriptors, count, milliseconds < 0 ? nullptr : &time, nullptr);
  const int error = errno;
  KELP::Test::PollGate::pass();
  errno = error;
  return ready;
}
