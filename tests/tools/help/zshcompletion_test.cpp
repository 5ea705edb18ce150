#include "support/temporarydirectory.h"
#include "tools/help/shell.h"
#include "tools/support/repository.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

constexpr const char* kOne = "10000000-0000-4000-8000-000000000001";
constexpr const char* kTwo = "20000000-0000-4000-8000-000000000002";

/** What zsh, on a pseudo-terminal, makes of a line when the tabulator key is pressed. */
class ZshCompletion : public testing::Test {
 protected:
  ZshCompletion() {
    const auto one = repository_.create(kOne);
    static_cast<void>(one->createReportStringProperty("plain", {}));
    static_cast<void>(repository_.create(kTwo));
  }

  [[nodiscard]] std::vector<std::string> completed(const std::string& line) const {
    return linesOfShell({"zsh", "-f",
                         std::string(KELP_TOOL_SOURCE) + "/../tests/tools/help/complete.zsh",
                         std::string(KELP_TOOL_SOURCE) + "/completion",
                         "kelp-diagnostics -C " + repository_.root().native() + " " + line});
  }

  Repository repository_;
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
