// Texts that are too long for JSON are not written, wherever in a list they stand.

#include "unit/foundation/contents.h"
#include "unit/foundation/memorystore.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/metadataproperty.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::CaseName;
using Test::MemoryStore;
using Test::NamedCase;
using Test::Types;
using Strings = std::vector<std::string>;
using Contents = std::vector<DiagnosticReportContentProperties>;

constexpr std::size_t kTooLong = (std::size_t{256} << 20) + 1;

/** Makes a list with @p text somewhere in it. */
template <typename List>
struct Place : NamedCase {
  std::function<List(std::string text)> make;
};

template <typename List>
void expectRefused(const Place<List>& place) {
  const MetadataProperty<List> property("key", std::nullopt);
  MemoryStore store;
  store.texts["key"] = "before";
  EXPECT_FALSE(property.set(place.make(std::string(kTooLong, 'x')), store));
  EXPECT_EQ(store.texts["key"], "before");
  EXPECT_THAT(store.takeCalls(), testing::IsEmpty());
}

TEST(MetadataLength, OfAnElementOfAListOfStringsHasALimit) {
  expectRefused(Place<Strings>{{}, [](std::string text) {
                                 return Strings{"first", std::move(text), "last"};
                               }});
}

TEST(MetadataLength, IsTheStandardLibrarysErrorOfSerializing) {
  EXPECT_THROW(
      static_cast<void>(MetadataProperty<Strings>::serialize({std::string(kTooLong, 'x')})),
      std::length_error);
}

class ContentsLength : public testing::TestWithParam<Place<Contents>> {};

TEST_P(ContentsLength, HasALimit) {
  expectRefused(GetParam());
}

/** A list with one property, whose @p place the text is put into. No copy is made: it is long. */
Contents listWith(std::string text, std::string& (*place)(DiagnosticReportContentProperties&)) {
  Contents contents(1);
  contents[0].property_type = Types::STRING;
  contents[0].variations.resize(1);
  place(contents[0]) = std::move(text);
  return contents;
}

Place<Contents> placeIn(const std::string& name,
                        std::string& (*place)(DiagnosticReportContentProperties&)) {
  return {{name}, [place](std::string text) { return listWith(std::move(text), place); }};
}

INSTANTIATE_TEST_SUITE_P(
    All, ContentsLength,
    testing::Values(placeIn("Name", [](auto& one) -> std::string& { return one.stable_id; }),
                    placeIn("MediaType", [](auto& one) -> std::string& { return one.media_type; }),
                    placeIn("Value",
                            [](auto& one) -> std::string& { return one.variations[0].string; }),
                    placeIn("Path",
                            [](auto& one) -> std::string& {
                              one.property_type = Types::FILE;
                              return one.variations[0].relative_path;
                            }),
                    Place<Contents>{{"Tag"},
                                    [](std::string text) {
                                      Contents contents(1);
                                      contents[0].tags.insert(std::move(text));
                                      return contents;
                                    }}),
    CaseName());

}  // namespace
}  // namespace KELP::Diagnostic
