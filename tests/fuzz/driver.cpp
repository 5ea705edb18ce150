// What libFuzzer calls: the subject that the build names.

#include "fuzz/fuzz.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  KELP::Fuzz::keepTemporaryFilesInMemory();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KELP::Fuzz::KELP_FUZZ_SUBJECT(std::string(data, data + size));
  return 0;
}
