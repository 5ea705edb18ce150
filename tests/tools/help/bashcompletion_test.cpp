#include "tools/help/completiontest.h"
#include "tools/help/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
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
    words.insert(words.begin(), {"-C", repository_.root()});
    return offeredAnywhere(words);
  }

  /** The same without -C in front. */
  [[nodiscard]] static std::vector<std::string> offeredAnywhere(std::vector<std::string> words) {
    words.insert(words.begin(), "kelp-diagnostics");
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

TEST_F(BashCompletion, OffersTheValuesOfAttachedOptions) {
  EXPECT_THAT(offered({"list", "--stage=awaiting-c"}), ElementsAre("--stage=awaiting-consent"));
  EXPECT_THAT(offered({"export", kOne, "--output=/et"}), Contains("--output=/etc"));
  EXPECT_THAT(offered({"list", "--utc=a"}), IsEmpty());
}

TEST_F(BashCompletion, OffersTheValuesOfOptionsThatReadlineTookApart) {
  EXPECT_THAT(offered({"list", "--stage", "=", "awaiting-c"}), ElementsAre("awaiting-consent"));
  EXPECT_THAT(offered({"list", "--stage", "="}), IsSupersetOf({"creating", "uploaded"}));
}

TEST_F(BashCompletion, CountsArgumentsBehindAttachedValues) {
  EXPECT_THAT(offered({"cat", "--level=10", kOne, "p"}), ElementsAre("plain"));
  EXPECT_THAT(offered({"cat", "--level", "=", "10", kOne, "p"}), ElementsAre("plain"));
  EXPECT_THAT(offered({"mark", "--wait=5s", kOne, "cr"}), ElementsAre("creation"));
}

TEST_F(BashCompletion, TakesNamesTogetherThatReadlineTookApart) {
  addProperty("a:bc");
  EXPECT_THAT(offered({"cat", kOne, "a", ":", "b"}), ElementsAre("bc"));
  EXPECT_THAT(offered({"cat", kOne, "a", ":"}), ElementsAre("bc"));
  EXPECT_THAT(offered({"attach", kOne, "a", ":", "bc", "0", "/et"}), Contains("/etc"));
}

TEST_F(BashCompletion, OffersNoOptionsBehindTwoHyphens) {
  addProperty("--json-like");
  EXPECT_THAT(offered({"cat", kOne, "--", "--"}), ElementsAre("--json-like"));
  EXPECT_THAT(offered({"cat", "--", "--level", ""}), IsEmpty());
  EXPECT_THAT(offered({"filter", kOne, "log", "0", "--", "sh", "--"}), Not(Contains("--wait")));
}

TEST_F(BashCompletion, UnderstandsTheRootInEveryForm) {
  const std::filesystem::path link = directory_.path() / "with 'space' $HOME";
  std::filesystem::create_directory_symlink(repository_.root(), link);
  const std::string folder = directory_.path().native();
  for (const std::string& root :
       {"\"" + folder + "/with 'space' \\$HOME\"", "'" + folder + "/with '\\''space'\\'' $HOME'",
        folder + "/with\\ \\'space\\'\\ \\$HOME"}) {
    EXPECT_THAT(offeredAnywhere({"-C", root, "show", "2"}), ElementsAre(kTwo)) << root;
    EXPECT_THAT(offeredAnywhere({"-C" + root, "show", "2"}), ElementsAre(kTwo)) << root;
  }
  EXPECT_THAT(offeredAnywhere({"-C" + repository_.root().native(), "show", "2"}),
              ElementsAre(kTwo));
}

TEST_F(BashCompletion, ExecutesNothingThatIsTyped) {
  const std::filesystem::path trace = directory_.path() / "trace";
  EXPECT_THAT(offeredAnywhere({"-C", "$(touch " + trace.native() + ")", "show", ""}), IsEmpty());
  EXPECT_THAT(offered({"cat", "`touch " + trace.native() + "`", ""}), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(trace));
}

TEST_F(BashCompletion, OffersNamesWithBackslashesAndNewlines) {
  addProperty("x\\y");
  addProperty("x\nz");
  EXPECT_THAT(offered({"cat", kOne, "x"}), UnorderedElementsAre("x\\\\y", "$'x\\nz'"));
  EXPECT_THAT(offered({"cat", kOne, "x\\\\"}), ElementsAre("x\\\\y"));
  EXPECT_THAT(offered({"cat", kOne, "with\\ s"}), ElementsAre("with\\ space"));
}

}  // namespace
}  // namespace KELP::Test
