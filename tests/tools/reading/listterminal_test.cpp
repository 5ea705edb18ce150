// `list` on a terminal.

#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <string>

namespace KELP::Test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class ListOnTerminal : public ReadingTest {};

TEST_F(ListOnTerminal, HasColours) {
  make(kFirst);
  makeDamaged(kSecond);
  const std::string output = runOnTerminal({"list"}).output;
  EXPECT_THAT(output, StartsWith("\x1b[1mID\x1b[0m"));
  EXPECT_THAT(output, HasSubstr("\x1b[31mdamaged\x1b[0m"));
  EXPECT_THAT(terminalLines(output), SizeIs(3));
}

TEST_F(ListOnTerminal, HasNoColoursWhenTheUserSaysSo) {
  make(kFirst);
  makeDamaged(kSecond);
  const ToolResult result = runOnTerminal({"list"}, 200, withEnvironment({{"NO_COLOR", "1"}}));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
  EXPECT_THAT(result.output, HasSubstr("damaged"));
}

TEST_F(ListOnTerminal, HasColoursWhenNoColorIsEmpty) {
  make(kFirst);
  const ToolResult result = runOnTerminal({"list"}, 200, withEnvironment({{"NO_COLOR", ""}}));
  EXPECT_THAT(result.output, HasSubstr("\x1b[1m"));
}

TEST_F(ListOnTerminal, ShortensTheProcessToFit) {
  make(kFirst);
  open(kFirst)->setProcessName(std::string(300, 'p'));
  const auto lines = terminalLines(runOnTerminal({"list"}, 140).output);
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[1], HasSubstr("ppp…  "));
  // "…" is one column of three bytes.
  EXPECT_EQ(lines[1].size() - 2, 140U);
}

TEST_F(ListOnTerminal, ShortensNothingElse) {
  make(kFirst);
  open(kFirst)->setProcessName("a rather long process");
  const auto lines = terminalLines(runOnTerminal({"list", "--utc"}, 40).output);
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[1], StartsWith(std::string(kFirst) + "  2026-03-01T12:00:00Z  creating  "));
  EXPECT_THAT(lines[1], HasSubstr("a rathe…"));
}

TEST_F(ListOnTerminal, EscapesNames) {
  make(kFirst);
  open(kFirst)->setProcessName(kHostile);
  const std::string output = runOnTerminal({"list"}).output;
  EXPECT_THAT(output, HasSubstr(kHarmless));
  EXPECT_THAT(withoutStyles(output), Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace KELP::Test
