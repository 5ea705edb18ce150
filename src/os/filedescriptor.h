#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace KELP::OS {

/** Calls @p call until it no longer fails because a signal came in. */
template <typename Call>
auto retryOnSignal(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

/** Owns a file descriptor, or none. */
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  [[nodiscard]] int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

  /** Closes what is owned. @return false when the system could not keep what was written, with the
   *  reason in `errno`. */
  bool close() { return ::close(std::exchange(descriptor_, -1)) == 0; }

  /** Gives up what is owned, without closing it. */
  int release() { return std::exchange(descriptor_, -1); }

  /** Closes what is owned. Leaves `errno` alone. */
  void reset() {
    if (descriptor_ >= 0) {
      const int before = errno;
      ::close(std::exchange(descriptor_, -1));
      errno = before;
    }
  }

 private:
  int descriptor_ = -1;
};

}  // namespace KELP::OS
