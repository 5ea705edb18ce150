#include <diagnostic/diagnosticdata.h>

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <string>

// memory_probe nothing|open|list ROOT
//
// Does one thing with the reports under ROOT ("open" opens the first one) and prints the highest
// resident size of the process in KiB and the most bytes that were allocated by `new` for it.

namespace {

/** Bytes that `new` has given out. */
struct Allocations {
  std::size_t now = 0;
  std::size_t most = 0;
};

Allocations& allocations() {
  static Allocations counted;
  return counted;
}

/** The highest resident size of this program alone; getrusage would also count the program that
 *  started it. */
long peakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string name;
  while (status >> name && name != "VmHWM:") {
  }
  long size = 0;
  status >> size;
  return size;
}

/** The first report of the directory, found without the library. */
KELP::Diagnostic::ReportUuid firstReport(const std::string& root) {
  KELP::Diagnostic::ReportUuid id;
  id.parse(std::filesystem::directory_iterator(root)->path().filename().c_str());
  return id;
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are what others use in its place.
void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  Allocations& counted = allocations();
  counted.now += ::malloc_usable_size(memory);
  counted.most = std::max(counted.most, counted.now);
  return memory;
}

void operator delete(void* memory) noexcept {
  allocations().now -= ::malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: memory_probe nothing|open|list ROOT\n";
    return 2;
  }
  const std::string task = argv[1];
  const KELP::Diagnostic::DiagnosticData repository(argv[2]);
  const KELP::Diagnostic::ReportUuid id = firstReport(argv[2]);

  const std::size_t before = allocations().now;
  allocations().most = before;
  bool done = task == "nothing";
  if (task == "open") {
    done = repository.openReport(id) != nullptr;
  } else if (task == "list") {
    done = !repository.getAllReportUuids().empty();
  }
  const std::size_t most = allocations().most - before;
  if (!done) {
    return 1;
  }
  std::cout << peakResidentKiB() << ' ' << most << '\n';
  return 0;
}
