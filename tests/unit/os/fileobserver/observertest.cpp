#include "unit/os/fileobserver/observertest.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace KELP::Test {

void Flag::set() {
  const std::lock_guard lock(mutex_);
  isSet_ = true;
  changed_.notify_all();
}

bool Flag::wait() const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kLongestWait, [this] { return isSet_; });
}

void Flag::hold() const {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return isSet_; });
}

std::ostream& operator<<(std::ostream& out, const Seen& seen) {
  return out << "{wd " << seen.wd << ", mask 0x" << std::hex << seen.mask << std::dec << ", cookie "
             << seen.cookie << ", len " << seen.len << ", name \"" << seen.name << "\", user data "
             << seen.userData << '}';
}

Seen seenOf(const inotify_event& event, void* userData) {
  return {event.wd,
          event.mask,
          event.cookie,
          event.len,
          event.len == 0 ? std::string() : std::string(static_cast<const char*>(event.name)),
          userData};
}

std::vector<std::uint32_t> masksOf(const std::vector<Seen>& seen) {
  std::vector<std::uint32_t> masks;
  std::ranges::transform(seen, std::back_inserter(masks), &Seen::mask);
  return masks;
}

std::vector<std::string> namesOf(const std::vector<Seen>& seen) {
  std::vector<std::string> names;
  std::ranges::transform(seen, std::back_inserter(names), &Seen::name);
  return names;
}

FileObserver::Callback Recorder::callback() const {
  return [state = state_](inotify_event* event, void* userData) {
    const std::lock_guard lock(state->mutex);
    state->seen.push_back(seenOf(*event, userData));
    state->changed.notify_all();
  };
}

std::vector<Seen> Recorder::seen() const {
  const std::lock_guard lock(state_->mutex);
  return state_->seen;
}

std::vector<Seen> Recorder::waitFor(std::size_t count) const {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait_for(lock, kLongestWait, [&] { return state_->seen.size() >= count; });
  return state_->seen;
}

Sentinel::Sentinel(FileObserver& observer) {
  if (observer.addWatch(directory_.path(), IN_CREATE, recorder_.callback(), nullptr) < 1) {
    throw std::system_error(errno, std::system_category(), "the sentinel's watch");
  }
}

bool Sentinel::pass() {
  ++passed_;
  const std::string name = std::to_string(passed_);
  touch(directory_ / name);
  return waitUntil([&] {
    const std::vector<Seen> seen = recorder_.seen();
    return std::ranges::any_of(seen, [&](const Seen& one) { return one.name == name; });
  });
}

Blocker::Blocker(FileObserver& observer) {
  const int wd = observer.addWatch(
      directory_.path(), IN_CREATE,
      [state = state_](inotify_event*, void*) {
        state->entered.set();
        state->released.hold();
      },
      nullptr);
  if (wd < 1) {
    throw std::system_error(errno, std::system_category(), "the blocker's watch");
  }
}

bool Blocker::block() {
  touch(directory_ / "block");
  return state_->entered.wait();
}

void touch(const std::filesystem::path& path) {
  writeFile(path, "");
}

void changeMode(const std::filesystem::path& path) {
  if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0) {
    throw std::system_error(errno, std::system_category(), path.string());
  }
}

FileChanger::FileChanger(std::filesystem::path file)
    : thread_([this, file = std::move(file)] {
        while (!isOver_) {
          touch(file);
          std::filesystem::remove(file);
        }
      }) {}

FileChanger::~FileChanger() {
  isOver_ = true;
  thread_.join();
}

void atOnce(int threads, int rounds, const std::function<void(int)>& action) {
  std::vector<std::thread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        action(round);
      }
    });
  }
  for (std::thread& thread : running) {
    thread.join();
  }
}

}  // namespace KELP::Test
