#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** One record of a store's file: a key with its new value, or with its removal. */
struct StoreRecord {
  std::string key;
  std::optional<std::string> value;

  bool operator==(const StoreRecord&) const = default;
};

std::ostream& operator<<(std::ostream& out, const StoreRecord& record);

/** All records of a store's file, oldest first. Throws when anything but whole records is in it. */
[[nodiscard]] std::vector<StoreRecord> readRecords(const std::filesystem::path& file);

/** The bytes that a record takes in the file. */
[[nodiscard]] std::size_t recordSize(const StoreRecord& record);

/** The text of @p key as an independent store object reads it. */
[[nodiscard]] std::optional<std::string> storedText(const std::filesystem::path& file,
                                                    const std::string& key);

/** Writes @p text under @p key, or removes the key, through an independent store object. */
void storeText(const std::filesystem::path& file, const std::string& key,
               const std::optional<std::string>& text);

}  // namespace KELP::Test
