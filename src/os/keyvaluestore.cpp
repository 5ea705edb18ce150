#include "os/fileio.h"
#include "os/filelock.h"
#include "os/storeformat.h"

#include <os/keyvaluestore.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
      entry_ = Entry::Ours;
    }
    load(std::move(file), kPatience);
  }

  ~Impl() {
    if (unsynced_ && has(KVStoreOpenOption::SyncOnClose) && refresh()) {
      static_cast<void>(makeDurable(file_, Entry::Ours));
    }
  }

  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  /** Reads what was changed since the last look. False when there is no sound store. */
  bool refresh() { return (file_ && readNew()) || load(); }

  [[nodiscard]] Value find(std::string_view key) const {
    const auto found = records_.find(key);
    return found == records_.end() ? Value() : Value(found->second);
  }

  /** Makes one change; without a value, the key is removed. */
  bool change(std::string_view key, Value value) {
    if (has(KVStoreOpenOption::ReadOnly)) {
      return false;
    }
    const auto deadline = Clock::now() + kPatience;
    do {
      if (!file_ && !load()) {
        return false;
      }
      if (const std::optional<bool> changed = changeOnce(key, value, deadline)) {
        return *changed;
      }
      file_.reset();
    } while (Clock::now() < deadline);
    return false;
  }

  /** Removes a key. */
  bool remove(std::string_view key) {
    if (!has(KVStoreOpenOption::ReadOnly) && refresh() && !find(key)) {
      return true;  // Without a lock: whoever sets the key now does so afterwards.
    }
    return change(key, std::nullopt);
  }

  bool sync() { return refresh() && makeDurable(file_, Entry::Others); }

 private:
  using Records = std::map<std::string, std::string, std::less<>>;

  /** Who answers for the entry of the loaded file in its directory being durable; in this order. */
  enum class Entry {
    Synced,  ///< It is.
    Others,  ///< Whoever put the file there makes it so, when closing.
    Ours,    ///< This store put the file there.
  };

  [[nodiscard]] bool has(KVStoreOpenOption option) const { return options_.test(option); }

  bool load() { return load(openFile(path_, O_RDONLY)); }

  /** Reads all of @p file, which the path names now. @param patience how long to wait for the lock
   *  that a store keeps which does not share its file. */
  bool load(FileDescriptor file, Clock::duration patience = {}) {
    file_.reset();
    records_.clear();
    live_ = 0;
    end_ = 0;
    entry_ = std::max(entry_, Entry::Others);
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

  /** Reads what was appended to the file. False when it was replaced or removed, and for damage. */
  bool readNew() {
    struct stat now {};
    if (::fstat(file_.get(), &now) != 0) {
      return false;
    }
    // A file that was replaced or removed has lost a link, perhaps even before it was loaded.
    if (now.st_nlink != loaded_.st_nlink || now.st_nlink == 0) {
      if (!isNamed(now)) {
        return false;
      }
      loaded_ = now;  // Somebody made or removed another name of it.
    }
    return sizeOf(now) == end_ || (sizeOf(now) > end_ && mayBeStore(now) && readOn(file_, now));
  }

  /** Whether the path names @p file. */
  [[nodiscard]] bool isNamed(const struct stat& file) const {
    struct stat named {};
    return ::lstat(path_.c_str(), &named) == 0 && sameFile(named, file);
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
    const auto place = records_.lower_bound(key);
    const bool found = place != records_.end() && place->first == key;
    if (found) {
      live_ -= StoreFormat::encodedSize(key, place->second);
    }
    if (value) {
      live_ += StoreFormat::encodedSize(key, value);
    }
    if (found && value) {
      place->second = *value;
    } else if (found) {
      records_.erase(place);
    } else if (value) {
      records_.emplace_hint(place, key, *value);
    }
  }

  /**
   * Makes one change under the lock of the file that is read.
   *
   * @return whether the change was made; empty when that file is no longer the one that the path
   *         names, or is damaged. Then nothing was done, and the file is to be loaded anew.
   */
  std::optional<bool> changeOnce(std::string_view key, Value value, Clock::time_point deadline) {
    FileDescriptor replaced;  // Closed after its lock was released: the number may be used again.
    std::optional<LockRelease> release;
    if (has(KVStoreOpenOption::Shared)) {  // Otherwise load() took the lock for good.
      if (!lockExclusively(file_.get(), deadline)) {
        return false;
      }
      release.emplace(file_.get());
    }
    if (!readNew()) {
      return std::nullopt;
    }
    if (!value && !find(key)) {
      return true;
    }
    if (fits(end_, key, value)) {
      return writeOnce(key, value, replaced);
    }
    if (fits(live_ + StoreFormat::kMagic.size(), key, value)) {
      replaced = compact();
    }
    return replaced ? std::nullopt : std::optional(false);
  }

  /**
   * Makes one change that has room, when the file is locked and read.
   *
   * @param replaced gets the file that was replaced by a compact one.
   * @return as changeOnce().
   */
  std::optional<bool> writeOnce(std::string_view key, Value value, FileDescriptor& replaced) {
    // Only now, since watchers notice when a file that was open for writing is closed.
    const FileDescriptor target = openFile(path_, O_WRONLY);
    struct stat named {};
    if (!target || ::fstat(target.get(), &named) != 0) {
      return false;
    }
    if (!sameFile(named, loaded_)) {
      return std::nullopt;
    }
    if ((sizeOf(named) > end_ && !dropTornTail(target)) || !record(target, key, value)) {
      return false;
    }
    try {
      apply(key, value);
      if (end_ > kCompactionSize && end_ > kCompactionRatio * live_) {
        replaced = compact();
      }
    } catch (const std::bad_alloc&) {
      replaced = std::move(file_);  // The change is made: it will be read with everything else.
    }
    return true;
  }

  /** Removes what is behind the last whole record, for good: a power cut that brought it back
   * behind the next record would make damage of both. */
  bool dropTornTail(const FileDescriptor& file) {
    return ::ftruncate(file.get(), static_cast<off_t>(end_)) == 0 && syncFile(file.get());
  }

  /** Whether the record of a change has room behind @p end. */
  static bool fits(std::uint64_t end, std::string_view key, Value value) {
    return std::max<std::uint64_t>(end, StoreFormat::kMagic.size()) +
               StoreFormat::encodedSize(key, value) <=
           StoreFormat::kMaxFileSize;
  }

  /** Makes the change in the locked file @p target, whose torn tail is gone. */
  bool record(const FileDescriptor& target, std::string_view key, Value value) {
    if (!append(target, key, value)) {
      return false;
    }
    unsynced_ = true;
    if (has(KVStoreOpenOption::SyncEachWrite) && !makeDurable(target, Entry::Others)) {
      append(target, key, find(key));  // Readers may have seen it: only another change undoes it.
      return false;
    }
    return true;
  }

  /** Writes one record behind the last one, or nothing. */
  bool append(const FileDescriptor& file, std::string_view key, Value value) {
    buffer_.assign(end_ == 0 ? StoreFormat::kMagic : std::string_view());
    StoreFormat::encode(key, value, buffer_);
    if (!writeAt(file.get(), end_, buffer_)) {
      // What there is of it is a torn tail, if this fails too.
      [[maybe_unused]] const bool cut = dropTornTail(file);
      return false;
    }
    end_ += buffer_.size();
    return true;
  }

  /** @param least whose entry is made durable, too. */
  bool makeDurable(const FileDescriptor& file, Entry least) {
    if (!syncFile(file.get())) {
      return false;
    }
    if (entry_ >= least) {
      // Who may not read the directory leaves its entry to whoever made it.
      if (!syncDirectoryOf(path_) && !(entry_ == Entry::Others && errno == EACCES)) {
        return false;
      }
      entry_ = Entry::Synced;
    }
    unsynced_ = false;
    return true;
  }

  /**
   * Puts a file with the live records alone in the place of the locked one. When that does not
   * work, the file stays as it is, and the next change tries again.
   *
   * @return the descriptor of the file that was replaced.
   */
  FileDescriptor compact() {
    const std::string path = path_ + ".compact";
    ::unlink(path.c_str());  // What a killed process left.
    const FileDescriptor target = openFile(path, O_RDWR | O_CREAT | O_EXCL);
    if (!target) {
      return {};
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
        (has(KVStoreOpenOption::Shared) || lockExclusively(reader.get(), Clock::now())) &&
        isNamed(loaded_);
    if (!written || std::rename(path.c_str(), path_.c_str()) != 0) {
      ::unlink(path.c_str());
      return {};
    }
    loaded_ = status;
    end_ = content.size();
    entry_ = syncDirectoryOf(path_) ? Entry::Synced : Entry::Ours;
    return std::exchange(file_, std::move(reader));
  }

  std::string path_;
  const Options options_;
  FileDescriptor file_;     ///< Read from; none while there is no sound store.
  struct stat loaded_ {};   ///< Which file that is, and with how many links.
  std::uint64_t end_ = 0;   ///< Where the last whole record of it ends.
  Records records_;         ///< What all records up to there come to.
  std::uint64_t live_ = 0;  ///< Bytes of the records that those would make.
  std::string buffer_;      ///< The last record written; kept for its memory.
  bool unsynced_ = false;   ///< Something was written and not made durable.
  Entry entry_ = Entry::Others;
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
