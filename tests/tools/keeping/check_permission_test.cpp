// `check` by users who may not look at everything, or may not change it.

#include "damage.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr uid_t kNobody = 65534;

class CheckPermission : public KeepingTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can become another user";
    }
    makeReport(repository_, idOf(1));
    fs::permissions(repository_.root().parent_path(), fs::perms(0755));
    if (runAsNobody({"check", "--help"}).status != 0) {
      GTEST_SKIP() << "other users cannot run " << toolPath();
    }
  }

  [[nodiscard]] fs::path report() const { return repository_.root() / idOf(1); }

  /** Runs for the user @p real with the rights of @p effective. */
  [[nodiscard]] ToolResult runAs(uid_t real, uid_t effective,
                                 const std::vector<std::string>& arguments) const {
    ToolResult result;
    // Users are a matter of the thread, when the system is asked directly.
    std::thread([&] {
      if (::syscall(SYS_setresgid, real, effective, effective) == 0 &&
          ::syscall(SYS_setresuid, real, effective, effective) == 0) {
        result = run(arguments);
      }
    }).join();
    return result;
  }

  [[nodiscard]] ToolResult runAsNobody(const std::vector<std::string>& arguments) const {
    return runAs(kNobody, kNobody, arguments);
  }

  /** Gives the report, and all in it, to the user. */
  void giveAway() const {
    ASSERT_EQ(::chown(report().c_str(), kNobody, kNobody), 0);
    for (const auto& entry : fs::recursive_directory_iterator(report())) {
      ASSERT_EQ(::lchown(entry.path().c_str(), kNobody, kNobody), 0);
    }
  }
};

class CheckUnreadable : public CheckPermission, public testing::WithParamInterface<const char*> {};

TEST_P(CheckUnreadable, IsNotCheckedAndNoDamage) {
  const fs::path path = report() / GetParam();
  for (const fs::perms mode : {fs::perms(0000), fs::perms(0600), fs::perms(0700)}) {
    fs::permissions(path, mode);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"check"}, {"check", "--repair"}, {"check", idOf(1)}}) {
      const ToolResult result = runAsNobody(arguments);
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.output, "");
      EXPECT_EQ(result.errors,
                "kelp-diagnostics: " + idOf(1) + ": Permission denied, not checked\n");
    }
  }
  const Json::Value document = runAsNobody({"check", "--json"}).json();
  EXPECT_EQ(document["findings"], Json::Value(Json::arrayValue));
  ASSERT_EQ(document["unchecked"].size(), 1U);
  EXPECT_EQ(document["unchecked"][0]["reason"], "Permission denied");
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(CheckUnreadable, DoesNotHideTheDamageOfOthers) {
  fs::permissions(report() / GetParam(), fs::perms(0700));
  fs::create_directory(repository_.root() / idOf(2));
  const ToolResult result = runAsNobody({"check"});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.output, HasSubstr(idOf(2) + "  half-made  the directory is empty\n"));
  EXPECT_THAT(result.errors, HasSubstr(idOf(1) + ": Permission denied, not checked\n"));
}

INSTANTIATE_TEST_SUITE_P(Parts, CheckUnreadable,
                         testing::Values("", "metadata.db", "contentfiles", "contentfiles/log",
                                         "contentfiles/log/0", "tmp"),
                         [](const auto& test) { return "Part" + std::to_string(test.index); });
INSTANTIATE_TEST_SUITE_P(Empty, CheckUnreadable, testing::Values("contentfiles/log/1"),
                         [](const auto& /*test*/) { return "Directory"; });

TEST_F(CheckPermission, ADirectoryThatMayOnlyBePassedIsNotCheckedEither) {
  fs::permissions(report() / "contentfiles" / "log", fs::perms(0711));
  EXPECT_EQ(runAsNobody({"check"}).status, 1);
}

TEST_F(CheckPermission, TheEffectiveUserCounts) {
  fs::permissions(report(), fs::perms(0700));
  const ToolResult result = runAs(kNobody, 0, {"check"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(runAs(0, kNobody, {"check"}).status, 1);
}

TEST_F(CheckPermission, ARootThatMayNotBeReadFails) {
  fs::permissions(repository_.root(), fs::perms(0700));
  const ToolResult result = runAsNobody({"check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("Permission denied"));
}

TEST_F(CheckPermission, RepairSaysWhatMayNotBeOpened) {
  writeOldFile(report() / "tmp" / "left");
  fs::create_directory(repository_.root() / idOf(2));
  const auto before = repository_.snapshot();
  const ToolResult result = runAsNobody({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  ASSERT_EQ(result.lines().size(), 3U);
  EXPECT_THAT(result.lines()[1], HasSubstr("\"tmp/left\" is left over; left: "));
  EXPECT_THAT(result.lines()[1], Not(::testing::EndsWith("left: ")));
  EXPECT_THAT(result.lines()[2], ::testing::EndsWith("the directory is empty; left: Permission "
                                                     "denied"));
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_F(CheckPermission, RepairSaysWhatMayNotBeRemoved) {
  fs::create_directory(report() / "tmp" / "directory");
  writeOldFile(report() / "tmp" / "directory" / "left");
  giveAway();
  ASSERT_EQ(::chown((report() / "tmp" / "directory").c_str(), 0, 0), 0);
  makeOld(report() / "tmp" / "directory");
  const ToolResult result = runAsNobody({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  ASSERT_EQ(result.lines().size(), 2U);
  EXPECT_THAT(result.lines()[1],
              ::testing::EndsWith("\"tmp/directory\" is left over; left: Permission denied"));
  EXPECT_TRUE(fs::exists(report() / "tmp" / "directory" / "left"));
}

}  // namespace
}  // namespace KELP::Test
