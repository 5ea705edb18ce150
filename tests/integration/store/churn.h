#pragma once

#include "unit/os/storefile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KELP::Test {

/** The keys that churnStep() changes. */
[[nodiscard]] std::vector<std::string> churnKeys();

/** The change with this number in an endless sequence that both sides of a test know. Its values
 * are so large that every dozen or so changes the store's file is written anew. */
[[nodiscard]] StoreChange churnStep(std::uint64_t number);

/** A value that names its @p writer and its @p number and is long enough to be torn. */
[[nodiscard]] std::string stampedValue(std::uint64_t writer, std::uint64_t number);

/** Who wrote a stamped value, and as which of its values. */
struct Stamp {
  std::uint64_t writer;
  std::uint64_t number;
};

/** Reads a stamped value; empty when it is not, to the last byte, what the writer wrote. */
[[nodiscard]] std::optional<Stamp> readStamp(const std::string& value);

}  // namespace KELP::Test
