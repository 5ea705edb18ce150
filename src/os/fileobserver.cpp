#include "os/inotifyinstance.h"
#include "os/log.h"

#include <os/fileobserver.h>

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace KELP::OS {
namespace {

/** How long events may stay with the kernel while a callback runs. Its queue usually holds 16,384,
 * which two processors cannot cause in this time, and most callbacks are over sooner. The longer it
 * is, the less often does a second thread wake up beside a series of events. */
constexpr std::chrono::milliseconds kRelief{4};

/** One watch, as long as anybody may call it. */
struct Watch {
  FileObserver::Callback callback;
  void* userData;
  bool overflowIsQueued = false;
};

/** One event that waits for its delivery. */
struct Event {
  int wd;  ///< Whose it is; the kernel's own record names no watch for an overflow.
  std::vector<std::byte> record;

  [[nodiscard]] inotify_event& get() { return *reinterpret_cast<inotify_event*>(record.data()); }
};

Event eventFor(int wd, const inotify_event& event) {
  const auto* const bytes = reinterpret_cast<const std::byte*>(&event);
  return {wd, {bytes, bytes + sizeof(event) + event.len}};
}

void deliver(const Watch& watch, inotify_event& event) {
  try {
    watch.callback(&event, watch.userData);
  } catch (const std::exception& exception) {
    logError("A callback of the file observer ended with an exception: %s", exception.what());
  } catch (...) {
    logError("A callback of the file observer ended with an unknown exception");
  }
}

/** Blocks all signals on the calling thread while it lives. A thread that is started meanwhile
 * keeps them blocked. */
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

/**
 * The watches, the events that wait, and two threads.
 *
 * The delivering thread reads the kernel's queue by itself whenever it has nothing to deliver, so
 * that usually nobody stands between the kernel and the callback. The relieving thread wakes up
 * with it, lets a moment pass, and reads in its place when a callback is running then.
 *
 * The delivering thread has a share of this object, because a callback may destroy the
 * FileObserver.
 */
class FileObserver::Impl {
 public:
  /** Starts the threads of @p self. */
  static void start(const std::shared_ptr<Impl>& self);
  void end();

  int addWatch(const std::string& path, std::uint32_t mask, std::shared_ptr<Watch> watch);
  bool rmWatch(int wd);

 private:
  void deliverEvents();
  void relieveKernel();
  void takeEvents();
  std::shared_ptr<Watch> watchOf(Event& event);
  void logFailure(const std::string& path, int error);

  std::mutex mutex_;  ///< Guards all but the threads; never held while a callback runs.
  InotifyInstance inotify_;
  std::map<int, std::shared_ptr<Watch>> watches_;
  std::deque<Event> queue_;
  bool delivering_ = false;  ///< Whether the delivering thread is occupied.
  bool ending_ = false;
  bool watchLimitIsLogged_ = false;
  std::thread delivery_;
  std::thread relief_;
};

void FileObserver::Impl::start(const std::shared_ptr<Impl>& self) {
  if (!self->inotify_) {
    return;
  }
  try {
    {
      const SignalsBlocked blocked;
      self->relief_ = std::thread([impl = self.get()] { impl->relieveKernel(); });
    }
    self->delivery_ = std::thread([self] { self->deliverEvents(); });
  } catch (const std::system_error& error) {
    logError("Unable to observe files: %s", error.code().message().c_str());
    self->end();
  }
}

void FileObserver::Impl::end() {
  // What callbacks hold is the client's code, and may use the observer once more: it goes at the
  // end.
  std::map<int, std::shared_ptr<Watch>> ended;
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    ended.swap(watches_);
  }
  inotify_.endWaiting();
  if (relief_.joinable()) {
    relief_.join();
  }
  if (delivery_.get_id() == std::this_thread::get_id()) {
    delivery_.detach();
  } else if (delivery_.joinable()) {
    delivery_.join();
  }
  inotify_.close();
}

int FileObserver::Impl::addWatch(const std::string& path, std::uint32_t mask,
                                 std::shared_ptr<Watch> watch) {
  const std::lock_guard lock(mutex_);
  if (!inotify_ || ending_) {
    errno = EBADF;
    return -1;
  }
  const int wd = inotify_.add(path, mask);
  if (wd < 0) {
    const int error = errno;
    logFailure(path, error);
    errno = error;
    return -1;
  }
  watches_[wd].swap(watch);
  return wd;
}

bool FileObserver::Impl::rmWatch(int wd) {
  std::shared_ptr<Watch> removed;  // Goes after the lock: it may be the client's code.
  const std::lock_guard lock(mutex_);
  const auto found = watches_.find(wd);
  if (found == watches_.end()) {
    return false;
  }
  removed = std::move(found->second);
  watches_.erase(found);
  return inotify_.remove(wd);
}

void FileObserver::Impl::deliverEvents() {
  ::pthread_setname_np(::pthread_self(), "kelp-events");
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (queue_.empty()) {
      delivering_ = false;
      lock.unlock();
      static_cast<void>(inotify_.waitForEvents());
      lock.lock();
      delivering_ = true;
      takeEvents();
      continue;
    }
    Event event = std::move(queue_.front());
    queue_.pop_front();
    if (std::shared_ptr<Watch> watch = watchOf(event)) {
      lock.unlock();
      deliver(*watch, event.get());
      watch.reset();
      lock.lock();
    }
  }
}

void FileObserver::Impl::relieveKernel() {
  ::pthread_setname_np(::pthread_self(), "kelp-relief");
  while (inotify_.waitForEvents() && inotify_.waitFor(kRelief)) {
    const std::lock_guard lock(mutex_);
    if (delivering_) {
      takeEvents();
    }
  }
}

/** Moves all that the kernel has to tell into the queue. */
void FileObserver::Impl::takeEvents() {
  inotify_.forEachEvent([this](const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) == 0) {
      queue_.push_back(eventFor(event.wd, event));
      return;
    }
    for (const auto& [wd, watch] : watches_) {
      if (!std::exchange(watch->overflowIsQueued, true)) {
        queue_.push_back(eventFor(wd, event));
      }
    }
  });
}

/** Who is to be told of @p event; nobody when the watch was removed since. */
std::shared_ptr<Watch> FileObserver::Impl::watchOf(Event& event) {
  const auto found = watches_.find(event.wd);
  if (found == watches_.end()) {
    return nullptr;
  }
  std::shared_ptr<Watch> watch = found->second;
  if ((event.get().mask & IN_Q_OVERFLOW) != 0) {
    watch->overflowIsQueued = false;
  }
  if ((event.get().mask & IN_IGNORED) != 0) {
    watches_.erase(found);
  }
  return watch;
}

/** A path that is not there is no failure to speak of: it may just have been removed. */
void FileObserver::Impl::logFailure(const std::string& path, int error) {
  if (error == ENOSPC) {
    if (!std::exchange(watchLimitIsLogged_, true)) {
      logError(
          "Unable to watch %s: the limit fs.inotify.max_user_watches is reached; raise it with "
          "\"sysctl fs.inotify.max_user_watches=NUMBER\"",
          path.c_str());
    }
  } else if (error != ENOENT && error != ENOTDIR) {
    logError("Unable to watch %s: %s", path.c_str(), std::system_category().message(error).c_str());
  }
}

FileObserver::FileObserver() : impl_(std::make_shared<Impl>()) {
  Impl::start(impl_);
}

FileObserver::~FileObserver() {
  impl_->end();
}

int FileObserver::addWatch(std::string path, std::uint32_t mask, Callback callback,
                           void* userData) {
  return impl_->addWatch(path, mask, std::make_shared<Watch>(Watch{std::move(callback), userData}));
}

bool FileObserver::rmWatch(int wd) {
  return impl_->rmWatch(wd);
}

}  // namespace KELP::OS
