#pragma once

#include "durable.h"

#include <dirent.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

/**
 * The system calls that the library's operations cannot do without, and nothing else: what the
 * library's times are measured against. All paths are made beforehand. Every call is checked, and a
 * failure ends the program.
 */
namespace KELP::Bench::BareCalls {

/** The result of the system call @p name; throws when it is an error. */
int checked(long result, const char* name);

/** Opens with O_CLOEXEC. */
[[nodiscard]] int openFile(const std::string& path, int flags);

/** The paths of one report. */
struct Report {
  explicit Report(const std::filesystem::path& reportDirectory);

  std::string directory;
  std::string lock;
  std::string store;
};

/**
 * Appends one record as a store must: open, flock, fstat, stat, pwrite at the end, close. Where the
 * file has passed the size at which a store writes its file anew, it is cut to nothing instead, so
 * that both files grow alike.
 */
void append(const std::string& file, const std::string& record);

/** Makes a file or a directory durable. */
void sync(const std::string& path);

/** Calls @p visit with the name of each entry of @p directory that is not hidden. */
template <typename Visit>
void forEachEntry(const std::string& directory, Visit visit) {
  DIR* const entries = ::opendir(directory.c_str());
  if (entries == nullptr) {
    throw std::system_error(errno, std::system_category(), "opendir");
  }
  while (const dirent* const entry = ::readdir(entries)) {
    if (entry->d_name[0] != '.') {
      visit(entry->d_name);
    }
  }
  checked(::closedir(entries), "closedir");
}

/** Creates a report: mkdir, two files, flock, and one append() for each of @p records; and at the
 *  end makes the store, its directory and the root durable, as is done when the report is let go.
 */
void createReport(const Report& report, const std::vector<std::string>& records, Durable durable);

/** Whether what is there is looked at (stat) before any of it is opened: the library does, since
 * what stands in a file's place must not be opened unseen. */
enum class Looks { No, Yes };

/** Opens a report and closes it: a look at both files, then both, a shared lock and its release,
 * one read of the store into @p buffer. */
void openReport(const Report& report, std::string& buffer, Looks looks);

/** Looks at each entry of @p root and opens it, as openReport() does. @return how many there are.
 */
std::size_t openAllReports(const std::string& root, std::string& buffer, Looks looks);

/** Takes the report's lock, reads its directory, unlinks both files and removes it. */
void removeReport(const Report& report);

/** Opens a store's file and closes it: open, fstat, read into @p buffer, close. */
void openStore(const std::string& file, std::string& buffer);

/** Watches on all reports of a root, in an inotify instance of their own: what an observer of them
 *  cannot do without. */
class ReportsWatch {
 public:
  /** Opens all reports, as openAllReports() does, and watches them and the root. */
  explicit ReportsWatch(const std::string& root);
  ~ReportsWatch();
  ReportsWatch(const ReportsWatch&) = delete;
  ReportsWatch& operator=(const ReportsWatch&) = delete;

  /** How many reports there are. */
  [[nodiscard]] std::size_t count() const { return count_; }

  /** Reads events, and calls @p told for each update of a report's store, until end() is called. */
  void tellUpdates(const std::function<void()>& told) const;
  /** Ends tellUpdates() by one more event. */
  void end() const;

 private:
  int inotify_;
  int rootWatch_;
  std::size_t count_ = 0;
};

}  // namespace KELP::Bench::BareCalls
