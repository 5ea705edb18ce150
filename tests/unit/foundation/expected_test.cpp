#include <diagnostic/diagnosticerror.h>
#include <os/expected.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace KELP::OS {
namespace {

using Diagnostic::DiagnosticError;
using Text = expected<std::string, DiagnosticError>;

const std::error_code kBusy(EBUSY, std::system_category());

/** Short texts lie in the string object, long ones outside it; both must come through. */
constexpr const char* kShort = "short";
constexpr const char* kLong = "a sentence that is certainly too long for a string's short form";

DiagnosticError busy(const char* message = kLong) {
  return {kBusy, message};
}

static_assert(std::is_same_v<Text::value_type, std::string>);
static_assert(std::is_same_v<Text::error_type, DiagnosticError>);

// A result converts from what it may hold, and never silently to anything.
static_assert(std::is_convertible_v<std::string, Text>);
static_assert(std::is_convertible_v<const std::string&, Text>);
static_assert(std::is_convertible_v<DiagnosticError, Text>);
static_assert(std::is_convertible_v<const DiagnosticError&, Text>);
static_assert(!std::is_convertible_v<expected<bool, DiagnosticError>, bool>);
static_assert(std::is_constructible_v<bool, const Text&>);
static_assert(!std::is_default_constructible_v<Text>);

static_assert(std::is_nothrow_move_constructible_v<Text>);
static_assert(std::is_nothrow_move_assignable_v<Text>);

// Results may own what cannot be copied; then they can only be moved.
using Owner = expected<std::unique_ptr<int>, DiagnosticError>;
static_assert(std::is_move_constructible_v<Owner> && std::is_move_assignable_v<Owner>);

// Each accessor hands out what it is called on: an lvalue, a constant, or something to move from.
template <typename Result>
using ValueOf = decltype(std::declval<Result>().value());
template <typename Result>
using StarOf = decltype(*std::declval<Result>());
template <typename Result>
using ErrorOf = decltype(std::declval<Result>().error());
static_assert(std::is_same_v<ValueOf<Text&>, std::string&>);
static_assert(std::is_same_v<ValueOf<const Text&>, const std::string&>);
static_assert(std::is_same_v<ValueOf<Text&&>, std::string&&>);
static_assert(std::is_same_v<StarOf<Text&>, std::string&>);
static_assert(std::is_same_v<StarOf<const Text&>, const std::string&>);
static_assert(std::is_same_v<StarOf<Text&&>, std::string&&>);
static_assert(std::is_same_v<ErrorOf<Text&>, DiagnosticError&>);
static_assert(std::is_same_v<ErrorOf<const Text&>, const DiagnosticError&>);
static_assert(std::is_same_v<ErrorOf<Text&&>, DiagnosticError&&>);

void expectValue(const Text& result, const std::string& value) {
  ASSERT_TRUE(result.has_value());
  EXPECT_TRUE(static_cast<bool>(result));
  EXPECT_EQ(result.value(), value);
  EXPECT_EQ(*result, value);
  EXPECT_EQ(result->size(), value.size());
}

void expectError(const Text& result, const std::string& message) {
  ASSERT_FALSE(result.has_value());
  EXPECT_FALSE(static_cast<bool>(result));
  EXPECT_EQ(result.error().code, kBusy);
  EXPECT_EQ(result.error().message, message);
}

TEST(ExpectedTest, IsMadeFromAValue) {
  const std::string lvalue = kLong;
  expectValue(Text(lvalue), kLong);
  EXPECT_EQ(lvalue, kLong);
  expectValue(Text(std::string(kShort)), kShort);
  expectValue(Text(std::string()), "");
}

TEST(ExpectedTest, IsMadeFromAnError) {
  const DiagnosticError lvalue = busy();
  expectError(Text(lvalue), kLong);
  EXPECT_EQ(lvalue.message, kLong);
  expectError(Text(busy(kShort)), kShort);
}

TEST(ExpectedTest, TakesItsContentFromAnRvalue) {
  std::string value = kLong;
  const Text fromValue(std::move(value));
  EXPECT_EQ(value, "");  // NOLINT(bugprone-use-after-move)
  expectValue(fromValue, kLong);

  DiagnosticError error = busy();
  const Text fromError(std::move(error));
  EXPECT_EQ(error.message, "");  // NOLINT(bugprone-use-after-move)
  expectError(fromError, kLong);
}

TEST(ExpectedTest, IsReturnedFromValuesAndErrorsAlike) {
  const auto half = [](int number) -> expected<int, DiagnosticError> {
    if (number % 2 != 0) return busy(kShort);
    return number / 2;
  };
  EXPECT_EQ(half(8).value(), 4);
  EXPECT_EQ(half(7).error().message, kShort);
}

TEST(ExpectedTest, HoldsAValueWhateverTheValueIs) {
  const expected<bool, DiagnosticError> no(false);
  EXPECT_TRUE(no.has_value());
  EXPECT_TRUE(static_cast<bool>(no));
  EXPECT_FALSE(no.value());

  const expected<std::shared_ptr<int>, DiagnosticError> none{std::shared_ptr<int>()};
  EXPECT_TRUE(none.has_value());
  EXPECT_EQ(none.value(), nullptr);
}

TEST(ExpectedTest, HoldsAnErrorWhoseCodeIsZero) {
  const Text refused(DiagnosticError({0, std::system_category()}, kShort));
  EXPECT_FALSE(refused.has_value());
  EXPECT_EQ(refused.error().code, std::error_code(0, std::system_category()));
}

TEST(ExpectedTest, HoldsPathsAndNumbersAndOwners) {
  const expected<std::filesystem::path, DiagnosticError> path{std::filesystem::path("/a/b")};
  EXPECT_EQ(path->filename(), "b");
  const expected<int, DiagnosticError> number{-7};
  EXPECT_EQ(*number, -7);
  Owner owner{std::make_unique<int>(5)};
  Owner moved(std::move(owner));
  const std::unique_ptr<int> released = std::move(moved).value();
  ASSERT_NE(released, nullptr);
  EXPECT_EQ(*released, 5);
}

TEST(ExpectedTest, ContentIsChangedThroughItsAccessors) {
  Text value{std::string(kShort)};
  value.value() += "1";
  *value += "2";
  value->append("3");
  expectValue(value, "short123");

  Text error{busy(kShort)};
  error.error().message += "!";
  expectError(error, "short!");
}

TEST(ExpectedTest, AccessorsOfAnRvalueLetTheContentBeMovedOut) {
  Text value{std::string(kLong)};
  const std::string byValue = std::move(value).value();
  EXPECT_EQ(byValue, kLong);
  EXPECT_TRUE(value.has_value());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(value.value(), "");

  Text starred{std::string(kLong)};
  const std::string byStar = *std::move(starred);
  EXPECT_EQ(byStar, kLong);
  EXPECT_EQ(starred.value(), "");  // NOLINT(bugprone-use-after-move)
}

TEST(ExpectedTest, MovingAnErrorOutLeavesTheMessageOfTheSourceEmpty) {
  for (const char* message : {kShort, kLong}) {
    Text byAccessor{busy(message)};
    const DiagnosticError error = std::move(byAccessor).error();
    EXPECT_EQ(error.message, message);
    expectError(byAccessor, "");  // NOLINT(bugprone-use-after-move)

    Text byConstruction{busy(message)};
    const Text constructed(std::move(byConstruction));
    expectError(constructed, message);
    expectError(byConstruction, "");  // NOLINT(bugprone-use-after-move)

    Text byAssignment{busy(message)};
    Text assigned{std::string(kLong)};
    assigned = std::move(byAssignment);
    expectError(assigned, message);
    expectError(byAssignment, "");  // NOLINT(bugprone-use-after-move)
  }
}

TEST(ExpectedTest, ACopyLeavesTheSourceAsItIs) {
  const Text value{std::string(kLong)};
  const Text error{busy()};
  const Text valueCopy(value);
  const Text errorCopy(error);
  expectValue(valueCopy, kLong);
  expectValue(value, kLong);
  expectError(errorCopy, kLong);
  expectError(error, kLong);
}

TEST(ExpectedTest, AssignmentTakesValuesAndErrorsDirectly) {
  Text result{std::string(kLong)};
  EXPECT_EQ(&(result = busy(kShort)), &result);
  expectError(result, kShort);
  EXPECT_EQ(&(result = std::string(kShort)), &result);
  expectValue(result, kShort);
}

TEST(ExpectedTest, AssigningAResultToItselfChangesNothing) {
  Text value{std::string(kLong)};
  Text error{busy()};
  for (Text* result : {&value, &error}) {
    const Text& same = *result;
    *result = same;
    *result = std::move(*result);
  }
  expectValue(value, kLong);
  expectError(error, kLong);
}

TEST(ExpectedTest, AnErrorInPlaceOfAValueReleasesTheValue) {
  using Shared = expected<std::shared_ptr<int>, DiagnosticError>;
  auto owned = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = owned;
  Shared byMove(owned);
  Shared byCopy(owned);
  Shared byError(std::move(owned));
  EXPECT_EQ(watched.use_count(), 3);

  Shared failed(busy());
  byCopy = failed;
  EXPECT_EQ(watched.use_count(), 2);
  byMove = std::move(failed);
  EXPECT_EQ(watched.use_count(), 1);
  byError = busy(kShort);
  EXPECT_TRUE(watched.expired());

  EXPECT_EQ(byMove.error().code, kBusy);
  EXPECT_EQ(byMove.error().message, kLong);
  EXPECT_EQ(byCopy.error().message, kLong);
  EXPECT_EQ(byError.error().message, kShort);
}

TEST(ExpectedTest, APropagatedErrorKeepsCodeAndMessage) {
  const auto inner = []() -> expected<int, DiagnosticError> { return busy(); };
  const auto outer = [&]() -> Text {
    auto result = inner();
    if (!result) return std::move(result).error();
    return std::to_string(*result);
  };
  expectError(outer(), kLong);
}

}  // namespace
}  // namespace KELP::OS
