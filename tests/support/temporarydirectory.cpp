#include "support/temporarydirectory.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace KELP::Test {

TemporaryDirectory::TemporaryDirectory()
    : TemporaryDirectory(std::filesystem::temp_directory_path()) {}

TemporaryDirectory::TemporaryDirectory(const std::filesystem::path& parent) {
  std::string name = (parent / "kelp-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), name);
  }
  path_ = std::filesystem::canonical(name);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path quickestPlace() {
  constexpr const char* kMemory = "/dev/shm";
  const bool chosen = std::getenv("TMPDIR") != nullptr;
  return !chosen && ::access(kMemory, W_OK | X_OK) == 0 ? std::filesystem::path(kMemory)
                                                        : std::filesystem::temp_directory_path();
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  if (!out) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
}

}  // namespace KELP::Test
