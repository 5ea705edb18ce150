#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

// One key-value store, beside the calls without which a change could not be kept and seen.

namespace KELP::Bench {
namespace {

/** The key that every change of a report writes. */
constexpr const char* kKey = "modified";
/** A key with a value that does not fit into a string object itself. */
constexpr const char* kReadKey = "session_id";

std::string valueOf(const benchmark::State& state) {
  return std::string(static_cast<std::size_t>(state.range(0)), 'v');
}

void storeSet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const auto store = makeReportStore(directory / "store");
  const std::string key = kKey;
  const std::string value = valueOf(state);
  for (auto _ : state) {
    require(store->set(key, value), "set");
  }
}

// The store's compactions and the twin's truncations are both inside the times: one for every 64
// KiB that are written.
void bareSet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const std::string file = directory / "store";
  ::close(BareCalls::openFile(file, O_RDWR | O_CREAT));
  const std::string record = recordOf(kKey, valueOf(state));
  for (auto _ : state) {
    BareCalls::append(file, record);
  }
}

void storeGet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const auto store = makeReportStore(directory / "store");
  const std::string key = kReadKey;
  for (auto _ : state) {
    auto value = store->get(key);
    require(value.has_value(), "get");
    benchmark::DoNotOptimize(value);
  }
}

void bareGet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const int file = BareCalls::openFile(directory / "store", O_RDWR | O_CREAT);
  for (auto _ : state) {
    struct stat status {};
    BareCalls::checked(::fstat(file, &status), "fstat");
    benchmark::DoNotOptimize(status);
  }
  ::close(file);
}

void storeOpen(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const auto file = directory / "store";
  makeReportStore(file).reset();
  for (auto _ : state) {
    auto store = openStore(file);
    benchmark::DoNotOptimize(store);
  }
}

void bareOpen(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const std::string file = directory / "store";
  makeReportStore(file).reset();
  std::string buffer(std::filesystem::file_size(file), '\0');
  for (auto _ : state) {
    BareCalls::openStore(file, buffer);
    benchmark::DoNotOptimize(buffer);
  }
}

BENCHMARK(storeSet)->Name("store_set/library")->Arg(10)->Arg(1024);
BENCHMARK(bareSet)->Name("store_set/bare")->Arg(10)->Arg(1024);
BENCHMARK(storeGet)->Name("store_get/library");
BENCHMARK(bareGet)->Name("store_get/bare");
BENCHMARK(storeOpen)->Name("store_open/library");
BENCHMARK(bareOpen)->Name("store_open/bare");

}  // namespace
}  // namespace KELP::Bench
