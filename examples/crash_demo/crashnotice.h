#pragma once

#include <cstdint>

namespace CrashDemo {

/** What a process that crashes tells its watcher, through the descriptor below, before it dies. It
 *  then waits until the watcher has sent one byte, or is gone. */
struct CrashNotice {
  std::int32_t signal;    ///< The signal's number.
  std::int32_t code;      ///< Why it was sent: `si_code` of `siginfo_t`.
  std::uint64_t address;  ///< The address that could not be accessed.
};

/** The descriptor, a socket, with which a watched program is started. */
constexpr int kWatcherDescriptor = 3;

}  // namespace CrashDemo
