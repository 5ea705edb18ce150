#include "os/inotifyinstance.h"

#include "os/log.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <system_error>

namespace KELP::OS {
namespace {

bool hasDescriptorsLeft() {
  return static_cast<bool>(FileDescriptor(::eventfd(0, EFD_CLOEXEC)));
}

void logRefusal(int error) {
  if (error != EMFILE) {
    logError("Unable to observe files: %s", std::system_category().message(error).c_str());
  } else if (hasDescriptorsLeft()) {
    logError(
        "Unable to observe files: the limit fs.inotify.max_user_instances is reached; raise it "
        "with "
        "\"sysctl fs.inotify.max_user_instances=NUMBER\"");
  } else {
    logError(
        "Unable to observe files: the limit of open files of this process is reached; raise it "
        "with "
        "\"ulimit -n NUMBER\"");
  }
}

}  // namespace

InotifyInstance::InotifyInstance()
    : inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      end_(inotify_ ? ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC) : -1) {
  if (!end_) {
    const int error = errno;
    logRefusal(error);
    close();
  }
}

int InotifyInstance::add(const std::string& path, std::uint32_t mask) const {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return -1;
  }
  return ::inotify_add_watch(inotify_.get(), path.c_str(), mask);
}

bool InotifyInstance::remove(int wd) const {
  return ::inotify_rm_watch(inotify_.get(), wd) == 0;
}

bool InotifyInstance::waitForEvents() const {
  pollfd either[] = {{inotify_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
  retryOnSignal([&] { return ::poll(either, std::size(either), -1); });
  return either[1].revents == 0;
}

bool InotifyInstance::waitFor(std::chrono::milliseconds time) const {
  pollfd end{end_.get(), POLLIN, 0};
  return retryOnSignal([&] { return ::poll(&end, 1, static_cast<int>(time.count())); }) == 0;
}

void InotifyInstance::endWaiting() const {
  ::eventfd_write(end_.get(), 1);
}

void InotifyInstance::close() {
  inotify_.reset();
  end_.reset();
}

std::size_t InotifyInstance::read(std::byte (&buffer)[kBufferSize]) const {
  const ssize_t size = retryOnSignal([&] { return ::read(inotify_.get(), buffer, kBufferSize); });
  return size > 0 ? static_cast<std::size_t>(size) : 0;
}

std::size_t InotifyInstance::pending() const {
  int size = 0;
  ::ioctl(inotify_.get(), FIONREAD, &size);
  return static_cast<std::size_t>(size);
}

}  // namespace KELP::OS
