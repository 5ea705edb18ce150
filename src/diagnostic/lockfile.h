#pragma once

#include "diagnostic/direntry.h"

#include <fcntl.h>

#include <string>

namespace KELP::Diagnostic {

/** Never waits, and takes no terminal, whatever somebody has put in the file's place. `errno` tells
 *  why it did not open. */
inline OS::FileDescriptor openLockFile(const std::string& path, int flags) {
  constexpr mode_t kMode = 0644;
  return openAt(AT_FDCWD, path, O_RDWR | O_NONBLOCK | O_NOCTTY | flags, kMode);
}

}  // namespace KELP::Diagnostic
