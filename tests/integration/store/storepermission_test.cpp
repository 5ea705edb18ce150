// Files and directories that belong to somebody else.

#include "integration/store/actor.h"

#include <unistd.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr auto kAll = fs::perms::all;
constexpr auto kAllRead = fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read;
constexpr auto kAllWrite =
    fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
constexpr auto kAllSearch = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;

/** The actor is a user without rights of its own; the store's owner is the one who runs the test.
 */
class StorePermission : public StoreTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can go on as another user";
    fs::permissions(directory().path(), kAll);
    ASSERT_EQ(actor_.ask("user 65534"), "true");
    ASSERT_TRUE(open().set("report_id", patternValue(1, 10)));
  }

  Actor& actor() { return actor_; }

  /** Fails unless every change of the actor is refused at once. */
  void expectChangesRefused() {
    const std::string before = readFile(file());
    EXPECT_FALSE(actor().set("report_id", 2, 10));
    EXPECT_FALSE(actor().remove("report_id"));
    EXPECT_EQ(readFile(file()), before);
  }

 private:
  Actor actor_;
};

TEST_F(StorePermission, WithoutReadPermissionIsNotReady) {
  for (const fs::perms mode : {fs::perms::none, kAllWrite, fs::perms::owner_all}) {
    fs::permissions(file(), mode);
    for (const unsigned long options : {kReportOptions, 9UL, 4UL}) {
      EXPECT_FALSE(actor().open(file(), options)) << options;
      EXPECT_EQ(actor().get("report_id"), "none");
      EXPECT_EQ(actor().ask("sync"), "false");
      expectChangesRefused();
    }
    EXPECT_EQ(fs::status(file()).permissions(), mode);
  }
}

TEST_F(StorePermission, WithReadPermissionOnlyIsReadAndNotChanged) {
  fs::permissions(file(), kAllRead);
  EXPECT_TRUE(actor().open(file()));
  EXPECT_EQ(actor().get("report_id"), describePattern(1, 10));
  expectChangesRefused();
  EXPECT_EQ(actor().ask("isReady"), "true");
  ASSERT_TRUE(open().set("report_id", patternValue(3, 10)));
  EXPECT_EQ(actor().get("report_id"), describePattern(3, 10));
}

TEST_F(StorePermission, ThatIsTakenAwayRefusesTheNextChange) {
  fs::permissions(file(), kAllRead | kAllWrite);
  ASSERT_TRUE(actor().open(file()));
  ASSERT_TRUE(actor().set("report_id", 2, 10));
  fs::permissions(file(), kAllRead);
  expectChangesRefused();
  EXPECT_EQ(actor().get("report_id"), describePattern(2, 10));
}

TEST_F(StorePermission, ADirectoryThatCannotBeSearchedMakesItNotReady) {
  fs::permissions(file(), kAllRead | kAllWrite);
  fs::permissions(directory().path(), fs::perms::owner_all);
  EXPECT_FALSE(actor().open(file()));
  EXPECT_EQ(actor().get("report_id"), "none");
  expectChangesRefused();
}

TEST_F(StorePermission, ADirectoryThatCannotBeWrittenHoldsNoNewStore) {
  fs::permissions(directory().path(), kAllRead | kAllSearch);
  EXPECT_FALSE(actor().open(directory() / "new.db"));
  EXPECT_FALSE(actor().set("key", 1, 10));
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

// Its name in there is the affair of who made it.
TEST_F(StorePermission, ADirectoryThatCannotBeReadStillLetsChangesBeSynced) {
  fs::permissions(file(), kAllRead | kAllWrite);
  fs::permissions(directory().path(), fs::perms::owner_all | kAllSearch);
  ASSERT_TRUE(actor().open(file(), 14));
  EXPECT_TRUE(actor().set("report_id", 2, 10));
  EXPECT_EQ(actor().ask("sync"), "true");
  EXPECT_EQ(open().get("report_id"), patternValue(2, 10));
}

TEST_F(StorePermission, ADirectoryThatCannotBeWrittenStillLetsAStoreBeChanged) {
  fs::permissions(file(), kAllRead | kAllWrite);
  fs::permissions(directory().path(), kAllRead | kAllSearch);
  ASSERT_TRUE(actor().open(file()));
  StoreMap expected = decodeStore(readFile(file()));
  for (std::uint64_t i = 1; i <= 100; ++i) {
    if (actor().set("changing", i, 3000)) {
      expected["changing"] = patternValue(i, 3000);
    }
    ASSERT_EQ(decodeStore(readFile(file())), expected) << "change " << i;
    ASSERT_EQ(actor().get("changing"), describeValue(expected["changing"]));
  }
  EXPECT_TRUE(expected["changing"].size() == 3000) << "no change at all was made";
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

}  // namespace
}  // namespace KELP::Test
