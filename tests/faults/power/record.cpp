#include "faults/power/record.h"

#include <fstream>
#include <stdexcept>

namespace KELP::Test {

std::vector<RecordedCall> readRecord(const std::filesystem::path& file) {
  std::ifstream record(file, std::ios::binary);
  std::vector<RecordedCall> calls;
  RecordedCall next;
  std::size_t size = 0;
  while (record >> next.call >> next.effect >> next.offset >> size) {
    record.ignore(1);
    std::string line;
    std::getline(record, line);
    next.path = line;
    std::getline(record, line);
    next.toPath = line;
    next.data.resize(size);
    if (!record.read(next.data.data(), static_cast<std::streamsize>(size))) {
      throw std::runtime_error("the record ends too early");
    }
    calls.push_back(next);
  }
  if (!record.eof()) throw std::runtime_error("no record");
  return calls;
}

}  // namespace KELP::Test
