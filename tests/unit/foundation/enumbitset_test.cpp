#include <os/enumbitset.h>
#include <os/keyvaluestore.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace KELP::OS {
namespace {

enum class Colour : int { Red = 0, Green = 1, Blue = 4 };
using Colours = EnumBitset<Colour, 5>;

/** An enumerator that has no bit in Colours. */
constexpr auto kBeyond = static_cast<Colour>(5);
constexpr auto kNegative = static_cast<Colour>(-1);

TEST(EnumBitsetTest, ADefaultConstructedSetIsEmpty) {
  const Colours none;
  EXPECT_EQ(none.value(), 0UL);
  EXPECT_FALSE(none.test(Colour::Red));
  EXPECT_FALSE(none.test(Colour::Green));
  EXPECT_FALSE(none.test(Colour::Blue));
}

TEST(EnumBitsetTest, TheNumberOfAnEnumeratorIsTheNumberOfItsBit) {
  EXPECT_EQ(Colours({Colour::Red}).value(), 1UL);
  EXPECT_EQ(Colours({Colour::Green}).value(), 2UL);
  EXPECT_EQ(Colours({Colour::Blue}).value(), 16UL);
  EXPECT_EQ(Colours({Colour::Blue, Colour::Red}).value(), 17UL);
  EXPECT_EQ(Colours({Colour::Blue, Colour::Blue}).value(), 16UL);
}

TEST(EnumBitsetTest, ASetIsMadeFromItsNumber) {
  const Colours set = Colours::fromValue(18);
  EXPECT_FALSE(set.test(Colour::Red));
  EXPECT_TRUE(set.test(Colour::Green));
  EXPECT_TRUE(set.test(Colour::Blue));
  EXPECT_EQ(set.value(), 18UL);
}

TEST(EnumBitsetTest, BitsOfANumberThatTheSetDoesNotHaveAreDropped) {
  EXPECT_EQ(Colours::fromValue(32).value(), 0UL);
  EXPECT_EQ(Colours::fromValue(~0UL).value(), 31UL);
}

TEST(EnumBitsetTest, MembersArePutInAndTakenOut) {
  Colours set;
  EXPECT_EQ(&set.set(Colour::Green), &set);
  EXPECT_TRUE(set.test(Colour::Green));
  set.set(Colour::Blue, true).set(Colour::Green, false);
  EXPECT_FALSE(set.test(Colour::Green));
  EXPECT_TRUE(set.test(Colour::Blue));
  EXPECT_EQ(set.value(), 16UL);
}

TEST(EnumBitsetTest, SetsAreComparedByTheirMembers) {
  EXPECT_TRUE(Colours({Colour::Red, Colour::Blue}) == Colours::fromValue(17));
  EXPECT_FALSE(Colours({Colour::Red, Colour::Blue}) != Colours::fromValue(17));
  EXPECT_TRUE(Colours({Colour::Red}) != Colours());
  EXPECT_FALSE(Colours({Colour::Red}) == Colours());
}

TEST(EnumBitsetTest, AnEnumeratorWithoutABitIsRefused) {
  Colours set({Colour::Green});
  EXPECT_THROW(set.set(kBeyond), std::out_of_range);
  EXPECT_THROW(set.set(kNegative), std::out_of_range);
  EXPECT_THROW(static_cast<void>(set.test(kBeyond)), std::out_of_range);
  EXPECT_THROW(static_cast<void>(set.test(kNegative)), std::out_of_range);
  EXPECT_THROW(Colours({Colour::Red, kBeyond}), std::out_of_range);
  EXPECT_EQ(set.value(), 2UL);
}

TEST(EnumBitsetTest, TheOpenOptionsOfAStoreHaveTheirFixedBits) {
  using enum KVStoreOpenOption;
  EXPECT_EQ(KeyValueStore::Options({ReadOnly}).value(), 1UL);
  EXPECT_EQ(KeyValueStore::Options({SyncEachWrite}).value(), 2UL);
  EXPECT_EQ(KeyValueStore::Options({CreateIfMissing, Shared, SyncOnClose}).value(), 28UL);
}

}  // namespace
}  // namespace KELP::OS
