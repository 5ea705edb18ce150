// What must not ask for memory, since it may run where memory is short.

#include "unit/foundation/allocations.h"

#include <diagnostic/metadataproperty.h>
#include <diagnostic/reportcontentproperties.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using Test::allocationsSoFar;

template <typename Work>
std::size_t allocationsOf(Work work) {
  const std::size_t before = allocationsSoFar();
  work();
  return allocationsSoFar() - before;
}

TEST(AllocationsTest, AreCountedAlsoInTheLibrary) {
  EXPECT_GT(allocationsOf([] {
              const std::string text = MetadataProperty<std::string>::serialize(
                  std::string("longer than what a string keeps within itself"));
              EXPECT_FALSE(text.empty());
            }),
            0U);
  const MetadataProperty<int> property("a key that is longer than a string's own room", 1);
  EXPECT_GT(allocationsOf([&] { EXPECT_FALSE(property.getKey().empty()); }), 0U);
}

template <typename T>
void expectReadsWithoutMemory(const std::string& text, std::optional<T> expected) {
  const MetadataProperty<T> property("key", std::nullopt);
  std::optional<std::string> stored(text);
  std::optional<T> read;
  EXPECT_EQ(allocationsOf([&] { read = property.unserialize(std::move(stored)); }), 0U) << text;
  EXPECT_EQ(read, expected) << text;
}

TEST(AllocationsTest, ReadingAnIntegerNeedsNone) {
  const std::string zeros(100, '0');
  expectReadsWithoutMemory<int>(zeros + "42 and so on", 42);
  expectReadsWithoutMemory<int>("-2147483648", -2147483647 - 1);
  expectReadsWithoutMemory<int>("2147483648", std::nullopt);
  expectReadsWithoutMemory<long>("-" + zeros + "9223372036854775807", -9223372036854775807L);
  expectReadsWithoutMemory<long>("not a number, at some length, to leave the short form",
                                 std::nullopt);
}

TEST(AllocationsTest, AFlagNeedsNoneInEitherDirection) {
  std::string text;
  EXPECT_EQ(allocationsOf([&] { text = MetadataProperty<bool>::serialize(true); }), 0U);
  expectReadsWithoutMemory<bool>(text, true);
}

TEST(AllocationsTest, NamesOfTypesNeedNone) {
  std::string_view name;
  auto type = DiagnosticReportContentPropertyTypes::UNKNOWN;
  EXPECT_EQ(allocationsOf([&] {
              name = DiagnosticReportContentPropertyTypesToString(
                  DiagnosticReportContentPropertyTypes::BOOLEAN);
              type = StringToDiagnosticReportContentPropertyTypes(name);
              static_cast<void>(StringToDiagnosticReportContentPropertyTypes(
                  "a name that is no name of any type and rather long"));
            }),
            0U);
  EXPECT_EQ(name, "BOOLEAN");
  EXPECT_EQ(type, DiagnosticReportContentPropertyTypes::BOOLEAN);
}

}  // namespace
}  // namespace KELP::Diagnostic
