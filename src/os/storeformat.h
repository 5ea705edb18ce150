#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/** The form of a store's file (docs/on-disk-format.md): a magic, then one record after another. */
namespace KELP::OS::StoreFormat {

/** What a file begins with; the digit is the version of the form. */
inline constexpr std::string_view kMagic = "KELPKV1\n";

/** Bytes of a record before its key. */
inline constexpr std::size_t kHeaderSize = 16;

/** No file is larger, and so no record. */
inline constexpr std::uint64_t kMaxFileSize = std::uint64_t{256} << 20;

/** A change of one key. The views point into the bytes that it was read from. */
struct Record {
  std::string_view key;
  std::optional<std::string_view> value;  ///< Empty: the key was removed.
  std::size_t size = 0;                   ///< Bytes of the whole record.
};

/** Bytes of the record of this change. */
[[nodiscard]] std::size_t encodedSize(std::string_view key, std::optional<std::string_view> value);

/** Appends the record of this change to @p out. Its size must be at most
 *  kMaxFileSize. */
void encode(std::string_view key, std::optional<std::string_view> value, std::string& out);

/** The record that @p bytes begin with; empty unless it is there whole and unharmed. */
[[nodiscard]] std::optional<Record> decode(std::string_view bytes);

/**
 * Whether @p rest, from the first place of a file that is no whole record to the file's end, is
 * what an interrupted write leaves: the beginning of one record, perhaps with zeros in place of
 * what did not reach the disk. Everything else is damage.
 */
[[nodiscard]] bool isTornRecord(std::string_view rest);

/** Whether @p bytes, a whole file that does not begin with the magic, are the beginning of one,
 *  perhaps with zeros behind; so is the empty file. */
[[nodiscard]] bool isTornMagic(std::string_view bytes);

}  // namespace KELP::OS::StoreFormat
