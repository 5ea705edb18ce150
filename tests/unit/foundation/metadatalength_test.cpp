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
using Test::property;
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

INSTANTIATE_TEST_SUITE_P(
    All, ContentsLength,
    testing::Values(
        Place<Contents>{
            {"Name"},
            [](std::string text) { return Contents{property(std::move(text), Types::STRING)}; }},
        Place<Contents>{{"MediaType"},
                        [](std::string text) {
                          return Contents{property("p", Types::FILE, {}, {}, std::move(text))};
                        }},
        Place<Contents>{
            {"Tag"},
            [](std::string text) { return Contents{property("p", Types::FILE, {}, {text})}; }},
        Place<Contents>{{"Path"},
                        [](std::string text) {
                          return Contents{property("p", Types::FILE,
                                                   {Test::fileVariation(std::move(text), 1)})};
                        }},
        Place<Contents>{{"Value"},
                        [](std::string text) {
                          return Contents{property("p", Types::STRING,
                                                   {Test::stringVariation(std::move(text), 1)})};
                        }}),
    CaseName());

}  // namespace
}  // namespace KELP::Diagnostic
