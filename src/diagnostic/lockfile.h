#pragma once

#include "os/filedescriptor.h"

#include <fcntl.h>

namespace KELP::Diagnostic {

/** Never waits, and takes no terminal, whatever somebody has put in the file's place. @return the
 *  descriptor, or -1 with the reason in `errno`. */
inline int openLockFile(const char* path, int flags) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  constexpr mode_t kMode = 0644;
  return OS::retryOnSignal([&] { return ::open(path, kFlags | flags, kMode); });
}

}  // namespace KELP::Diagnostic
