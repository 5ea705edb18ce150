// When a change is made durable, as its system calls show.

#include "integration/store/tracedactor.h"
#include "support/strace.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Calls = std::vector<std::string>;

bool isSync(const std::string& call) {
  return call.starts_with("fsync(") || call.starts_with("fdatasync(");
}

Calls syncsIn(const Calls& calls) {
  Calls syncs;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(syncs), isSync);
  return syncs;
}

class StoreSyncCalls : public StoreTest {
 protected:
  void SetUp() override {
    if (const std::string reason = whyNoStrace(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    traced_.emplace(
        "fsync,fdatasync,ftruncate,pwrite64,openat,open,creat,rename,renameat,renameat2");
  }

  Actor& actor() { return traced_->actor(); }
  TracedActor& traced() { return *traced_; }

  /** Marks, does something, and marks again, so that it can be told as "from NAME to NAME-end". */
  template <typename Action>
  void during(const std::string& name, Action action) {
    traced_->mark(name);
    action();
    traced_->mark(name + "-end");
  }

  static Calls callsOf(const Calls& calls, const std::string& name) {
    return TracedActor::between(calls, name, name + "-end");
  }

  /** The syncs while a store with these options is opened, changed twice, read and closed. */
  struct Syncs {
    Calls open, set, equalSet, remove, read, close;
  };
  Syncs syncsWith(unsigned long options) {
    during("open", [&] { EXPECT_TRUE(actor().open(file(), options)); });
    during("set", [&] { EXPECT_TRUE(actor().set("key", 1, 100)); });
    during("equal", [&] { EXPECT_TRUE(actor().set("key", 1, 100)); });
    during("remove", [&] { EXPECT_TRUE(actor().remove("key")); });
    during("read", [&] { EXPECT_EQ(actor().get("key"), "none"); });
    during("close", [&] { EXPECT_EQ(actor().ask("close"), "closed"); });
    const Calls calls = traced().finish();
    const auto of = [&](const char* name) { return syncsIn(callsOf(calls, name)); };
    return {of("open"), of("set"), of("equal"), of("remove"), of("read"), of("close")};
  }

 private:
  std::optional<TracedActor> traced_;
};

TEST_F(StoreSyncCalls, SyncEachWriteSyncsBeforeEveryChangeReturns) {
  const Syncs syncs = syncsWith(14);
  EXPECT_GE(syncs.set.size(), 1U);
  EXPECT_GE(syncs.equalSet.size(), 1U);
  EXPECT_GE(syncs.remove.size(), 1U);
  EXPECT_THAT(syncs.read, IsEmpty());
}

TEST_F(StoreSyncCalls, SyncOnCloseSyncsOnceAtTheEnd) {
  const Syncs syncs = syncsWith(kReportOptions);
  EXPECT_THAT(syncs.open, IsEmpty());
  EXPECT_THAT(syncs.set, IsEmpty());
  EXPECT_THAT(syncs.equalSet, IsEmpty());
  EXPECT_THAT(syncs.remove, IsEmpty());
  EXPECT_THAT(syncs.read, IsEmpty());
  EXPECT_GE(syncs.close.size(), 1U);
}

TEST_F(StoreSyncCalls, WithoutEitherNothingIsSynced) {
  const Syncs syncs = syncsWith(12);
  for (const Calls& calls :
       {syncs.open, syncs.set, syncs.equalSet, syncs.remove, syncs.read, syncs.close}) {
    EXPECT_THAT(calls, IsEmpty());
  }
}

TEST_F(StoreSyncCalls, SyncOnCloseSyncsNothingThatItDidNotWrite) {
  writeFile(file(), sampleLog().bytes());
  ASSERT_TRUE(actor().open(file()));
  EXPECT_NE(actor().get("report_id"), "none");
  EXPECT_TRUE(actor().remove("absent"));
  EXPECT_EQ(actor().ask("close"), "closed");
  EXPECT_THAT(syncsIn(traced().finish()), IsEmpty());
}

TEST_F(StoreSyncCalls, AnExplicitSyncSyncsAtOnceWhoeverWrote) {
  ASSERT_TRUE(actor().open(file(), 12));
  ASSERT_TRUE(open().set("key", "value"));
  during("sync", [&] { EXPECT_EQ(actor().ask("sync"), "true"); });
  EXPECT_GE(syncsIn(callsOf(traced().finish(), "sync")).size(), 1U);
}

/** Whether a directory was opened and synced. */
bool syncsDirectory(const Calls& calls, const std::string& directory) {
  const auto opened = std::ranges::find_if(calls, [&](const std::string& call) {
    return call.starts_with("openat(") && call.find('"' + directory + '"') != std::string::npos;
  });
  return opened != calls.end() && std::any_of(opened, calls.end(), isSync);
}

// Until who made the file closes it, nobody else has made its name durable.
TEST_F(StoreSyncCalls, ThoseThatAreAskedForSyncTheNameOfAFileThatAnotherMade) {
  KeyValueStore maker = open(kReportOptions);
  ASSERT_TRUE(maker.set("key", "value"));
  during("first", [&] {
    EXPECT_TRUE(actor().open(file(), 12));
    EXPECT_EQ(actor().ask("sync"), "true");
    EXPECT_EQ(actor().ask("close"), "closed");
  });
  during("second", [&] {
    EXPECT_TRUE(actor().open(file(), 14));
    EXPECT_TRUE(actor().set("key", 1, 100));
  });
  during("again", [&] { EXPECT_TRUE(actor().set("key", 2, 100)); });
  during("third", [&] {
    EXPECT_EQ(actor().ask("close"), "closed");
    EXPECT_TRUE(actor().open(file(), kReportOptions));
    EXPECT_TRUE(actor().set("key", 3, 100));
    EXPECT_EQ(actor().ask("close"), "closed");
  });
  const Calls calls = traced().finish();
  const std::string parent = directory().path().string();
  EXPECT_TRUE(syncsDirectory(callsOf(calls, "first"), parent));
  EXPECT_TRUE(syncsDirectory(callsOf(calls, "second"), parent));
  EXPECT_FALSE(syncsDirectory(callsOf(calls, "again"), parent));
  EXPECT_FALSE(syncsDirectory(callsOf(calls, "third"), parent)) << "its maker does, when closing";
}

TEST_F(StoreSyncCalls, ACompactionSyncsTheNewFileBeforeItTakesTheOldOnesPlace) {
  ASSERT_TRUE(actor().open(file(), 12));
  for (std::uint64_t i = 0; i < 40; ++i) {
    ASSERT_TRUE(actor().set("key", i, 5000));
  }
  const Calls calls = traced().finish();
  int renames = 0;
  bool synced = false;
  for (const std::string& call : calls) {
    synced = synced || isSync(call);
    if (!call.starts_with("rename")) continue;
    ++renames;
    EXPECT_TRUE(synced) << call;
    synced = false;
  }
  EXPECT_GE(renames, 2);
}

TEST_F(StoreSyncCalls, ATornTailIsGoneForGoodBeforeTheNextRecordIsWritten) {
  const std::string whole = sampleLog().bytes();
  writeFile(file(), whole + storeRecord({"torn", std::string(9000, 't')}).substr(0, 8000));
  ASSERT_TRUE(actor().open(file(), 12));
  during("set", [&] { EXPECT_TRUE(actor().set("key", 1, 100)); });
  during("again", [&] { EXPECT_TRUE(actor().set("key", 2, 100)); });
  const Calls calls = traced().finish();
  Calls changes;
  for (const std::string& call : callsOf(calls, "set")) {
    const std::string name = call.substr(0, call.find('('));
    if (name != "openat" && name != "open") changes.push_back(name);
  }
  EXPECT_THAT(changes, ElementsAre("ftruncate", "fsync", "pwrite64"));
  EXPECT_THAT(syncsIn(callsOf(calls, "again")), IsEmpty());
}

TEST_F(StoreSyncCalls, EveryDescriptorIsOpenedToBeClosedByAnExecutedProgram) {
  for (const unsigned long options : {kReportOptions, 14UL, 4UL, 9UL}) {
    ASSERT_TRUE(actor().open(file(), options));
    for (std::uint64_t i = 0; i < 40; ++i) {
      actor().set("key", i, 5000);
    }
    EXPECT_EQ(actor().ask("sync"), "true");
    EXPECT_EQ(actor().ask("close"), "closed");
  }
  int opened = 0;
  for (const std::string& call : traced().finish()) {
    if (!call.starts_with("open") || call.find(directory().path().string()) == std::string::npos) {
      continue;
    }
    ++opened;
    EXPECT_THAT(call, HasSubstr("O_CLOEXEC"));
  }
  EXPECT_GT(opened, 3 * 40);
}

}  // namespace
}  // namespace KELP::Test
