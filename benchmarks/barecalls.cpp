#include "barecalls.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace KELP::Bench::BareCalls {
namespace {

/** Above this size a store of a few keys writes its file anew. */
constexpr off_t kCompactionSize = off_t{64} << 10;

/** What of a report's directory an observer is told. */
constexpr std::uint32_t kReportEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE |
                                        IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

void closeFile(int descriptor) {
  checked(::close(descriptor), "close");
}

void lookAt(const std::string& path) {
  struct stat status {};
  checked(::stat(path.c_str(), &status), "stat");
}

void openReportFiles(const std::string& lockPath, const std::string& storePath, std::string& buffer,
                     Looks looks) {
  if (looks == Looks::Yes) {
    lookAt(lockPath);
    lookAt(storePath);
  }
  const int lock = openFile(lockPath, O_RDWR);
  checked(::flock(lock, LOCK_SH | LOCK_NB), "flock");
  checked(::flock(lock, LOCK_UN), "flock");
  const int store = openFile(storePath, O_RDONLY);
  checked(::read(store, buffer.data(), buffer.size()), "read");
  closeFile(store);
  closeFile(lock);
}

/** Opens all reports of @p root, and calls @p visit with the directory of each. @return how many
 *  there are. */
template <typename Visit>
std::size_t openEachReport(const std::string& root, std::string& buffer, Looks looks, Visit visit) {
  std::size_t count = 0;
  std::string directory;
  std::string lock;
  std::string store;
  forEachEntry(root, [&](const char* name) {
    directory.assign(root).append("/").append(name);
    lock.assign(directory).append("/lock");
    store.assign(directory).append("/metadata.db");
    if (looks == Looks::Yes) {
      lookAt(directory);
    }
    openReportFiles(lock, store, buffer, looks);
    visit(directory);
    ++count;
  });
  return count;
}

}  // namespace

int checked(long result, const char* name) {
  if (result < 0) {
    throw std::system_error(errno, std::system_category(), name);
  }
  return static_cast<int>(result);
}

int openFile(const std::string& path, int flags) {
  return checked(::open(path.c_str(), flags | O_CLOEXEC, 0644), "open");
}

Report::Report(const std::filesystem::path& reportDirectory)
    : directory(reportDirectory.string()),
      lock((reportDirectory / "lock").string()),
      store((reportDirectory / "metadata.db").string()) {}

void sync(const std::string& path) {
  const int descriptor = openFile(path, O_RDONLY);
  checked(::fsync(descriptor), "fsync");
  closeFile(descriptor);
}

void append(const std::string& file, const std::string& record) {
  const int descriptor = openFile(file, O_RDWR);
  checked(::flock(descriptor, LOCK_EX | LOCK_NB), "flock");
  struct stat opened {};
  checked(::fstat(descriptor, &opened), "fstat");
  struct stat named {};
  checked(::stat(file.c_str(), &named), "stat");
  off_t end = opened.st_size;
  if (end > kCompactionSize) {
    checked(::ftruncate(descriptor, 0), "ftruncate");
    end = 0;
  }
  checked(::pwrite(descriptor, record.data(), record.size(), end), "pwrite");
  closeFile(descriptor);
}

void createReport(const Report& report, const std::vector<std::string>& records, Durable durable) {
  checked(::mkdir(report.directory.c_str(), 0777), "mkdir");
  const int lock = openFile(report.lock, O_RDWR | O_CREAT | O_EXCL);
  checked(::flock(lock, LOCK_EX), "flock");
  const int store = openFile(report.store, O_RDWR | O_CREAT);
  for (const std::string& record : records) {
    append(report.store, record);
  }
  if (durable == Durable::Yes) {
    checked(::fsync(store), "fsync");
    sync(report.directory);
    sync(report.directory.substr(0, report.directory.rfind('/')));
  }
  closeFile(store);
  closeFile(lock);
}

void openReport(const Report& report, std::string& buffer, Looks looks) {
  openReportFiles(report.lock, report.store, buffer, looks);
}

std::size_t openAllReports(const std::string& root, std::string& buffer, Looks looks) {
  return openEachReport(root, buffer, looks, [](const std::string&) {});
}

void removeReport(const Report& report) {
  const int lock = openFile(report.lock, O_RDWR);
  checked(::flock(lock, LOCK_EX | LOCK_NB), "flock");
  forEachEntry(report.directory, [](const char*) {});
  checked(::unlink(report.lock.c_str()), "unlink");
  checked(::unlink(report.store.c_str()), "unlink");
  checked(::rmdir(report.directory.c_str()), "rmdir");
  closeFile(lock);
}

void openStore(const std::string& file, std::string& buffer) {
  const int descriptor = openFile(file, O_RDONLY);
  struct stat opened {};
  checked(::fstat(descriptor, &opened), "fstat");
  checked(::read(descriptor, buffer.data(), buffer.size()), "read");
  closeFile(descriptor);
}

ReportsWatch::ReportsWatch(const std::string& root)
    : inotify_(checked(::inotify_init1(IN_CLOEXEC), "inotify_init1")),
      rootWatch_(
          checked(::inotify_add_watch(inotify_, root.c_str(), IN_CREATE), "inotify_add_watch")) {
  std::string buffer(4096, '\0');
  count_ = openEachReport(root, buffer, Looks::Yes, [&](const std::string& directory) {
    checked(::inotify_add_watch(inotify_, directory.c_str(), kReportEvents), "inotify_add_watch");
  });
}

ReportsWatch::~ReportsWatch() {
  ::close(inotify_);
}

void ReportsWatch::tellUpdates(const std::function<void()>& told) const {
  alignas(inotify_event) char buffer[16 * 1024];
  for (;;) {
    const int size = checked(::read(inotify_, buffer, sizeof buffer), "read");
    for (int at = 0; at < size;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<int>(sizeof event + event.len);
      if ((event.mask & IN_IGNORED) != 0) {
        return;
      }
      if ((event.mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) != 0 &&
          ::strcmp(event.name, "metadata.db") == 0) {
        told();
      }
    }
  }
}

void ReportsWatch::end() const {
  checked(::inotify_rm_watch(inotify_, rootWatch_), "inotify_rm_watch");
}

}  // namespace KELP::Bench::BareCalls
