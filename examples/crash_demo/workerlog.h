#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace CrashDemo {

/** Where a process writes its log. @param logs the directory of all logs. */
inline std::filesystem::path logFileOf(const std::filesystem::path& logs,
                                       const std::string& processName, pid_t pid) {
  return logs / (processName + '-' + std::to_string(pid) + ".log");
}

}  // namespace CrashDemo
