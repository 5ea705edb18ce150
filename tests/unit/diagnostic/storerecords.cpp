#include "unit/diagnostic/storerecords.h"

#include "support/temporarydirectory.h"

#include <os/keyvaluestore.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace KELP::Test {
namespace {

constexpr std::size_t kMagicSize = 8;
constexpr std::size_t kHeaderSize = 16;
constexpr std::uint32_t kRemoval = 0xFFFFFFFF;

std::uint32_t littleEndian(std::string_view bytes) {
  std::uint32_t number = 0;
  for (std::size_t i = 4; i-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return number;
}

/** Cuts @p size bytes off the front of @p rest. */
std::string_view takeBytes(std::string_view& rest, std::size_t size) {
  if (rest.size() < size) {
    throw std::runtime_error("the store's file ends within a record");
  }
  const std::string_view taken = rest.substr(0, size);
  rest.remove_prefix(size);
  return taken;
}

/** Those of a report, but for making changes durable, which tests have no use for. */
OS::KeyValueStore::Options storeOptions() {
  return {OS::KVStoreOpenOption::CreateIfMissing, OS::KVStoreOpenOption::Shared};
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const StoreRecord& record) {
  return out << record.key << (record.value ? " = \"" + *record.value + '"' : " removed");
}

std::vector<StoreRecord> readRecords(const std::filesystem::path& file) {
  const std::string content = readFile(file);
  std::string_view rest = content;
  takeBytes(rest, kMagicSize);
  std::vector<StoreRecord> records;
  while (!rest.empty()) {
    const std::string_view header = takeBytes(rest, kHeaderSize);
    const std::uint32_t valueSize = littleEndian(header.substr(4));
    StoreRecord record;
    record.key = takeBytes(rest, littleEndian(header));
    if (valueSize != kRemoval) {
      record.value = takeBytes(rest, valueSize);
    }
    records.push_back(record);
  }
  return records;
}

std::size_t recordSize(const StoreRecord& record) {
  return kHeaderSize + record.key.size() + record.value.value_or("").size();
}

std::optional<std::string> storedText(const std::filesystem::path& file, const std::string& key) {
  OS::KeyValueStore store(file, "metadata", storeOptions());
  return store.get(key);
}

void storeText(const std::filesystem::path& file, const std::string& key,
               const std::optional<std::string>& text) {
  OS::KeyValueStore store(file, "metadata", storeOptions());
  if (!(text ? store.set(key, *text) : store.remove(key))) {
    throw std::runtime_error("cannot change the store " + file.string());
  }
}

}  // namespace KELP::Test
