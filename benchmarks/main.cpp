#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/vfs.h>

#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>

// report_benchmark [--root=DIR] [options of Google Benchmark]
//
// Times the library beside the bare system calls that it cannot do without, in directories that are
// made under DIR (default: /dev/shm where it is large enough) and removed again.

namespace {

constexpr std::string_view kRootOption = "--root=";
constexpr long kTmpfsMagic = 0x01021994;
/** More than the largest files that are copied need; containers may have less in memory. */
constexpr std::uintmax_t kSpace = std::uintmax_t{256} << 20;

std::string defaultRoot() {
  const char* const memory = "/dev/shm";
  std::error_code ignored;
  const std::uintmax_t available = std::filesystem::space(memory, ignored).available;
  return std::filesystem::is_directory(memory, ignored) && available >= kSpace
             ? memory
             : std::filesystem::temp_directory_path().string();
}

/** Takes --root=DIR out of the arguments. */
std::string takeRoot(int& argc, char** argv) {
  std::string root = defaultRoot();
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(kRootOption)) {
      root = argument.substr(kRootOption.size());
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  return root;
}

std::string filesystemOf(const std::string& root) {
  struct statfs status {};
  if (::statfs(root.c_str(), &status) != 0) {
    return "unknown";
  }
  return status.f_type == kTmpfsMagic ? "tmpfs" : "disk";
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string root = takeRoot(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  // All temporary directories are made where TMPDIR says.
  ::setenv("TMPDIR", root.c_str(), 1);
  benchmark::AddCustomContext("root", root);
  benchmark::AddCustomContext("filesystem", filesystemOf(root));
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
} catch (const std::exception& error) {
  std::cerr << "report_benchmark: " << error.what() << '\n';
  return 1;
}
