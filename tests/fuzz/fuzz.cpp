#include "fuzz/fuzz.h"

#include <stdlib.h>

#include <filesystem>

namespace KELP::Fuzz {

void keepTemporaryFilesInMemory() {
  if (std::filesystem::is_directory("/dev/shm")) {
    ::setenv("TMPDIR", "/dev/shm", 0);
  }
}

}  // namespace KELP::Fuzz
