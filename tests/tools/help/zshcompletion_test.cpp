#include "tools/help/completiontest.h"
#include "tools/help/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

/** What zsh, on a pseudo-terminal, makes of a line when the tabulator key is pressed. */
class ZshCompletion : public CompletionTest {
 protected:
  [[nodiscard]] std::vector<std::string> completed(const std::string& line) const {
    return linesOfShell({"zsh", "-f",
                         std::string(KELP_TOOL_SOURCE) + "/../tests/tools/help/complete.zsh",
                         std::string(KELP_TOOL_SOURCE) + "/completion",
                         "kelp-diagnostics -C " + repository_.root().native() + " " + line});
  }
};

TEST_F(ZshCompletion, CompletesVerbsAndOptions) {
  EXPECT_THAT(completed("apply"), ElementsAre("apply-policy"));
  EXPECT_THAT(completed("list --unt"), ElementsAre("--until"));
  EXPECT_THAT(completed("property re"), ElementsAre("remove"));
}

TEST_F(ZshCompletion, CompletesWhatIsInTheRepository) {
  EXPECT_THAT(completed("show 2"), ElementsAre(kTwo));
  EXPECT_THAT(completed(std::string("cat ") + kOne + " p"), ElementsAre("plain"));
  EXPECT_THAT(completed(std::string("property remove ") + kOne + " p"), ElementsAre("plain"));
  EXPECT_THAT(completed(std::string("mark ") + kOne + " cr"), ElementsAre("creation"));
}

}  // namespace
}  // namespace KELP::Test
