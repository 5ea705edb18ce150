#pragma once

#include "os/filedescriptor.h"

#include <os/keyvaluestore.h>

#include <fcntl.h>

/** How the two files are opened that make a directory a report. */
namespace KELP::Diagnostic {

/** What a report's store is called towards the platform. */
inline constexpr const char* kReportStoreName = "metadata";

inline OS::KeyValueStore::Options reportStoreOptions() {
  using Option = OS::KVStoreOpenOption;
  return {Option::CreateIfMissing, Option::Shared, Option::SyncOnClose};
}

/** Never waits, and takes no terminal, whatever somebody has put in the file's place. @return the
 *  descriptor, or -1 with the reason in `errno`. */
inline int openLockFile(const char* path, int flags) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  constexpr mode_t kMode = 0644;
  return OS::retryOnSignal([&] { return ::open(path, kFlags | flags, kMode); });
}

}  // namespace KELP::Diagnostic
