#include "check/temporaries.h"

#include "base/clock.h"
#include "check/namedpaths.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

/** Who has not written for so many seconds does not write any more. */
constexpr long kLongestWork = 24L * 60 * 60;

using FileId = std::pair<dev_t, ino_t>;

/** When @p top, or something below it, was written last. */
std::time_t lastWriteTo(const Entry& top) {
  std::time_t last = top.status.st_mtim.tv_sec;
  forEachCertainBelow(
      top.path, [&](const Entry& entry) { last = std::max(last, entry.status.st_mtim.tv_sec); });
  return last;
}

std::string objectionTo(const Entry& entry, const Subject& subject, const NamedPaths& named) {
  if (!subject.hasReadableContents()) {
    return "it is not known what the records name";
  }
  if (named.touch(entry.path)) {
    return "a record names it, or something in it";
  }
  const long age = currentTime() - lastWriteTo(entry);
  if (age < 0) {
    return "it may be in use: its time of writing is yet to come";
  }
  return age < kLongestWork ? "it may be in use: written " + ageText(age) + " ago" : "";
}

/** Adds what a process has open; nothing when it is gone, or the system does not tell. */
void addOpenFiles(const fs::path& process, std::set<FileId>& open) {
  const fs::path descriptors = process / "fd";
  const OpenDirectory directory = openDirectory(AT_FDCWD, descriptors.c_str());
  if (!directory) {
    return;
  }
  while (const dirent* const entry = ::readdir(directory.get())) {
    struct statx status {};
    // What the system knows already will do; a server that is gone must not be waited for.
    if (::statx(::dirfd(directory.get()), entry->d_name, AT_STATX_DONT_SYNC, STATX_INO, &status) ==
        0) {
      open.emplace(makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino);
    }
  }
}

/** All that other processes have open. */
std::set<FileId> openFiles() {
  std::set<FileId> open;
  std::error_code ignored;
  for (const Entry& process : entriesOf("/proc", ignored)) {
    const std::string name = process.path.filename();
    const bool isProcess = name.find_first_not_of("0123456789") == std::string::npos;
    if (isProcess && name != std::to_string(::getpid())) {
      addOpenFiles(process.path, open);
    }
  }
  return open;
}

}  // namespace

std::vector<Temporary> temporariesOf(const Subject& subject) {
  std::vector<Entry> entries;
  const fs::path scratch = subject.directory() / DiagnosticReport::kReportTmpDirectoryName;
  // Not of what a link in its place leads to.
  if (const auto entry = certainEntryAt(scratch); entry && entry->isDirectory()) {
    entries = certainEntriesOf(scratch);
  }
  if (auto next = certainEntryAt(subject.directory() / "metadata.db.compact")) {
    entries.push_back(*std::move(next));
  }
  if (entries.empty()) {
    return {};
  }
  const NamedPaths named(subject);
  std::vector<Temporary> temporaries;
  std::transform(entries.begin(), entries.end(), std::back_inserter(temporaries),
                 [&](const Entry& entry) {
                   return Temporary{entry.path, objectionTo(entry, subject, named)};
                 });
  return temporaries;
}

bool isOpenSomewhere(const fs::path& path) {
  const std::set<FileId> open = openFiles();
  bool isOpen = false;
  const auto look = [&](const Entry& entry) {
    isOpen = isOpen || open.contains({entry.status.st_dev, entry.status.st_ino});
  };
  if (const auto entry = certainEntryAt(path)) {
    look(*entry);
    forEachCertainBelow(path, look);
  }
  return isOpen;
}

}  // namespace KELP::Tool
