#include "tools/help/completiontest.h"
#include "tools/help/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

/** What bash offers for the last of some words. */
class BashCompletion : public CompletionTest {
 protected:
  [[nodiscard]] std::vector<std::string> offered(std::vector<std::string> words) const {
    words.insert(words.begin(), {"kelp-diagnostics", "-C", repository_.root()});
    std::vector<std::string> command{
        "bash", "-c",
        // Outside of an interactive shell there is nothing for compopt to change.
        "compopt() { :; }; source \"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
        "_kelp_diagnostics; for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done",
        std::string(KELP_TOOL_SOURCE) + "/completion/kelp-diagnostics.bash"};
    command.insert(command.end(), words.begin(), words.end());
    return linesOfShell(command);
  }
};

TEST_F(BashCompletion, OffersVerbs) {
  EXPECT_THAT(offered({""}), IsSupersetOf({"list", "show", "property", "apply-policy"}));
  EXPECT_THAT(offered({"sh"}), ElementsAre("show"));
  EXPECT_THAT(offered({"property", ""}), UnorderedElementsAre("add", "list", "remove", "tag"));
}

TEST_F(BashCompletion, OffersOptions) {
  EXPECT_THAT(offered({"list", "--s"}), UnorderedElementsAre("--stage", "--since"));
  EXPECT_THAT(offered({"list", "--stage", "awaiting-"}),
              UnorderedElementsAre("awaiting-consent", "awaiting-policy", "awaiting-upload"));
  EXPECT_THAT(offered({"property", "add", "--m"}), ElementsAre("--media-type"));
}

TEST_F(BashCompletion, OffersTheIdentifiersThatAreThere) {
  EXPECT_THAT(offered({"show", ""}), UnorderedElementsAre(kOne, kTwo));
  EXPECT_THAT(offered({"show", "2"}), ElementsAre(kTwo));
  EXPECT_THAT(offered({"remove", "-y", kOne, "2"}), ElementsAre(kTwo));
  EXPECT_THAT(offered({"show", kOne, ""}), IsEmpty());
}

TEST_F(BashCompletion, OffersTheNamesOfTheProperties) {
  EXPECT_THAT(offered({"cat", kOne, ""}), UnorderedElementsAre("plain", "with\\ space"));
  EXPECT_THAT(offered({"cat", "--level", "3", "1", "p"}), ElementsAre("plain"));
  EXPECT_THAT(offered({"property", "remove", kOne, "w"}), ElementsAre("with\\ space"));
  EXPECT_THAT(offered({"cat", kTwo, ""}), IsEmpty());
}

TEST_F(BashCompletion, OffersWhatAnArgumentMayBe) {
  EXPECT_THAT(offered({"mark", kOne, "c"}), ElementsAre("creation"));
  EXPECT_THAT(offered({"property", "add", kOne, "name", "bo"}), ElementsAre("boolean"));
  EXPECT_THAT(offered({"attach", kOne, "name", "0", "/et"}), Contains("/etc"));
  EXPECT_THAT(offered({"filter", kOne, "name", "0", "--", "gre"}), Contains("grep"));
}

}  // namespace
}  // namespace KELP::Test
