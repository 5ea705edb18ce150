// The file of a store. The input is the file; it is tried as it is, and once more with a right
// beginning and right checksums, which hardly any input has by chance.

#include "fuzz/fuzz.h"
#include "support/temporarydirectory.h"

#include <os/keyvaluestore.h>

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace KELP::Fuzz {
namespace {

using OS::KeyValueStore;
using Option = OS::KVStoreOpenOption;
using Map = std::map<std::string, std::string>;

constexpr std::string_view kMagic = "KELPKV1\n";
constexpr std::size_t kHeader = 16;
constexpr std::uint32_t kRemoved = 0xFFFFFFFF;
constexpr std::uint64_t kLargestFile = 268'435'456;
constexpr std::size_t kCompactedAbove = 65'536;

/** The number of a header's field. */
std::uint32_t field(std::string_view header, std::size_t index) {
  std::uint32_t number = 0;
  for (std::size_t byte = 4; byte-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(header[4 * index + byte]);
  }
  return number;
}

void setField(std::string& bytes, std::size_t header, std::size_t index, std::uint32_t number) {
  for (std::size_t byte = 0; byte < 4; ++byte) {
    bytes[header + 4 * index + byte] = static_cast<char>(number >> (8 * byte));
  }
}

std::uint32_t checksum(std::string_view bytes) {
  return static_cast<std::uint32_t>(
      ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::uint64_t recordSize(std::string_view header) {
  const std::uint32_t value = field(header, 1);
  return std::uint64_t{kHeader} + field(header, 0) + (value == kRemoved ? 0 : value);
}

/** Gives @p file the magic and each of its records right checksums, as far as there are records. */
std::string repaired(std::string file) {
  file.replace(0, kMagic.size(), kMagic);
  std::size_t at = kMagic.size();
  while (file.size() - at >= kHeader) {
    const std::uint64_t size = recordSize(std::string_view(file).substr(at));
    const bool isWhole = size <= file.size() - at;
    if (isWhole) {
      const std::string_view body =
          std::string_view(file).substr(at + kHeader, static_cast<std::size_t>(size) - kHeader);
      setField(file, at, 2, checksum(body));
    }
    setField(file, at, 3, checksum(std::string_view(file).substr(at, kHeader - 4)));
    if (!isWhole) {
      break;
    }
    at += static_cast<std::size_t>(size);
  }
  return file;
}

/** What the form of the file says of one. */
struct Reading {
  bool isSound = true;
  Map map;
  std::size_t end = 0;  ///< Of the last whole record.
};

std::string_view withoutZeros(std::string_view bytes) {
  return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

Reading readingOf(std::string_view file) {
  Reading reading;
  if (!file.starts_with(kMagic)) {
    const std::string_view written = withoutZeros(file);
    reading.isSound = written.size() < kMagic.size() && kMagic.starts_with(written);
    return reading;
  }
  reading.end = kMagic.size();
  while (true) {
    const std::string_view rest = file.substr(reading.end);
    // No write begins a record that is longer than any file.
    const bool hasHeader = rest.size() >= kHeader &&
                           checksum(rest.substr(0, kHeader - 4)) == field(rest, 3) &&
                           recordSize(rest) <= kLargestFile;
    const std::uint64_t size = hasHeader ? recordSize(rest) : 0;
    if (!hasHeader || size > rest.size() ||
        checksum(rest.substr(kHeader, static_cast<std::size_t>(size) - kHeader)) !=
            field(rest, 2)) {
      const std::size_t written = withoutZeros(rest).size();
      reading.isSound = written < kHeader || (hasHeader && written <= size);
      return reading;
    }
    const std::string key(rest.substr(kHeader, field(rest, 0)));
    const std::string_view value = rest.substr(kHeader + key.size());
    if (field(rest, 1) == kRemoved) {
      reading.map.erase(key);
    } else {
      reading.map[key] = value.substr(0, field(rest, 1));
    }
    reading.end += static_cast<std::size_t>(size);
  }
}

/** Requires that @p store is ready and has @p map, or is not ready, without one. */
void requireHas(KeyValueStore& store, const std::optional<Map>& map) {
  require(store.isReady() == map.has_value(), "a store is ready when its file is sound");
  const std::string absent = "a key that no file has";  // But one that was made up for it may.
  require((map && map->contains(absent)) || !store.get(absent), "an absent key has no value");
  if (map) {
    for (const auto& [key, value] : *map) {
      require(store.get(key) == value, "a key has the value of its last record");
    }
  } else {
    require(!store.get("report_id"), "a store that is not ready has no values");
  }
}

/** The file at the path, which others have changed. */
void requireFileHas(const std::filesystem::path& path, const Map& map) {
  const std::string file = Test::readFile(path);
  const Reading reading = readingOf(file);
  require(reading.isSound && reading.map == map, "the file holds what was changed");
  require(reading.end == file.size(), "a writer removes a torn tail");
}

/** Makes the file of a sound store so large that a change compacts it; @p map is what it then has.
 */
void requireCompacts(KeyValueStore& store, const std::filesystem::path& path, Map& map) {
  const std::string key = "a key that was large";
  require(store.set(key, std::string(kCompactedAbove, '\0')), "a sound store takes a large value");
  require(store.set(key, "small"), "a sound store takes a change that compacts");
  map[key] = "small";
  require(std::filesystem::file_size(path) < kCompactedAbove, "what is not live is dropped");
  requireHas(store, map);
  requireFileHas(path, map);
}

void checkFile(const std::filesystem::path& path, const std::string& bytes) {
  Test::writeFile(path, bytes);
  const Reading reading = readingOf(bytes);
  std::optional<Map> map = reading.isSound ? std::optional(reading.map) : std::nullopt;
  const std::string key = reading.map.empty() ? "report_id" : reading.map.rbegin()->first;
  const std::string value = "value of " + std::to_string(bytes.size());

  KeyValueStore reader(path, "", {Option::ReadOnly, Option::Shared});
  KeyValueStore writer(path, "", {Option::Shared});
  requireHas(reader, map);
  requireHas(writer, map);
  require(!reader.set(key, value) && !reader.remove(key),
          "a store that is read-only changes nothing");
  require(Test::readFile(path) == bytes, "reading leaves the file alone");

  require(writer.set(key, value) == reading.isSound, "a sound store takes a change, and no other");
  if (!map) {
    require(!writer.remove(key), "damage takes no change");
    require(Test::readFile(path) == bytes, "damage is left alone");
    requireHas(reader, map);
    return;
  }
  (*map)[key] = value;
  requireHas(reader, map);
  requireHas(writer, map);
  requireFileHas(path, *map);

  require(writer.remove(key), "a sound store takes a removal");
  map->erase(key);
  requireHas(reader, map);
  require(!reader.get(key), "a removed key has no value");
  requireFileHas(path, *map);

  requireCompacts(writer, path, *map);
  requireHas(reader, map);

  KeyValueStore alone(path, "", {});
  requireHas(alone, map);
}

}  // namespace

void checkStoreFile(const std::string& input) {
  static const Test::TemporaryDirectory directory;
  checkFile(directory / "store", input);
  checkFile(directory / "store", repaired(input));
}

}  // namespace KELP::Fuzz
