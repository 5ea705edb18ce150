#include "reports/storedfile.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace KELP::Tool {

constexpr std::size_t kLargestPiece = 256UL * 1024;

StoredFile::StoredFile(const StoredReport& report, const Variation& variation)
    : name_(pathInReport(report, variation)) {
  const auto path = storedFile(report, variation);
  if (!path) {
    isOutside_ = true;
    return;
  }
  descriptor_ = ::open(path->c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor_ < 0 || ::fstat(descriptor_, &status_) != 0) {
    error_ = errno;
  }
}

StoredFile::~StoredFile() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

FileState StoredFile::state() const {
  if (isOutside_) {
    return FileState::Outside;
  }
  switch (error_) {
    case 0:
      return S_ISREG(status_.st_mode) ? FileState::Present : FileState::Irregular;
    case ENOENT:
      return FileState::Missing;
    case ELOOP:
    case ENOTDIR:
    case ENXIO:
      return FileState::Irregular;
    default:
      fail(error_);
  }
}

std::string_view StoredFile::read(std::size_t size) {
  buffer_.resize(std::min(size, kLargestPiece));
  ssize_t count = 0;
  do {
    checkInterrupt();
    count = ::read(descriptor_, buffer_.data(), buffer_.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    fail(errno);
  }
  return {buffer_.data(), static_cast<std::size_t>(count)};
}

void StoredFile::rewind() {
  if (::lseek(descriptor_, 0, SEEK_SET) < 0) {
    fail(errno);
  }
}

bool StoredFile::hasChanged() const {
  struct stat now {};
  ::fstat(descriptor_, &now);
  return now.st_size != status_.st_size || now.st_mtim.tv_sec != status_.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

void StoredFile::fail(int error) const {
  throw Failure(ExitStatus::Failed,
                "cannot read " + inQuotes(name_) + ": " + std::system_category().message(error));
}

}  // namespace KELP::Tool
