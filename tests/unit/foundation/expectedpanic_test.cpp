#include "unit/foundation/namedcase.h"
#include "unit/foundation/tracked.h"

#include <diagnostic/diagnosticerror.h>
#include <os/expected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace KELP::OS {
namespace {

using Diagnostic::DiagnosticError;
using Test::CaseName;
using Test::Ledger;
using Test::NamedCase;

/** All that the process writes before it aborts: no condition, the library's tag and the check. */
constexpr const char* kValuePanic = "diagnosticdata: requireValue:1066 PANIC\n";
constexpr const char* kErrorPanic = "diagnosticdata: requireError:1072 PANIC\n";

template <typename Access, typename Result>
void expectPanic(Access access, Result& result, const char* panic) {
  EXPECT_EXIT(access(result), testing::KilledBySignal(SIGABRT), testing::StrEq(panic));
}

using Text = expected<std::string, DiagnosticError>;
using Moody = expected<Test::Tracked<'v'>, Test::Tracked<'e'>>;

/** One way to ask a result for its content, of both types of result that the tests have. */
struct Accessor : NamedCase {
  void (*ofText)(Text&);
  void (*ofMoody)(Moody&);
};

template <typename Access>
Accessor accessor(const char* name, Access access) {
  return {{name}, access, access};
}

const auto kValueAccessors = testing::Values(
    accessor("Value", [](auto& result) { static_cast<void>(result.value()); }),
    accessor("ValueOfConstant",
             [](auto& result) { static_cast<void>(std::as_const(result).value()); }),
    accessor("ValueOfRvalue", [](auto& result) { static_cast<void>(std::move(result).value()); }),
    accessor("Star", [](auto& result) { static_cast<void>(*result); }),
    accessor("StarOfConstant", [](auto& result) { static_cast<void>(*std::as_const(result)); }),
    accessor("StarOfRvalue", [](auto& result) { static_cast<void>(*std::move(result)); }),
    accessor("Arrow", [](auto& result) { static_cast<void>(result.operator->()); }),
    accessor("ArrowOfConstant",
             [](auto& result) { static_cast<void>(std::as_const(result).operator->()); }));

const auto kErrorAccessors = testing::Values(
    accessor("Error", [](auto& result) { static_cast<void>(result.error()); }),
    accessor("ErrorOfConstant",
             [](auto& result) { static_cast<void>(std::as_const(result).error()); }),
    accessor("ErrorOfRvalue", [](auto& result) { static_cast<void>(std::move(result).error()); }));

/** A result that is empty, since the move of its new content threw. */
class EmptyResult {
 public:
  EmptyResult() {
    Moody source(Test::Tracked<'v'>("new"));
    ledger_.failNextMove();
    EXPECT_THROW(result = std::move(source), std::runtime_error);
  }

 private:
  Ledger ledger_;

 public:
  Moody result{Test::Tracked<'v'>("old")};
};

class ExpectedValueDeathTest : public testing::TestWithParam<Accessor> {};

TEST_P(ExpectedValueDeathTest, EndsTheProcessOnAnError) {
  Text result(DiagnosticError({}, "refused"));
  expectPanic(GetParam().ofText, result, kValuePanic);
}

TEST_P(ExpectedValueDeathTest, EndsTheProcessOnAnEmptyResult) {
  EmptyResult empty;
  expectPanic(GetParam().ofMoody, empty.result, kValuePanic);
}

INSTANTIATE_TEST_SUITE_P(Accessors, ExpectedValueDeathTest, kValueAccessors, CaseName());

class ExpectedErrorDeathTest : public testing::TestWithParam<Accessor> {};

TEST_P(ExpectedErrorDeathTest, EndsTheProcessOnAValue) {
  Text result(std::string("done"));
  expectPanic(GetParam().ofText, result, kErrorPanic);
}

TEST_P(ExpectedErrorDeathTest, EndsTheProcessOnAnEmptyResult) {
  EmptyResult empty;
  expectPanic(GetParam().ofMoody, empty.result, kErrorPanic);
}

INSTANTIATE_TEST_SUITE_P(Accessors, ExpectedErrorDeathTest, kErrorAccessors, CaseName());

TEST(ExpectedPanicDeathTest, NamesTheCheckAndTheLineThatItIsGiven) {
  EXPECT_EXIT(expected_detail::panic("anyCheck", 42), testing::KilledBySignal(SIGABRT),
              testing::StrEq("diagnosticdata: anyCheck:42 PANIC\n"));
}

}  // namespace
}  // namespace KELP::OS
