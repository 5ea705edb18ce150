#include "unit/os/storefile.h"

#include <zlib.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>

namespace KELP::Test {
namespace {

constexpr std::size_t kHeaderSize = 16;

std::string littleEndian(std::uint32_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>((number >> shift) & 0xFFU);
  }
  return bytes;
}

std::uint32_t numberAt(const std::string& bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (unsigned i = 0; i < 4; ++i) {
    number |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.at(offset + i)))
              << (8 * i);
  }
  return number;
}

std::uint32_t checksum(const std::string& bytes) {
  return static_cast<std::uint32_t>(
      ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

void require(bool holds, const std::string& what) {
  if (!holds) {
    throw std::runtime_error("not a whole store file: " + what);
  }
}

}  // namespace

void applyChange(const StoreChange& change, StoreMap& map) {
  if (change.value) {
    map[change.key] = *change.value;
  } else {
    map.erase(change.key);
  }
}

std::string storeMagic() {
  return "KELPKV1\n";
}

std::string storeHeader(std::uint32_t keyLength, std::uint32_t valueLength,
                        std::uint32_t bodyChecksum) {
  const std::string fields =
      littleEndian(keyLength) + littleEndian(valueLength) + littleEndian(bodyChecksum);
  return fields + littleEndian(checksum(fields));
}

std::string storeRecord(const StoreChange& change) {
  const std::string body = change.key + change.value.value_or("");
  const std::uint32_t valueLength =
      change.value ? static_cast<std::uint32_t>(change.value->size()) : kRemoval;
  return storeHeader(static_cast<std::uint32_t>(change.key.size()), valueLength, checksum(body)) +
         body;
}

StoreLog::StoreLog(const std::vector<StoreChange>& changes)
    : bytes_(storeMagic()), starts_{bytes_.size()}, states_(1) {
  for (const StoreChange& change : changes) {
    bytes_ += storeRecord(change);
    starts_.push_back(bytes_.size());
    StoreMap next = states_.back();
    applyChange(change, next);
    states_.push_back(std::move(next));
  }
}

std::size_t StoreLog::wholeRecords(std::size_t size) const {
  const auto past = std::upper_bound(starts_.begin(), starts_.end(), size);
  return past == starts_.begin() ? 0 : static_cast<std::size_t>(past - starts_.begin()) - 1;
}

std::vector<std::string> StoreLog::keys() const {
  std::set<std::string> all;
  for (const StoreMap& state : states_) {
    for (const auto& [key, value] : state) {
      all.insert(key);
    }
  }
  return {all.begin(), all.end()};
}

StoreLog sampleLog() {
  using namespace std::string_literals;
  return StoreLog({{"report_id", "first"},
                   {"modified", "1"},
                   {"", "value of the empty key"},
                   {"modified", "22"},
                   {"gone", "for a while"},
                   {"nul\0key"s, "nul\0value"s},
                   {"gone", std::nullopt},
                   {"empty", ""},
                   {"\xff\xfe", "\x80\xc0\xaf"},
                   {"modified", "333"}});
}

StoreMap decodeStore(const std::string& bytes) {
  StoreMap map;
  if (bytes.empty()) return map;
  require(bytes.compare(0, storeMagic().size(), storeMagic()) == 0, "magic");
  std::size_t at = storeMagic().size();
  while (at < bytes.size()) {
    require(bytes.size() - at >= kHeaderSize, "header cut at " + std::to_string(at));
    const std::uint32_t keyLength = numberAt(bytes, at);
    const std::uint32_t valueField = numberAt(bytes, at + 4);
    require(numberAt(bytes, at + 12) == checksum(bytes.substr(at, 12)),
            "header checksum at " + std::to_string(at));
    const std::uint32_t valueLength = valueField == kRemoval ? 0 : valueField;
    const std::uint32_t bodyChecksum = numberAt(bytes, at + 8);
    at += kHeaderSize;
    require(bytes.size() - at >= std::size_t{keyLength} + valueLength,
            "body cut at " + std::to_string(at));
    require(checksum(bytes.substr(at, std::size_t{keyLength} + valueLength)) == bodyChecksum,
            "body checksum at " + std::to_string(at));
    const std::string key = bytes.substr(at, keyLength);
    if (valueField == kRemoval) {
      map.erase(key);
    } else {
      map[key] = bytes.substr(at + keyLength, valueLength);
    }
    at += std::size_t{keyLength} + valueLength;
  }
  return map;
}

std::size_t liveSize(const StoreMap& map) {
  std::size_t size = 0;
  for (const auto& [key, value] : map) {
    size += kHeaderSize + key.size() + value.size();
  }
  return size;
}

std::string patternValue(std::uint64_t seed, std::size_t size) {
  std::mt19937_64 random(seed);
  std::string value;
  value.reserve(size + 8);
  while (value.size() < size) {
    const std::uint64_t word = random();
    for (unsigned shift = 0; shift < 64; shift += 8) {
      value += static_cast<char>((word >> shift) & 0xFFU);
    }
  }
  value.resize(size);
  return value;
}

std::string describeValue(const std::optional<std::string>& value) {
  if (!value) return "none";
  return std::to_string(value->size()) + " bytes, checksum " + std::to_string(checksum(*value));
}

}  // namespace KELP::Test
