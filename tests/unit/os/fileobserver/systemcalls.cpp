#include "unit/os/fileobserver/systemcalls.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

namespace KELP::Test {
namespace {

struct Wish {
  std::atomic<int> error = 0;
  std::atomic<int> after = 0;
};
std::array<Wish, 4> wishes;

Wish& wishFor(Call call) {
  return wishes.at(static_cast<std::size_t>(call));
}

/** The error that a call is to fail with now, or 0. */
int refusalOf(Call call) {
  Wish& wish = wishFor(call);
  return wish.error != 0 && wish.after-- <= 0 ? wish.error.load() : 0;
}

bool isRefused(Call call) {
  const int error = refusalOf(call);
  if (error != 0) {
    errno = error;
  }
  return error != 0;
}

struct Gate {
  std::mutex mutex;
  std::condition_variable opened;
  bool isClosed = false;
} gate;

struct BeforeRead {
  std::mutex mutex;
  std::function<void()> call;
} beforeRead;
std::atomic<bool> readIsHooked = false;
std::atomic<int> instance = -1;

std::atomic<int> joins = 0;

/** The function that would have been called; a sanitizer's, where there is one. */
template <typename Function>
Function* systems(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

Refusal::Refusal(Call call, int error, int after) : call_(call) {
  wishFor(call).after = after;
  wishFor(call).error = error;
}
Refusal::~Refusal() {
  wishFor(call_).error = 0;
}

PollGate::PollGate() {
  const std::lock_guard lock(gate.mutex);
  gate.isClosed = true;
}

void PollGate::open() {
  const std::lock_guard lock(gate.mutex);
  gate.isClosed = false;
  gate.opened.notify_all();
}

ReadHook::ReadHook(std::function<void()> before) {
  const std::lock_guard lock(beforeRead.mutex);
  beforeRead.call = std::move(before);
  readIsHooked = true;
}

ReadHook::~ReadHook() {
  const std::lock_guard lock(beforeRead.mutex);
  readIsHooked = false;
  beforeRead.call = nullptr;
}

int joinsBegun() {
  return joins;
}

}  // namespace KELP::Test

using KELP::Test::Call;
using KELP::Test::isRefused;
using KELP::Test::systems;

extern "C" int inotify_init1(int flags) noexcept {
  static auto* const next = systems<int(int)>("inotify_init1");
  return KELP::Test::instance = isRefused(Call::InotifyInit) ? -1 : next(flags);
}

extern "C" int inotify_add_watch(int instance, const char* path, std::uint32_t mask) noexcept {
  static auto* const next = systems<int(int, const char*, std::uint32_t)>("inotify_add_watch");
  return isRefused(Call::InotifyAddWatch) ? -1 : next(instance, path, mask);
}

extern "C" int eventfd(unsigned count, int flags) noexcept {
  static auto* const next = systems<int(unsigned, int)>("eventfd");
  return isRefused(Call::EventFd) ? -1 : next(count, flags);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
  static auto* const next = systems<int(pollfd*, nfds_t, int)>("poll");
  const int ready = next(descriptors, count, timeout);
  if (ready > 0) {
    auto& gate = KELP::Test::gate;
    std::unique_lock lock(gate.mutex);
    gate.opened.wait(lock, [&] { return !gate.isClosed; });
  }
  return ready;
}

extern "C" ssize_t read(int file, void* bytes, std::size_t size) {
  static auto* const next = systems<ssize_t(int, void*, std::size_t)>("read");
  if (KELP::Test::readIsHooked && file == KELP::Test::instance) {
    auto& before = KELP::Test::beforeRead;
    const std::lock_guard lock(before.mutex);
    if (before.call) {
      before.call();
    }
  }
  return next(file, bytes, size);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) noexcept {
  static auto* const next =
      systems<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  const int error = KELP::Test::refusalOf(Call::Thread);
  return error != 0 ? error : next(thread, attributes, run, argument);
}

extern "C" int pthread_join(pthread_t thread, void** result) {
  static auto* const next = systems<int(pthread_t, void**)>("pthread_join");
  ++KELP::Test::joins;
  return next(thread, result);
}
