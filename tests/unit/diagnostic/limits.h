#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace KELP::Test {

/** While it lives, no file can be written beyond a size: such writes are cut short, then fail. */
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::size_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit{bytes, former_.rlim_max};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      throw std::system_error(errno, std::system_category(), "setrlimit");
    }
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &former_);
    ::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  sighandler_t handler_;
  rlimit former_{};
};

/** While it lives, the process has no more rights than file permissions give to everyone. */
class Unprivileged {
 public:
  Unprivileged() {
    if (former_ == 0 && ::seteuid(kNobody) != 0) {
      throw std::system_error(errno, std::system_category(), "seteuid");
    }
  }
  ~Unprivileged() {
    if (former_ == 0 && ::seteuid(former_) != 0) {
      std::terminate();
    }
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
  uid_t former_ = ::geteuid();
};

/** While it lives, a file or directory has other permissions. */
class Permissions {
 public:
  Permissions(std::filesystem::path path, unsigned mode)
      : path_(std::move(path)), former_(std::filesystem::status(path_).permissions()) {
    std::filesystem::permissions(path_, static_cast<std::filesystem::perms>(mode));
  }
  ~Permissions() {
    std::error_code gone;
    std::filesystem::permissions(path_, former_, gone);
  }
  Permissions(const Permissions&) = delete;
  Permissions& operator=(const Permissions&) = delete;

 private:
  std::filesystem::path path_;
  std::filesystem::perms former_;
};

/** While it lives, the process has another file mode creation mask. */
class Umask {
 public:
  explicit Umask(mode_t mask) : former_(::umask(mask)) {}
  ~Umask() { ::umask(former_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t former_;
};

}  // namespace KELP::Test
