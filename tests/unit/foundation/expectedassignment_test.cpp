#include "unit/foundation/namedcase.h"
#include "unit/foundation/tracked.h"

#include <os/expected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace KELP::OS {
namespace {

using expected_detail::ExpectedStorage;
using expected_detail::State;
using expected_detail::StorageType;
using Test::CaseName;
using Test::Ledger;
using Test::NamedCase;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using Value = Test::Tracked<'v'>;
using Error = Test::Tracked<'e'>;
using Result = expected<Value, Error>;
using Storage = ExpectedStorage<Value, Error, StorageType::TaggedUnion>;

static_assert(static_cast<int>(StorageType::TaggedUnion) == 2);
static_assert(static_cast<int>(State::Empty) == 0);
static_assert(static_cast<int>(State::Value) == 1);
static_assert(static_cast<int>(State::Error) == 2);

/** A result, or its storage, in the state asked for. */
template <typename Holder = Result>
Holder make(State state, const std::string& name) {
  if (state == State::Value) return Holder(Value(name));
  return Holder(Error(name));
}

void expectHolds(const Result& result, State state, const std::string& name) {
  ASSERT_EQ(result.has_value(), state == State::Value);
  EXPECT_EQ(state == State::Value ? result.value().name() : result.error().name(), name);
}

struct StatePair : NamedCase {
  State target;
  State source;
};

class ExpectedAssignmentTest : public testing::TestWithParam<StatePair> {
 protected:
  Ledger ledger_;
  Result target_ = make(GetParam().target, "old");
  Result source_ = make(GetParam().source, "new");
};

TEST_P(ExpectedAssignmentTest, AMoveDestroysTheOldContentOnceBeforeItTakesTheNew) {
  static_cast<void>(ledger_.takeEvents());
  EXPECT_EQ(&(target_ = std::move(source_)), &target_);
  EXPECT_THAT(ledger_.takeEvents(), ElementsAre("destroy old", "move new"));
  expectHolds(target_, GetParam().source, "new");
  expectHolds(source_, GetParam().source, "");  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(ledger_.living(), 2U);
}

TEST_P(ExpectedAssignmentTest, ACopyDestroysTheOldContentOnceAndKeepsTheSource) {
  static_cast<void>(ledger_.takeEvents());
  EXPECT_EQ(&(target_ = std::as_const(source_)), &target_);
  const auto events = ledger_.takeEvents();
  EXPECT_THAT(events, Contains("destroy old").Times(1));
  EXPECT_THAT(events, Contains("copy new").Times(1));
  expectHolds(target_, GetParam().source, "new");
  expectHolds(source_, GetParam().source, "new");
  EXPECT_EQ(ledger_.living(), 2U);
}

TEST_P(ExpectedAssignmentTest, AMoveThatThrowsLeavesTheTargetEmptyAndTheSourceAsItWas) {
  static_cast<void>(ledger_.takeEvents());
  ledger_.failNextMove();
  EXPECT_THROW(target_ = std::move(source_), std::runtime_error);
  EXPECT_THAT(ledger_.takeEvents(), ElementsAre("destroy old"));
  EXPECT_FALSE(target_.has_value());
  expectHolds(source_, GetParam().source, "new");  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(ledger_.living(), 1U);
}

TEST_P(ExpectedAssignmentTest, AnEmptyTargetTakesNewContentWithoutDestroyingAnything) {
  ledger_.failNextMove();
  EXPECT_THROW(target_ = std::move(source_), std::runtime_error);
  static_cast<void>(ledger_.takeEvents());
  target_ = std::move(source_);  // NOLINT(bugprone-use-after-move)
  EXPECT_THAT(ledger_.takeEvents(), ElementsAre("move new"));
  expectHolds(target_, GetParam().source, "new");
}

TEST_P(ExpectedAssignmentTest, StorageTakesTheContentOfAnotherStorage) {
  auto target = make<Storage>(GetParam().target, "stored old");
  auto source = make<Storage>(GetParam().source, "stored new");
  static_cast<void>(ledger_.takeEvents());
  target.assign(std::move(source));
  EXPECT_THAT(ledger_.takeEvents(), ElementsAre("destroy stored old", "move stored new"));
  EXPECT_EQ(target.state(), GetParam().source);
  EXPECT_EQ(source.state(), GetParam().source);  // NOLINT(bugprone-use-after-move)
}

INSTANTIATE_TEST_SUITE_P(StatePairs, ExpectedAssignmentTest,
                         testing::Values(StatePair{{"ValueToValue"}, State::Value, State::Value},
                                         StatePair{{"ErrorToValue"}, State::Value, State::Error},
                                         StatePair{{"ValueToError"}, State::Error, State::Value},
                                         StatePair{{"ErrorToError"}, State::Error, State::Error}),
                         CaseName());

TEST(ExpectedStorageTest, TakesAnErrorInPlaceOfWhatItHolds) {
  for (const State held : {State::Value, State::Error}) {
    Ledger ledger;
    auto storage = make<Storage>(held, "old");
    Error error("new");
    static_cast<void>(ledger.takeEvents());
    storage.assignError(std::move(error));
    EXPECT_THAT(ledger.takeEvents(), ElementsAre("destroy old", "move new"));
    EXPECT_EQ(storage.state(), State::Error);
    EXPECT_EQ(storage.error().name(), "new");
  }
}

TEST(ExpectedStorageTest, IsEmptyAfterTheMoveOfAnErrorIntoItThrew) {
  Ledger ledger;
  auto storage = make<Storage>(State::Value, "old");
  Error error("new");
  static_cast<void>(ledger.takeEvents());
  ledger.failNextMove();
  EXPECT_THROW(storage.assignError(std::move(error)), std::runtime_error);
  EXPECT_THAT(ledger.takeEvents(), ElementsAre("destroy old"));
  EXPECT_EQ(storage.state(), State::Empty);
}

TEST(ExpectedStorageTest, CopiesAndMovesOfAnEmptyStorageAreEmpty) {
  Ledger ledger;
  auto empty = make<Storage>(State::Value, "old");
  auto source = make<Storage>(State::Value, "new");
  ledger.failNextMove();
  EXPECT_THROW(empty.assign(std::move(source)), std::runtime_error);
  ASSERT_EQ(empty.state(), State::Empty);

  const Storage copied(empty);
  EXPECT_EQ(copied.state(), State::Empty);
  Storage moved(std::move(empty));
  EXPECT_EQ(moved.state(), State::Empty);
  source = moved;
  EXPECT_EQ(source.state(), State::Empty);
  EXPECT_EQ(ledger.living(), 0U);
}

TEST(ExpectedStorageTest, AssigningAStorageToItselfTouchesNothing) {
  for (const State held : {State::Value, State::Error}) {
    Ledger ledger;
    auto storage = make<Storage>(held, "kept");
    static_cast<void>(ledger.takeEvents());
    const Storage& same = storage;
    storage = same;
    Storage& itself = storage;
    storage = std::move(itself);
    EXPECT_THAT(ledger.takeEvents(), IsEmpty());
    EXPECT_EQ(storage.state(), held);
  }
}

TEST(ExpectedLifeTest, ConstructionFromAnLvalueCopiesOnceAndFromAnRvalueMovesOnce) {
  Ledger ledger;
  Value value("value");
  Error error("error");
  const Result copiedValue(std::as_const(value));
  EXPECT_THAT(ledger.takeEvents(), ElementsAre("copy value"));
  const Result copiedError(std::as_const(error));
  EXPECT_THAT(ledger.takeEvents(), ElementsAre("copy error"));
  const Result movedValue(std::move(value));
  EXPECT_THAT(ledger.takeEvents(), ElementsAre("move value"));
  const Result movedError(std::move(error));
  EXPECT_THAT(ledger.takeEvents(), ElementsAre("move error"));
}

TEST(ExpectedLifeTest, AResultDestroysWhatItHoldsOnce) {
  for (const State held : {State::Value, State::Error}) {
    Ledger ledger;
    {
      const Result result = make(held, "content");
      static_cast<void>(ledger.takeEvents());
    }
    EXPECT_THAT(ledger.takeEvents(), ElementsAre("destroy content"));
  }
}

TEST(ExpectedLifeTest, ACopyOrMoveOfAResultIsOneCopyOrMoveOfItsContent) {
  for (const State held : {State::Value, State::Error}) {
    Ledger ledger;
    Result result = make(held, "content");
    static_cast<void>(ledger.takeEvents());
    const Result copied(std::as_const(result));
    EXPECT_THAT(ledger.takeEvents(), ElementsAre("copy content"));
    const Result moved(std::move(result));
    EXPECT_THAT(ledger.takeEvents(), ElementsAre("move content"));
    expectHolds(copied, held, "content");
    expectHolds(moved, held, "content");
    expectHolds(result, held, "");  // NOLINT(bugprone-use-after-move)
  }
}

}  // namespace
}  // namespace KELP::OS
