// Entries of the root that look like reports, or nearly.

#include "faults/hostile/forms.h"
#include "faults/hostile/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

const std::string kStranger = "11111111-2222-4333-8444-55555555abcd";

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char letter) { return std::toupper(letter); });
  return text;
}

class HostileRoot : public testing::Test {
 protected:
  /** A sound report under the given name. */
  void makeReport(const std::string& name, const std::string& id) const {
    const fs::path directory = scene_.root() / name;
    fs::create_directory(directory);
    writeFile(directory / "lock", "");
    writeFile(directory / "metadata.db", Scene::metadata(id, {}));
  }

  /** Expects what listing and counting find, and that the observer goes on. */
  void expectFinds(const std::string& list, int count) {
    const Entries before = scene_.untouchable();
    EXPECT_EQ(actor_.attempt("list").result, list);
    EXPECT_EQ(actor_.attempt("count").result, std::to_string(count));
    EXPECT_EQ(actor_.attempt("observe").result, "yes yes");
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
  }

  const Scene scene_;
  Actor actor_{scene_};
};

TEST_F(HostileRoot, NamesThatAreNearlyIdentifiersAreNoReports) {
  const std::string id = kStranger;
  const std::vector<std::string> names{
      id.substr(1),
      id + "0",
      id + "\n",
      " " + id,
      id + " ",
      "{" + id + "}",
      "{" + id.substr(2) + "}",
      id.substr(0, 35) + "\n",
      id.substr(0, 35) + "g",
      id.substr(0, 35) + "\xff",
      "\x01" + id.substr(1),
      id.substr(0, 8) + "_" + id.substr(9),
      "urn:uuid:" + id,
      std::string(32, '1'),
      std::string(36, '-'),
      "-rf",
      "*",
      "\x1b[31m",
      std::string(255, 'n'),
  };
  for (const std::string& name : names) {
    makeReport(name, kStranger);
  }
  makeReport("." + id.substr(1), kStranger);
  makeReport("...", kStranger);
  expectFinds("subject other ", 2 + static_cast<int>(names.size()));
}

TEST_F(HostileRoot, ATwinInUpperCaseNamesTheReportInLowerCase) {
  makeReport(upper(kSubjectId), kSubjectId);
  const Attempt attempt = actor_.attempt("list");
  EXPECT_EQ(std::ranges::count(attempt.result, 's'), 2) << "twice in " << attempt.result;
  EXPECT_EQ(actor_.attempt("count").result, "3");
  EXPECT_EQ(actor_.attempt("delete").result, "yes");
  EXPECT_TRUE(fs::exists(scene_.root() / upper(kSubjectId)));
  EXPECT_EQ(actor_.attempt("list").result, "other ");
}

TEST_F(HostileRoot, ADirectoryInUpperCaseAloneIsNoReport) {
  fs::rename(scene_.subject(), scene_.root() / upper(kSubjectId));
  const Attempt attempt = actor_.attempt("list");
  EXPECT_EQ(attempt.result, "other ");
  EXPECT_EQ(attempt.lines,
            std::vector<std::string>{"Lock file " + (scene_.subject() / "lock").string() +
                                     " does not exist for diagnostic report"});
}

TEST_F(HostileRoot, ThingsOfEveryKindUnderTheNamesOfReportsHinderNobody) {
  std::string digits = kStranger;
  int directories = 0;
  for (const Form& form : forms()) {
    ++digits.back();  // Also beyond the digits: not every name is an identifier.
    if (form.put(scene_.root() / digits, scene_.outside()).empty()) {
      directories += form.kind == Form::Kind::Directory ? 1 : 0;
    }
  }
  expectFinds("subject other ", 2 + directories);
}

TEST_F(HostileRoot, ALinkToASoundReportIsFollowedAndDeletionRemovesTheLinkAlone) {
  const fs::path elsewhere = scene_.root().parent_path() / "elsewhere";
  fs::rename(scene_.subject(), elsewhere);
  fs::create_symlink(elsewhere, scene_.subject());
  expectFinds("subject other ", 2);
  EXPECT_EQ(actor_.attempt("copy").result, "yes");
  EXPECT_TRUE(fs::exists(elsewhere / "contentfiles/log/3/a.txt"));
  const Entries before = entriesBelow(elsewhere);
  EXPECT_EQ(actor_.attempt("delete").result, "yes");
  EXPECT_FALSE(fs::exists(fs::symlink_status(scene_.subject())));
  EXPECT_EQ(difference(before, entriesBelow(elsewhere)), "");
}

TEST_F(HostileRoot, AHardLinkOfAStoredFileIsOverwrittenUnderBothNames) {
  const fs::path file = scene_.subject() / "contentfiles/log/2/a.txt";
  const fs::path elsewhere = scene_.root().parent_path() / "elsewhere";
  fs::create_hard_link(file, elsewhere);
  EXPECT_EQ(actor_.attempt("overwrite").result, "yes");
  EXPECT_EQ(readFile(elsewhere), "source");
  EXPECT_EQ(actor_.attempt("remove variation").result, "yes");
  EXPECT_EQ(readFile(elsewhere), "source");
}

TEST_F(HostileRoot, ThousandsOfEntriesHinderNobody) {
  for (int at = 0; at < 5000; ++at) {
    fs::create_directory(scene_.root() / ("entry " + std::to_string(at)));
    fs::create_symlink("nowhere", scene_.root() / ("link " + std::to_string(at)));
  }
  expectFinds("subject other ", 5002);
}

}  // namespace
}  // namespace KELP::Test
