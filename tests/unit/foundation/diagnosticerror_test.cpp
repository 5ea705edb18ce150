#include <diagnostic/diagnosticerror.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace KELP::Diagnostic {
namespace {

static_assert(std::is_copy_constructible_v<DiagnosticError>);
static_assert(std::is_copy_assignable_v<DiagnosticError>);
static_assert(std::is_nothrow_move_constructible_v<DiagnosticError>);
static_assert(std::is_nothrow_move_assignable_v<DiagnosticError>);
static_assert(!std::is_polymorphic_v<DiagnosticError>);
static_assert(std::is_constructible_v<DiagnosticError, std::error_code, std::string>);
static_assert(!std::is_constructible_v<DiagnosticError, std::string, std::error_code>);

const std::error_code kNotFound(ENOENT, std::system_category());

TEST(DiagnosticErrorTest, HoldsTheCodeFirstAndThenTheMessageItWasMadeFrom) {
  const auto [code, message] = DiagnosticError(kNotFound, "Failed to open lock file");
  static_assert(std::is_same_v<decltype(code), const std::error_code>);
  static_assert(std::is_same_v<decltype(message), const std::string>);
  EXPECT_EQ(code, kNotFound);
  EXPECT_EQ(code.category(), std::system_category());
  EXPECT_EQ(message, "Failed to open lock file");
}

TEST(DiagnosticErrorTest, KeepsTheCategoryOfTheCode) {
  const std::error_code foreign = std::make_error_code(std::io_errc::stream);
  const DiagnosticError error(foreign, "");
  EXPECT_EQ(error.code, foreign);
  EXPECT_EQ(error.code.category(), std::iostream_category());
  EXPECT_EQ(error.message, "");
}

TEST(DiagnosticErrorTest, ACopyLeavesTheOriginalAsItIs) {
  const DiagnosticError original(kNotFound, "some fixed sentence");
  const DiagnosticError copy(original);
  DiagnosticError assigned({}, "");
  assigned = original;
  for (const DiagnosticError* error : {&original, &copy, &std::as_const(assigned)}) {
    EXPECT_EQ(error->code, kNotFound);
    EXPECT_EQ(error->message, "some fixed sentence");
  }
}

TEST(DiagnosticErrorTest, AMoveTakesTheMessageAlong) {
  DiagnosticError original(kNotFound, "some fixed sentence that is too long for the short form");
  const DiagnosticError moved(std::move(original));
  EXPECT_EQ(moved.code, kNotFound);
  EXPECT_EQ(moved.message, "some fixed sentence that is too long for the short form");
  EXPECT_EQ(original.message, "");  // NOLINT(bugprone-use-after-move)
}

}  // namespace
}  // namespace KELP::Diagnostic
