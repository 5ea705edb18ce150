#include "os/fileio.h"
#include "os/filelock.h"
#include "os/storeformat.h"

#include <os/keyvaluestore.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <string_view>
#include <utility>

// The form of the file and the protocol between its users: docs/on-disk-format.md.

namespace KELP::OS {
namespace {

using Clock = std::chrono::steady_clock;
/** A value, or none: an absent or a removed key. */
using Value = std::optional<std::string_view>;

/** How long a change waits for other writers. */
constexpr std::chrono::seconds kPatience{5};
/** Up to this size a file is not worth compacting. */
constexpr std::uint64_t kCompactionSize = std::uint64_t{64} << 10;
/** A larger file is compacted when it is more than this many times its live records. */
constexpr std::uint64_t kCompactionRatio = 4;

std::uint64_t sizeOf(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_size);
}

bool mayBeStore(const struct stat& status) {
  return S_ISREG(status.st_mode) && sizeOf(status) <= StoreFormat::kMaxFileSize;
}

}  // namespace

/** The log file, and the map of what its records come to. */
class KeyValueStore::Impl {
 public:
  Impl(std::string path, Options options) : path_(std::move(path)), options_(options) {
    if (path_.find('\0') != std::string::npos) {
      path_.clear();  // The system would take it for another, shorter path.
    }
    FileDescriptor file = openFile(path_, O_RDONLY);
    if (!file && errno == ENOENT && has(KVStoreOpenOption::CreateIfMissing) &&
        !has(KVStoreOpenOption::ReadOnly)) {
      file = openFile(path_, O_RDONLY | O_CREAT);
      entryUnsynced_ = true;
    }
    load(std::move(file), kPatience);
  }

  ~Impl() {
    if (unsynced_ && has(KVStoreOpenOption::SyncOnClose)) {
      sync();
    }
  }

  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  /** Reads what was changed since the last look. False when there is no sound store. */
  bool refresh() {
    struct stat now {};
    const bool current =
        file_ && ::fstat(file_.get(), &now) == 0 && hasItsLinks(now) &&
        (sizeOf(now) == end_ || (sizeOf(now) > end_ && mayBeStore(now) && readOn(file_, now)));
    return current || load(openFile(path_, O_RDONLY));
  }

  [[nodiscard]] Value find(std::string_view key) const {
    const auto found = records_.find(key);
    return found == records_.end() ? Value() : Value(found->second);
  }

  /** Makes one change under the file's lock. */
  bool change(std::string_view key, Value value) {
    if (has(KVStoreOpenOption::ReadOnly) ||
        StoreFormat::encodedSize(key, value) > StoreFormat::kMaxFileSize) {
      return false;
    }
    if (!file_ && !refresh()) {
      return false;  // Without having opened for writing what is to stay as it is.
    }
    const auto deadline = Clock::now() + kPatience;
    do {
      const FileDescriptor file = openFile(path_, O_RDWR);
      if (!file) {
        return false;
      }
      std::optional<LockRelease> release;
      if (has(KVStoreOpenOption::Shared)) {  // Otherwise load() took the lock for good.
        if (!lockExclusively(file.get(), deadline)) {
          return false;
        }
        release.emplace(file.get());
      }
      struct stat now {};
      if (pathNames(file, now)) {
        return changeLocked(file, now, key, value);
      }
    } while (Clock::now() < deadline);
    return false;
  }

  /** Removes a key. One that is absent does not even cost opening the file for writing, which
   *  watchers would notice. */
  bool remove(std::string_view key) {
    if (!has(KVStoreOpenOption::ReadOnly) && refresh() && !find(key)) {
      return true;
    }
    return change(key, std::nullopt);
  }

  bool sync() { return refresh() && makeDurable(file_); }

 private:
  using Records = std::map<std::string, std::string, std::less<>>;

  [[nodiscard]] bool has(KVStoreOpenOption option) const { return options_.test(option); }

  /** Whether the file that was loaded, whose status is @p now, is still where it was: one that was
   *  replaced or removed has lost a link, perhaps even before it was loaded. */
  [[nodiscard]] bool hasItsLinks(const struct stat& now) const {
    return now.st_nlink != 0 && now.st_nlink == loaded_.st_nlink;
  }

  /** Whether the path still names the open file, whose status goes to @p opened. */
  [[nodiscard]] bool pathNames(const FileDescriptor& file, struct stat& opened) const {
    struct stat named {};
    return ::fstat(file.get(), &opened) == 0 && ::lstat(path_.c_str(), &named) == 0 &&
           sameFile(opened, named);
  }

  /** Reads all of @p file, which the path names now. @param patience how long to wait for the lock
   *  that a store keeps which does not share its file. */
  bool load(FileDescriptor file, Clock::duration patience = {}) {
    file_.reset();
    records_.clear();
    live_ = 0;
    end_ = 0;
    if (!file || (!has(KVStoreOpenOption::Shared) &&
                  !lockExclusively(file.get(), Clock::now() + patience))) {
      return false;
    }
    if (::fstat(file.get(), &loaded_) != 0 || !mayBeStore(loaded_) || !readOn(file, loaded_)) {
      return false;
    }
    file_ = std::move(file);
    return true;
  }

  /** Reads the records from where the last look ended. False for damage. */
  bool readOn(const FileDescriptor& file, const struct stat& status) try {
    std::string bytes(static_cast<std::size_t>(sizeOf(status) - end_), '\0');
    if (!readAt(file.get(), end_, bytes)) {
      return false;
    }
    std::string_view rest = bytes;
    if (end_ == 0) {
      if (!rest.starts_with(StoreFormat::kMagic)) {
        return StoreFormat::isTornMagic(rest);
      }
      rest.remove_prefix(StoreFormat::kMagic.size());
      end_ = StoreFormat::kMagic.size();
    }
    while (const auto record = StoreFormat::decode(rest)) {
      apply(record->key, record->value);
      rest.remove_prefix(record->size);
      end_ += record->size;
    }
    return StoreFormat::isTornRecord(rest);
  } catch (const std::bad_alloc&) {
    return false;
  }

  /** Brings the map up to one change. */
  void apply(std::string_view key, Value value) {
    const auto found = records_.find(key);
    if (found != records_.end()) {
      live_ -= StoreFormat::encodedSize(found->first, found->second);
    }
    if (value) {
      live_ += StoreFormat::encodedSize(key, value);
    }
    if (value && found != records_.end()) {
      found->second = *value;
    } else if (value) {
      records_.emplace(key, *value);
    } else if (found != records_.end()) {
      records_.erase(found);
    }
  }

  /** Makes the change in the locked file that the path names; @p now is its status. */
  bool changeLocked(const FileDescriptor& file, const struct stat& now, std::string_view key,
                    Value value) {
    if (!catchUp(now)) {
      return false;
    }
    const Value before = find(key);
    if (!value && !before) {
      return true;
    }
    if (sizeOf(now) > end_ && ::ftruncate(file.get(), static_cast<off_t>(end_)) != 0) {
      return false;
    }
    if (!append(file, key, value)) {
      return false;
    }
    unsynced_ = true;
    if (has(KVStoreOpenOption::SyncEachWrite) && !makeDurable(file)) {
      append(file, key, before);  // Readers may have seen it by now: only another change undoes it.
      return false;
    }
    apply(key, value);
    if (end_ > kCompactionSize && end_ > kCompactionRatio * live_) {
      compact();
    }
    return true;
  }

  /** Reads what others did to the locked file whose status is @p now. */
  bool catchUp(const struct stat& now) {
    if (!file_ || !sameFile(now, loaded_)) {
      return load(openFile(path_, O_RDONLY));
    }
    return sizeOf(now) == end_ || refresh();
  }

  /** Writes one record behind the last one, or nothing. */
  bool append(const FileDescriptor& file, std::string_view key, Value value) {
    buffer_.assign(end_ == 0 ? StoreFormat::kMagic : std::string_view());
    StoreFormat::encode(key, value, buffer_);
    if (end_ + buffer_.size() > StoreFormat::kMaxFileSize) {
      return false;
    }
    if (!writeAt(file.get(), end_, buffer_)) {
      // What there is of it is a torn tail, if this fails too.
      [[maybe_unused]] const int cut = ::ftruncate(file.get(), static_cast<off_t>(end_));
      return false;
    }
    end_ += buffer_.size();
    return true;
  }

  bool makeDurable(const FileDescriptor& file) {
    if (!syncFile(file.get()) || (entryUnsynced_ && !syncDirectoryOf(path_))) {
      return false;
    }
    unsynced_ = false;
    entryUnsynced_ = false;
    return true;
  }

  /** Puts a file with the live records alone in the place of the locked one. When that does not
   *  work, the file stays as it is, and the next change tries again. */
  void compact() {
    const std::string path = path_ + ".compact";
    ::unlink(path.c_str());  // What a killed process left.
    const FileDescriptor target = openFile(path, O_RDWR | O_CREAT | O_EXCL);
    if (!target) {
      return;
    }
    std::string content(StoreFormat::kMagic);
    content.reserve(content.size() + live_);
    for (const auto& [key, value] : records_) {
      StoreFormat::encode(key, value, content);
    }
    // The new file is read through a descriptor of its own: closing one that may write is an event.
    FileDescriptor reader = openFile(path, O_RDONLY);
    struct stat status {};
    const bool written =
        reader && copyOwnership(file_.get(), target.get()) && writeAt(target.get(), 0, content) &&
        syncFile(target.get()) && ::fstat(reader.get(), &status) == 0 &&
        (has(KVStoreOpenOption::Shared) || lockExclusively(reader.get(), Clock::now()));
    if (!written || std::rename(path.c_str(), path_.c_str()) != 0) {
      ::unlink(path.c_str());
      return;
    }
    file_ = std::move(reader);
    loaded_ = status;
    end_ = content.size();
    entryUnsynced_ = !syncDirectoryOf(path_);
  }

  std::string path_;
  const Options options_;
  FileDescriptor file_;         ///< Read from; none while there is no sound store.
  struct stat loaded_ {};       ///< Which file that is, and with how many links.
  std::uint64_t end_ = 0;       ///< Where the last whole record of it ends.
  Records records_;             ///< What all records up to there come to.
  std::uint64_t live_ = 0;      ///< Bytes of the records that those would make.
  std::string buffer_;          ///< The last record written; kept for its memory.
  bool unsynced_ = false;       ///< Something was written and not made durable.
  bool entryUnsynced_ = false;  ///< The directory's entry is as new as that.
};

KeyValueStore::KeyValueStore() = default;

KeyValueStore::KeyValueStore(const std::string& path, std::string /*name*/, Options options)
    : impl_(std::make_unique<Impl>(path, options)) {}

KeyValueStore::~KeyValueStore() = default;

std::optional<std::string> KeyValueStore::get(const std::string& key) {
  if (!impl_ || !impl_->refresh()) {
    return std::nullopt;
  }
  const Value value = impl_->find(key);
  return value ? std::optional<std::string>(*value) : std::nullopt;
}

bool KeyValueStore::set(const std::string& key, const std::string& value) {
  return impl_ && impl_->change(key, value);
}

bool KeyValueStore::remove(const std::string& key) {
  return impl_ && impl_->remove(key);
}

bool KeyValueStore::sync() {
  return impl_ && impl_->sync();
}

bool KeyValueStore::isReady() {
  return impl_ && impl_->refresh();
}

}  // namespace KELP::OS
