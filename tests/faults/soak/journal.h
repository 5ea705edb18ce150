#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test::Soak {

/** What an entry of the journal says. The letter is what stands in the file. */
enum class Kind : char {
  // A session: one report is opened, locked, read or changed, and closed.
  Opening = 'S',
  Opened = 'O',
  NotOpened = 'F',      ///< text: the line of the log
  LockRefused = 'W',    ///< text: the message
  LockAwaited = 'Q',    ///< It was refused for a very long time.
  WriteLocked = 'L',    ///< words: token, and whether it may be the beginning of a creation
  ReadLocked = 'l',     ///< as WriteLocked
  Changing = 'I',       ///< words: name, token before, after, and those of a killed process
  Changed = 'A',        ///< words: name
  Refused = 'R',        ///< text: the message that was to be expected; nothing was changed
  NotAsExpected = 'N',  ///< text: what was expected and what was seen
  Unlocking = 'U',
  Closed = 'E',
  // The repository.
  Creating = 'C',  ///< words: token
  Created = 'c',
  NotCreated = 'x',  ///< text: the line of the log
  Deleting = 'D',
  Deleted = 'd',
  NotDeleted = 'n',  ///< text: the message
  Listing = 'G',
  Listed = 'g',  ///< words: the identifiers
  Counting = 'H',
  Counted = 'h',  ///< words: the number
  // Others.
  Event = 'V',      ///< words: the number of the observer's event
  Ended = 'K',      ///< written by the supervisor when the process is gone
  Violation = 'X',  ///< text: which promise was broken
};

/** One entry. */
struct Entry {
  std::string who;  ///< The process, by a name that no other has.
  Kind kind;
  std::string id;  ///< The report; "-" for none.
  std::string text;

  [[nodiscard]] std::vector<std::string> words() const;
};

/**
 * The log of what all processes are about to do and have done, outside of the reports' root. One
 * file that all append to: its order is the order in which things were said, also between
 * processes. An entry is one write, which a killed process has made or not; the kernel keeps it
 * without a sync.
 */
class Journal {
 public:
  Journal(const std::filesystem::path& path, std::string who);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  void write(Kind kind, const std::string& id, const std::string& text = {}) const;
  /** In the name of another process. */
  void writeFor(const std::string& who, Kind kind, const std::string& id,
                const std::string& text = {}) const;

 private:
  std::string who_;
  int file_;
};

/** Reads the journal as it grows, and gives its room back. */
class JournalReader {
 public:
  explicit JournalReader(const std::filesystem::path& path);
  ~JournalReader();
  JournalReader(const JournalReader&) = delete;
  JournalReader& operator=(const JournalReader&) = delete;

  /** The next entry; empty when there is none yet. */
  [[nodiscard]] std::optional<Entry> next();
  /** How many bytes were read. */
  [[nodiscard]] std::uint64_t size() const { return static_cast<std::uint64_t>(end_); }

 private:
  bool readMore();

  int file_;
  std::int64_t end_ = 0;    ///< Read up to here.
  std::int64_t freed_ = 0;  ///< The room up to here was given back.
  std::string buffer_;
  std::size_t position_ = 0;
};

}  // namespace KELP::Test::Soak
