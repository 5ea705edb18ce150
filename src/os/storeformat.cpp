#include "os/storeformat.h"

#include <zlib.h>

#include <array>
#include <cstdint>

namespace KELP::OS::StoreFormat {
namespace {

constexpr std::uint32_t kRemoved = 0xFFFFFFFF;
constexpr std::size_t kFieldSize = 4;
/** Bytes that the header's own checksum covers. */
constexpr std::size_t kCheckedHeaderSize = kHeaderSize - kFieldSize;

/** The fields before the key, in their order in the file. */
struct Header {
  std::uint32_t keyLength;
  std::uint32_t valueLength;  ///< kRemoved when there is no value.
  std::uint32_t bodyChecksum;

  [[nodiscard]] std::uint64_t recordSize() const {
    return std::uint64_t{kHeaderSize} + keyLength + (valueLength == kRemoved ? 0 : valueLength);
  }
};

/** The checksum of what had the checksum @p before, followed by @p bytes. */
std::uint32_t checksum(std::string_view bytes, std::uint32_t before = 0) {
  if (bytes.empty()) {
    return before;  // zlib takes a null pointer, which an empty view may have, for a fresh start.
  }
  return static_cast<std::uint32_t>(
      ::crc32_z(before, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

void appendField(std::uint32_t field, std::string& out) {
  for (std::size_t byte = 0; byte < kFieldSize; ++byte) {
    out.push_back(static_cast<char>(field >> (8 * byte)));
  }
}

std::uint32_t readField(std::string_view bytes, std::size_t index) {
  std::uint32_t field = 0;
  for (std::size_t byte = 0; byte < kFieldSize; ++byte) {
    field |= std::uint32_t{static_cast<unsigned char>(bytes[index * kFieldSize + byte])}
             << (8 * byte);
  }
  return field;
}

/** The header that @p bytes begin with; empty unless it is there whole and unharmed. */
std::optional<Header> decodeHeader(std::string_view bytes) {
  if (bytes.size() < kHeaderSize ||
      checksum(bytes.substr(0, kCheckedHeaderSize)) != readField(bytes, 3)) {
    return std::nullopt;
  }
  const Header header{readField(bytes, 0), readField(bytes, 1), readField(bytes, 2)};
  return header.recordSize() <= kMaxFileSize ? std::optional(header) : std::nullopt;
}

/** What is left of @p bytes without the zeros at their end. */
std::string_view withoutTrailingZeros(std::string_view bytes) {
  const std::size_t last = bytes.find_last_not_of('\0');
  return bytes.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

}  // namespace

std::size_t encodedSize(std::string_view key, std::optional<std::string_view> value) {
  return kHeaderSize + key.size() + (value ? value->size() : 0);
}

void encode(std::string_view key, std::optional<std::string_view> value, std::string& out) {
  const std::string_view body = value.value_or(std::string_view());
  const std::size_t start = out.size();
  out.reserve(start + encodedSize(key, value));
  appendField(static_cast<std::uint32_t>(key.size()), out);
  appendField(value ? static_cast<std::uint32_t>(body.size()) : kRemoved, out);
  appendField(checksum(body, checksum(key)), out);
  appendField(checksum(std::string_view(out).substr(start)), out);
  out.append(key).append(body);
}

std::optional<Record> decode(std::string_view bytes) {
  const std::optional<Header> header = decodeHeader(bytes);
  if (!header || header->recordSize() > bytes.size()) {
    return std::nullopt;
  }
  const auto size = static_cast<std::size_t>(header->recordSize());
  const std::string_view body = bytes.substr(kHeaderSize, size - kHeaderSize);
  if (checksum(body) != header->bodyChecksum) {
    return std::nullopt;
  }
  Record record{body.substr(0, header->keyLength), std::nullopt, size};
  if (header->valueLength != kRemoved) {
    record.value = body.substr(header->keyLength);
  }
  return record;
}

bool isTornRecord(std::string_view rest) {
  const std::string_view written = withoutTrailingZeros(rest);
  if (written.size() < kHeaderSize) {
    return true;
  }
  const std::optional<Header> header = decodeHeader(rest);
  return header && header->recordSize() >= written.size();
}

bool isTornMagic(std::string_view bytes) {
  return kMagic.substr(0, kMagic.size() - 1).starts_with(withoutTrailingZeros(bytes));
}

}  // namespace KELP::OS::StoreFormat
