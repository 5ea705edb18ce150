// A library for LD_PRELOAD: writes down what a program does to the files below a directory.
//
// It stands in for the functions of the C library by which the library under test and the C++
// library change files, makes the same system call, and appends what came of it to a record
// (record.h). Which functions these are is no guess: recording_test compares the record with the
// system calls of the same run. For one thread of one process at a time.
//
//   KELP_POWER_BASE    the directory, without symbolic links in its path
//   KELP_POWER_RECORD  the record's file

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

std::string variable(const char* name) {
  const char* const value = ::getenv(name);
  return value == nullptr ? "" : value;
}

const std::string& base() {
  static const std::string path = variable("KELP_POWER_BASE");
  return path;
}

/** The program does not see that something else is called in between. */
class KeepErrno {
 public:
  KeepErrno() = default;
  ~KeepErrno() { errno = before_; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int before_ = errno;
};

std::string linkAt(const std::string& path) {
  char target[4096];
  const ssize_t size = ::readlink(path.c_str(), target, sizeof target);
  return size < 0 ? "" : std::string(target, static_cast<std::size_t>(size));
}

/** Where a descriptor leads to now, whatever it was renamed to since it was opened. */
std::string pathOf(int descriptor) {
  return linkAt("/proc/self/fd/" + std::to_string(descriptor));
}

std::string pathAt(int directory, const char* path) {
  if (path[0] == '/') return path;
  return (directory == AT_FDCWD ? linkAt("/proc/self/cwd") : pathOf(directory)) + "/" + path;
}

bool isWatched(std::string_view path) {
  return !base().empty() && path.starts_with(base()) && !path.ends_with(" (deleted)");
}

/** One entry of the record. */
struct Entry {
  const char* call;
  const char* effect;
  std::string path;
  std::string toPath;
  std::int64_t offset = 0;
  std::string_view data;
};

void append(const Entry& entry) {
  static const int record =
      static_cast<int>(::syscall(SYS_openat, AT_FDCWD, variable("KELP_POWER_RECORD").c_str(),
                                 O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  std::string text = std::string(entry.call) + ' ' + entry.effect + ' ' +
                     std::to_string(entry.offset) + ' ' + std::to_string(entry.data.size()) + '\n' +
                     entry.path + '\n' + entry.toPath + '\n';
  text += entry.data;
  if (::syscall(SYS_write, record, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    ::abort();  // Without a record there is no test.
  }
}

/** Writes down what was done to the file at @p path. */
void note(const char* call, const char* effect, const std::string& path, std::int64_t offset = 0,
          std::string_view data = {}) {
  const KeepErrno keep;
  if (isWatched(path)) append({call, effect, path, "", offset, data});
}

void noteTwo(const char* call, const char* effect, const std::string& path,
             const std::string& toPath) {
  const KeepErrno keep;
  if (isWatched(path) || isWatched(toPath)) append({call, effect, path, toPath, 0, {}});
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

/** Writes down what the opening of a file changed. @p existed whether it was there before. */
void noteOpening(const std::string& path, int flags, bool existed) {
  const bool creates = (flags & O_CREAT) != 0 && !existed;
  const bool empties = (flags & O_TRUNC) != 0 && existed;
  if ((flags & (O_CREAT | O_TRUNC)) != 0) {
    note("openat", creates ? "create" : (empties ? "truncate" : "nothing"), path);
  }
}

int openAt(int directory, const char* name, int flags, mode_t mode) {
  const std::string path = pathAt(directory, name);
  const bool existed = exists(path);
  const auto opened = static_cast<int>(::syscall(SYS_openat, directory, name, flags, mode));
  if (opened >= 0) noteOpening(path, flags, existed);
  return opened;
}

/** Writes down that @p count bytes were written at the descriptor's place. */
void noteAppended(const char* call, int descriptor, const void* bytes, ssize_t count) {
  if (count <= 0) return;
  const KeepErrno keep;
  const std::string_view data(static_cast<const char*>(bytes), static_cast<std::size_t>(count));
  if (descriptor == STDOUT_FILENO) {
    append({call, "say", "", "", 0, data});
  } else {
    note(call, "write", pathOf(descriptor), ::lseek(descriptor, 0, SEEK_CUR) - count, data);
  }
}

/** Writes down that @p count bytes went from @p in, up to its @p offset or else its place now, to
 * the place of @p out. */
void noteCopied(const char* call, int out, int in, const off_t* offset, ssize_t count) {
  if (count <= 0) return;
  const KeepErrno keep;
  std::string data(static_cast<std::size_t>(count), '\0');
  const off_t end = offset != nullptr ? *offset : ::lseek(in, 0, SEEK_CUR);
  if (::pread(in, data.data(), data.size(), end - count) != count) ::abort();
  noteAppended(call, out, data.data(), count);
}

int synchronise(long number, const char* call, int descriptor) {
  const auto result = static_cast<int>(::syscall(number, descriptor));
  if (result == 0) note(call, "sync", pathOf(descriptor));
  return result;
}

int cutAt(int descriptor, off_t size) {
  const auto result = static_cast<int>(::syscall(SYS_ftruncate, descriptor, size));
  if (result == 0) note("ftruncate", "truncate", pathOf(descriptor), size);
  return result;
}

int removeAt(int directory, const char* name, int flags) {
  const std::string path = pathAt(directory, name);
  const auto result = static_cast<int>(::syscall(SYS_unlinkat, directory, name, flags));
  if (result == 0) note("unlinkat", "remove", path);
  return result;
}

int makeDirectoryAt(int directory, const char* name, mode_t mode) {
  const auto result = static_cast<int>(::syscall(SYS_mkdirat, directory, name, mode));
  if (result == 0) note("mkdirat", "directory", pathAt(directory, name));
  return result;
}

int renameAt(int from, const char* name, int to, const char* toName) {
  const std::string path = pathAt(from, name);
  const auto result = static_cast<int>(::syscall(SYS_renameat2, from, name, to, toName, 0));
  if (result == 0) noteTwo("renameat2", "rename", path, pathAt(to, toName));
  return result;
}

/** What fopen() opens with. */
int flagsOf(const char* mode) {
  switch (mode[0]) {
    case 'w':
      return O_CREAT | O_TRUNC;
    case 'a':
      return O_CREAT;
    default:
      return 0;
  }
}

FILE* openStream(const char* function, const char* name, const char* mode) {
  const std::string path = pathAt(AT_FDCWD, name);
  const bool existed = exists(path);
  auto* const real =
      reinterpret_cast<FILE* (*)(const char*, const char*)>(::dlsym(RTLD_NEXT, function));
  FILE* const opened = real(name, mode);
  if (opened != nullptr) noteOpening(path, flagsOf(mode), existed);
  return opened;
}

/** The third argument of open(), which is there only when a file may be created. */
template <typename Open>
int openWithMode(int flags, va_list arguments, Open open) {
  return open((flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int opened = openWithMode(flags, arguments,
                                  [&](mode_t mode) { return openAt(AT_FDCWD, path, flags, mode); });
  va_end(arguments);
  return opened;
}
int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int opened = openWithMode(
      flags, arguments, [&](mode_t mode) { return openAt(directory, path, flags, mode); });
  va_end(arguments);
  return opened;
}
FILE* fopen(const char* path, const char* mode) {
  return openStream("fopen", path, mode);
}

ssize_t write(int descriptor, const void* bytes, size_t size) {
  const ssize_t count = ::syscall(SYS_write, descriptor, bytes, size);
  noteAppended("write", descriptor, bytes, count);
  return count;
}
ssize_t writev(int descriptor, const iovec* parts, int number) {
  const ssize_t count = ::syscall(SYS_writev, descriptor, parts, number);
  std::string bytes;
  for (int i = 0; i < number; ++i) {
    bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  }
  noteAppended("writev", descriptor, bytes.data(), count);
  return count;
}
ssize_t pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
  const ssize_t count = ::syscall(SYS_pwrite64, descriptor, bytes, size, offset);
  if (count > 0) {
    note("pwrite64", "write", pathOf(descriptor), offset,
         {static_cast<const char*>(bytes), static_cast<std::size_t>(count)});
  }
  return count;
}
ssize_t sendfile(int out, int in, off_t* offset, size_t size) noexcept {
  const ssize_t count = ::syscall(SYS_sendfile, out, in, offset, size);
  noteCopied("sendfile", out, in, offset, count);
  return count;
}
ssize_t copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t size,
                        unsigned flags) {
  if (outOffset != nullptr) ::abort();  // Nobody has needed it yet.
  const ssize_t count = ::syscall(SYS_copy_file_range, in, inOffset, out, outOffset, size, flags);
  noteCopied("copy_file_range", out, in, inOffset, count);
  return count;
}

int ftruncate(int descriptor, off_t size) noexcept {
  return cutAt(descriptor, size);
}
int fsync(int descriptor) {
  return synchronise(SYS_fsync, "fsync", descriptor);
}
int fdatasync(int descriptor) {
  return synchronise(SYS_fdatasync, "fdatasync", descriptor);
}

int unlink(const char* path) noexcept {
  return removeAt(AT_FDCWD, path, 0);
}
int unlinkat(int directory, const char* path, int flags) noexcept {
  return removeAt(directory, path, flags);
}
int rmdir(const char* path) noexcept {
  return removeAt(AT_FDCWD, path, AT_REMOVEDIR);
}
int remove(const char* path) noexcept {
  const int removed = removeAt(AT_FDCWD, path, 0);
  return removed != 0 && errno == EISDIR ? removeAt(AT_FDCWD, path, AT_REMOVEDIR) : removed;
}
int rename(const char* path, const char* toPath) noexcept {
  return renameAt(AT_FDCWD, path, AT_FDCWD, toPath);
}
int mkdir(const char* path, mode_t mode) noexcept {
  return makeDirectoryAt(AT_FDCWD, path, mode);
}
int mkdirat(int directory, const char* path, mode_t mode) noexcept {
  return makeDirectoryAt(directory, path, mode);
}

// The same, under the names that programs use which ask for 64 bits.
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int openat64(int directory, const char* path, int flags, ...) __attribute__((alias("openat")));
ssize_t pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset)
    __attribute__((alias("pwrite")));
ssize_t sendfile64(int out, int in, off64_t* offset, size_t size) noexcept
    __attribute__((alias("sendfile")));
int ftruncate64(int descriptor, off64_t size) noexcept __attribute__((alias("ftruncate")));
FILE* fopen64(const char* path, const char* mode) {
  return openStream("fopen64", path, mode);
}

}  // extern "C"
