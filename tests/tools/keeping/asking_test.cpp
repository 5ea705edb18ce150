// Where `remove` asks when its standard streams are not all the same terminal.

#include "damage.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kOne = idOf(0x11111111);

class Asking : public KeepingTest {
 protected:
  Asking() { makeReport(repository_, kOne); }

  /** `remove` on a terminal with the standard error in a file, and @p typed after the question. */
  [[nodiscard]] ToolResult removeWithErrorsApart(const std::string& typed, bool detached = false) {
    ToolSetting setting;
    setting.errors = errors();
    setting.input = typed;
    setting.detached = detached;
    if (!typed.empty()) {
      setting.awaited = "[y/N] ";
    }
    return runToolOnTerminal(repository_.arguments({"remove", "1111"}), setting);
  }

  [[nodiscard]] std::filesystem::path errors() const { return directory_.path() / "errors"; }

  TemporaryDirectory directory_;
};

TEST_F(Asking, IsDoneOnTheTerminalWhenTheErrorsGoElsewhere) {
  const ToolResult result = removeWithErrorsApart("n\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr(kOne));
  EXPECT_THAT(result.output, HasSubstr("Remove 1 report? [y/N] "));
  EXPECT_EQ(readFile(errors()), "kelp-diagnostics: nothing was removed\n");
  EXPECT_THAT(names(), ElementsAre(kOne));
}

TEST_F(Asking, TakesTheAnswerFromThere) {
  const ToolResult result = removeWithErrorsApart("y\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("removed " + kOne));
  EXPECT_EQ(readFile(errors()), "");
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Asking, RemovesNothingWhenThereIsNowhereToAsk) {
  const ToolResult result = removeWithErrorsApart("", true);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(readFile(errors()), "kelp-diagnostics: there is no terminal to ask on: -y is needed\n");
  EXPECT_THAT(names(), ElementsAre(kOne));
}

TEST_F(Asking, IsLeftOutWithYWhereThereIsNowhereToAsk) {
  ToolSetting setting;
  setting.errors = errors();
  setting.detached = true;
  EXPECT_EQ(runToolOnTerminal(repository_.arguments({"remove", "-y", "1111"}), setting).status, 0);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Asking, EndsTheLineWhenTheInputEnds) {
  const ToolResult end = runOnTerminal({"remove", "1111"}, "\x04");
  EXPECT_THAT(end.output, HasSubstr("[y/N] \r\nkelp-diagnostics: nothing was removed\r\n"));
  ToolSetting typed;
  typed.input = "n\n";
  typed.awaited = "[y/N] ";
  const ToolResult no = runToolOnTerminal(repository_.arguments({"remove", "1111"}), typed);
  EXPECT_THAT(no.output, HasSubstr("[y/N] n\r\nkelp-diagnostics: nothing was removed\r\n"));
  EXPECT_THAT(no.output, Not(HasSubstr("\r\n\r\n")));
}

}  // namespace
}  // namespace KELP::Test
