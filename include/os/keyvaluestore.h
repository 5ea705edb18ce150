#pragma once

#include <os/enumbitset.h>
#include <os/export.h>

#include <memory>
#include <optional>
#include <string>

namespace KELP::OS {

/** How a store is opened; the numbers are those of the bits in an option set. */
enum class KVStoreOpenOption : int {
  ReadOnly = 0,         ///< Sets and removes are refused, and no file is ever created.
  SyncEachWrite = 1,    ///< A change reaches stable storage before the call returns.
  CreateIfMissing = 2,  ///< A missing file is created, empty, when the store is opened.
  /// Other processes may use the file at the same time. When clear, the store takes the file for
  /// itself until it is closed: it waits up to 5 seconds for that when it is opened, and meanwhile
  /// everyone else can read the file and cannot change it.
  Shared = 3,
  SyncOnClose = 4,  ///< If anything was written, it is made durable when the store is closed.
};

/**
 * Keys with their values, both byte strings, in one file that several processes share.
 *
 * Life cycle:
 *  1. The constructor opens the file (or creates it, with KVStoreOpenOption::CreateIfMissing) and
 *     reads it. It never fails loudly: ask isReady().
 *  2. get(), set() and remove() see and make changes one key at a time. Each looks at the file
 *     first, so it sees what any process or object changed before the call.
 *  3. The destructor closes the file.
 *
 * What is promised:
 *  - A set() or remove() that returned true is seen by the next get() of every process; one that
 *    returned false changed nothing. A process that is killed at any instant leaves each key with
 *    its old or its new value.
 *  - Every set() that returned true, of an equal value too, and every remove() that took a key away
 *    raises on a watched directory `IN_MODIFY` and then `IN_CLOSE_WRITE` (or one `IN_CREATE` or
 *    `IN_MOVED_TO`) for the file's own name. Opening, reading and closing modify nothing.
 *  - A file whose end was cut off, as a power cut leaves it, opens with the state after its last
 *    whole record. Any other damage, and a file that is no store or that cannot be opened, makes a
 *    store that is not ready; the file stays as it is.
 *  - Keys and values may hold any bytes, and may be empty. A file may grow to 256 MiB; a change
 *    that would not fit is refused. After a change it is at most 64 KiB or four times its live
 *    records, whichever is more.
 *
 * The host's implementation keeps a checksummed append-only log (docs/on-disk-format.md). A device
 * may link its own implementation of this class instead.
 *
 * No operation logs, and none throws but for want of memory. An object is used by one thread at a
 * time; different objects on one file, in one process or in several, need no coordination.
 */
class KELP_EXPORT KeyValueStore {
 public:
  /** How a store is opened. */
  using Options = EnumBitset<KVStoreOpenOption, 5>;

  /**
   * Opens the store.
   *
   * @param path    the store's file; its directory must exist. A symbolic link in its place is not
   *                followed: the store is then not ready.
   * @param name    a name for the store, for implementations that keep several under one path; the
   *                host's does not use it.
   * @param options how to open it.
   */
  KeyValueStore(const std::string& path, std::string name, Options options);

  /** Closes the file; with KVStoreOpenOption::SyncOnClose, makes what was written durable first. */
  virtual ~KeyValueStore();

  KeyValueStore(const KeyValueStore&) = delete;
  KeyValueStore& operator=(const KeyValueStore&) = delete;
  KeyValueStore(KeyValueStore&&) = delete;
  KeyValueStore& operator=(KeyValueStore&&) = delete;

  /**
   * Reads one key.
   *
   * @param key the key.
   * @return its value; empty when the key is absent or the store is not ready.
   */
  virtual std::optional<std::string> get(const std::string& key);

  /**
   * Writes one key. Waits up to 5 seconds for other writers.
   *
   * @param key   the key.
   * @param value its new value.
   * @return true when the change was made; false when nothing was changed: the store is read-only,
   *         not ready or damaged, the file was removed, another process kept it locked, the record
   *         would not fit, or the system refused the write.
   */
  virtual bool set(const std::string& key, const std::string& value);

  /**
   * Removes one key. Waits up to 5 seconds for other writers. An absent key is no failure, and
   * writes nothing.
   *
   * @param key the key.
   * @return true when the key is absent afterwards; false when nothing was changed, as in set().
   */
  virtual bool remove(const std::string& key);

  /**
   * Makes every change so far durable, whoever made it; and the name of the file, unless another
   * store made the file in a directory that may not be read here.
   *
   * @return true when it is; false when the store is not ready or the system could not do it.
   */
  virtual bool sync();

  /** Whether the file is open, sound and can be read. Looks at the file again. @return true if so.
   */
  virtual bool isReady();

 protected:
  /** For a class that keeps its keys elsewhere and overrides all operations. Such a store has no
   *  file; the operations of this class behave on it as on one that is not ready. */
  KeyValueStore();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace KELP::OS
