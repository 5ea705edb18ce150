#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** What a store holds. */
using StoreMap = std::map<std::string, std::string>;

/** One change of a store: a new value for the key, or, without one, its removal. */
struct StoreChange {
  std::string key;
  std::optional<std::string> value;
};

/** Makes the change in @p map. */
void applyChange(const StoreChange& change, StoreMap& map);

/** The first bytes of every store file that is not empty. */
[[nodiscard]] std::string storeMagic();

/** The 16 bytes before a record's key, with a right checksum of themselves, whatever they claim. */
[[nodiscard]] std::string storeHeader(std::uint32_t keyLength, std::uint32_t valueLength,
                                      std::uint32_t bodyChecksum);

/** The record of one change. */
[[nodiscard]] std::string storeRecord(const StoreChange& change);

/** The value length in the header of a removal. */
constexpr std::uint32_t kRemoval = 0xFFFFFFFF;

/** The file that a sequence of changes leaves, and what it means at each of its bytes. */
class StoreLog {
 public:
  explicit StoreLog(const std::vector<StoreChange>& changes);

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  /** Where the record with this number begins; the number of all records gives the file's end. */
  [[nodiscard]] std::size_t recordStart(std::size_t number) const { return starts_.at(number); }
  [[nodiscard]] std::size_t recordCount() const { return starts_.size() - 1; }
  /** How many records stand whole in the first @p size bytes. */
  [[nodiscard]] std::size_t wholeRecords(std::size_t size) const;
  /** What the store holds after that many records. */
  [[nodiscard]] const StoreMap& stateAfter(std::size_t records) const {
    return states_.at(records);
  }
  /** What the store holds in the end. */
  [[nodiscard]] const StoreMap& state() const { return states_.back(); }
  /** Every key that any change names. */
  [[nodiscard]] std::vector<std::string> keys() const;

 private:
  std::string bytes_;
  std::vector<std::size_t> starts_;
  std::vector<StoreMap> states_;
};

/** A log with every kind of change: overwritten, removed, empty and binary keys and values. */
[[nodiscard]] StoreLog sampleLog();

/** Reads a whole store file; throws `std::runtime_error` for anything but whole, right records. */
[[nodiscard]] StoreMap decodeStore(const std::string& bytes);

/** The bytes of the records that @p map needs. */
[[nodiscard]] std::size_t liveSize(const StoreMap& map);

/** Bytes that look random and are the same for the same @p seed. */
[[nodiscard]] std::string patternValue(std::uint64_t seed, std::size_t size);

/** A value in short: its size and checksum, or "none". */
[[nodiscard]] std::string describeValue(const std::optional<std::string>& value);

}  // namespace KELP::Test
