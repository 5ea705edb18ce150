#include "peers/contents.h"
#include "sampledata.h"

#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>

#include <cstddef>
#include <memory>
#include <string>

// What a change of a report's contents is made of, beside the store: the text is read and written.
// "json" is the JSON library alone, with the text as it is; "contents" the same with the records.

namespace KELP::Bench {
namespace {

Contents contentsOf(const benchmark::State& state) {
  return makeContents(Diagnostic::DiagnosticReportContentPropertyTypes::INTEGER,
                      static_cast<std::size_t>(state.range(0)), {10});
}

Json::Value parseJson(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  std::string errors;
  require(reader->parse(text.data(), text.data() + text.size(), &root, &errors), "parsing");
  return root;
}

std::string writeJson(const Json::Value& root) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, root);
}

void jsonRead(benchmark::State& state) {
  const std::string text = writeContents(contentsOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(parseJson(text));
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}

void jsonWrite(benchmark::State& state) {
  const std::string text = writeContents(contentsOf(state));
  const Json::Value root = parseJson(text);
  for (auto _ : state) {
    benchmark::DoNotOptimize(writeJson(root));
  }
  require(writeJson(root) == text, "writing the same text");
}

void contentsRead(benchmark::State& state) {
  const std::string text = writeContents(contentsOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(readContents(text));
  }
}

void contentsWrite(benchmark::State& state) {
  const Contents contents = contentsOf(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(writeContents(contents));
  }
}

void byProperties(benchmark::internal::Benchmark* benchmark) {
  benchmark->RangeMultiplier(10)->Range(1, 1000)->UseRealTime();
}

BENCHMARK(jsonRead)->Name("json/read")->Apply(byProperties);
BENCHMARK(jsonWrite)->Name("json/write")->Apply(byProperties);
BENCHMARK(contentsRead)->Name("contents/read")->Apply(byProperties);
BENCHMARK(contentsWrite)->Name("contents/write")->Apply(byProperties);

}  // namespace
}  // namespace KELP::Bench
