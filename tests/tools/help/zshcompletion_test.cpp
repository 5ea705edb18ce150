#include "tools/help/completiontest.h"
#include "tools/help/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::ElementsAre;

/** What zsh, on a pseudo-terminal, makes of a line when the tabulator key is pressed. */
class ZshCompletion : public CompletionTest {
 protected:
  [[nodiscard]] std::vector<std::string> completed(const std::string& line) const {
    return completedAnywhere("-C " + repository_.root().native() + " " + line);
  }

  /** The same without -C in front. */
  [[nodiscard]] static std::vector<std::string> completedAnywhere(const std::string& line) {
    return linesOfShell(
        {"zsh", "-f", std::string(KELP_TOOL_SOURCE) + "/../tests/tools/help/complete.zsh",
         std::string(KELP_TOOL_SOURCE) + "/completion", "kelp-diagnostics " + line});
  }
};

TEST_F(ZshCompletion, CompletesVerbsAndOptions) {
  EXPECT_THAT(completed("apply"), ElementsAre("apply-policy"));
  // Zsh takes the sign off again when a space follows.
  EXPECT_THAT(completed("list --unt"), ElementsAre("--until="));
  EXPECT_THAT(completed("property re"), ElementsAre("remove"));
}

TEST_F(ZshCompletion, CompletesWhatIsInTheRepository) {
  EXPECT_THAT(completed("show 2"), ElementsAre(kTwo));
  EXPECT_THAT(completed(std::string("cat ") + kOne + " p"), ElementsAre("plain"));
  EXPECT_THAT(completed(std::string("property remove ") + kOne + " p"), ElementsAre("plain"));
  EXPECT_THAT(completed(std::string("mark ") + kOne + " cr"), ElementsAre("creation"));
}

TEST_F(ZshCompletion, CompletesAttachedValues) {
  EXPECT_THAT(completed("list --stage=awaiting-c"), ElementsAre("--stage=awaiting-consent"));
  EXPECT_THAT(completed("list --stage awaiting-c"), ElementsAre("awaiting-consent"));
  EXPECT_THAT(completed(std::string("cat --level=10 ") + kOne + " p"), ElementsAre("plain"));
}

TEST_F(ZshCompletion, TakesTheLastRootInEveryForm) {
  const std::filesystem::path link = directory_ / "a:b c";
  std::filesystem::create_directory_symlink(repository_.root(), link);
  const std::string root = "'" + link.native() + "'";
  const std::string folder = directory_.path().native();
  for (const std::string& options : {"-C " + root, "-C" + folder + "/a:b\\ c", "-C /x:y -C " + root,
                                     "-C " + folder + "/a\\:b\\ c", "-C " + folder + "/a:b\\ c"}) {
    EXPECT_THAT(completedAnywhere(options + " show 2"), ElementsAre(kTwo)) << options;
  }
}

TEST_F(ZshCompletion, CompletesNamesWithBackslashes) {
  addProperty("x\\y");
  EXPECT_THAT(completed(std::string("cat ") + kOne + " x"), ElementsAre("x\\\\y"));
}

}  // namespace
}  // namespace KELP::Test
