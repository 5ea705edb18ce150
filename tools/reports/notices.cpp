#include "reports/notices.h"

#include "base/clock.h"
#include "base/failure.h"
#include "base/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace KELP::Tool {

Notices::Notices() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_ < 0) {
    throw Failure(ExitStatus::Failed, "cannot wait: " + std::system_category().message(errno));
  }
  const BlockedSignals blocked;  // The observer's threads inherit it: signals are for this one.
  observer_ = std::make_unique<OS::FileObserver>();
}

Notices::~Notices() {
  observer_.reset();
  ::close(wake_);
}

int Notices::watch(const std::filesystem::path& directory, std::uint32_t mask,
                   const std::string& name) {
  return observer_->addWatch(
      directory, mask,
      [this, name](const inotify_event* event, void* /*userData*/) {
        push({name, event->wd, event->mask, event->len == 0 ? "" : event->name, currentTime()});
      },
      nullptr);
}

void Notices::unwatch(int watch) {
  observer_->rmWatch(watch);
}

std::vector<Notice> Notices::take() {
  for (;;) {
    checkInterrupt();
    if (std::vector<Notice> notices = takePending(); !notices.empty()) {
      return notices;
    }
    wait();
  }
}

/** On the observer's thread. */
void Notices::push(Notice notice) {
  {
    const std::lock_guard lock(mutex_);
    pending_.push_back(std::move(notice));
  }
  const std::uint64_t one = 1;
  // It can only fail when a wake-up is pending already.
  [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof(one));
}

std::vector<Notice> Notices::takePending() {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t size = ::read(wake_, &count, sizeof(count));
  const std::lock_guard lock(mutex_);
  return std::exchange(pending_, {});
}

void Notices::wait() const {
  std::array<pollfd, 2> polled{{{wake_, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  if (waitUntilReady(polled) && polled[1].revents != 0) {
    throw Interrupted{SIGPIPE};
  }
}

}  // namespace KELP::Tool
