#include "unit/diagnostic/observer/runner.h"

#include "support/temporarydirectory.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

namespace KELP::Test {
namespace {

/** When to give up. By the system's clock: the thread sanitizer knows no wait by the steady one. */
std::chrono::system_clock::time_point limit() {
  return std::chrono::system_clock::now() + std::chrono::seconds(30);
}

/** Whether the kernel says that a thread of this process waits for something. */
bool isAsleep(pid_t thread) {
  const std::string status = readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
  const auto endOfName = status.rfind(") ");
  return endOfName != std::string::npos && status.substr(endOfName + 2).starts_with('S');
}

}  // namespace

void Gate::pass() {
  std::unique_lock lock(mutex_);
  somebodyCame_ = true;
  changed_.notify_all();
  if (!changed_.wait_until(lock, limit(), [this] { return isOpen_; })) {
    throw std::runtime_error("the gate was not opened");
  }
}

void Gate::waitForArrival() {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_until(lock, limit(), [this] { return somebodyCame_; })) {
    throw std::runtime_error("nobody came to the gate");
  }
}

void Gate::open() {
  const std::lock_guard lock(mutex_);
  isOpen_ = true;
  changed_.notify_all();
}

Runner::Runner(std::function<void()> action)
    : thread_([this, action = std::move(action)] {
        id_ = ::gettid();
        action();
        isDone_ = true;
      }) {}

Runner::~Runner() {
  join();
}

void Runner::waitUntilAsleep() const {
  const auto deadline = limit();
  while (!isDone_ && (id_ == 0 || !isAsleep(id_))) {
    if (std::chrono::system_clock::now() > deadline) {
      throw std::runtime_error("the thread does not wait");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void Runner::join() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::size_t waitingThreads() {
  const std::string waiting = std::to_string(SYS_futex) + ' ';
  std::size_t count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    count += readFile(thread.path() / "syscall").starts_with(waiting) ? 1 : 0;
  }
  return count;
}

void waitForWaitingThreads(std::size_t count) {
  const auto deadline = limit();
  while (waitingThreads() < count) {
    if (std::chrono::system_clock::now() > deadline) {
      throw std::runtime_error("the threads do not wait");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace KELP::Test
