#pragma once

#include "support/temporarydirectory.h"
#include "unit/os/storefile.h"

#include <os/keyvaluestore.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

using OS::KeyValueStore;
using Option = OS::KVStoreOpenOption;

/** How reports open their store: created if missing, shared, durable when closed. */
constexpr unsigned long kReportOptions = 28;

/** Opens the store in @p file. */
[[nodiscard]] KeyValueStore openStore(const std::filesystem::path& file,
                                      unsigned long options = kReportOptions);

/** Those of @p keys that the store has, with their values. */
[[nodiscard]] StoreMap readKeys(KeyValueStore& store, const std::vector<std::string>& keys);

/** Fails unless the store behaves as one whose file cannot be used. */
void expectNotReady(KeyValueStore& store, const std::string& anyKey = "report_id");

/** The file's status; throws when there is none. A symbolic link is not followed. */
[[nodiscard]] struct stat statusOf(const std::filesystem::path& file);

/** Whether the two were taken of one file that nobody changed in between. */
[[nodiscard]] bool unchanged(const struct stat& before, const struct stat& after);

/** The names of a directory's entries, sorted. */
[[nodiscard]] std::vector<std::string> entriesOf(const std::filesystem::path& directory);

/** A directory with a place for a store. */
class StoreTest : public ::testing::Test {
 protected:
  [[nodiscard]] const std::filesystem::path& file() const { return file_; }
  [[nodiscard]] const TemporaryDirectory& directory() const { return directory_; }
  [[nodiscard]] KeyValueStore open(unsigned long options = kReportOptions) const {
    return openStore(file_, options);
  }

 private:
  const TemporaryDirectory directory_;
  const std::filesystem::path file_ = directory_ / "metadata.db";
};

}  // namespace KELP::Test
