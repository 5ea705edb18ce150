// The file's size is bounded, and the rewriting that keeps it so disturbs nothing.

#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFreeSize = 64UL * 1024;

std::size_t sizeBound(const StoreMap& live) {
  return std::max(kFreeSize, 4 * liveSize(live));
}

class StoreCompaction : public StoreTest {
 protected:
  /** Makes changes until the file was written anew. */
  void compact(KeyValueStore& store) {
    const ino_t inode = statusOf(file()).st_ino;
    for (int i = 0; i < 1000; ++i) {
      const std::string value = patternValue(static_cast<std::uint64_t>(i), 5000);
      ASSERT_TRUE(store.set("changing", value));
      ASSERT_EQ(store.get("changing"), value);
      if (statusOf(file()).st_ino != inode) return;
    }
    FAIL() << "no compaction after 5 MB of changes of one key";
  }
};

TEST_F(StoreCompaction, BoundsTheFileAfterEveryChange) {
  std::mt19937 random(20240607);
  KeyValueStore store = open();
  StoreMap live;
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int step = 0; step < 4000; ++step) {
    const std::string key = "key" + std::to_string(below(12));
    if (below(4) == 0) {
      ASSERT_TRUE(store.remove(key));
      live.erase(key);
    } else {
      live[key] = patternValue(random(), below(20) == 0 ? below(40'000) : below(1500));
      ASSERT_TRUE(store.set(key, live[key]));
    }
    ASSERT_LE(fs::file_size(file()), sizeBound(live)) << "step " << step;
    if (step % 50 == 0) {
      ASSERT_EQ(decodeStore(readFile(file())), live) << "step " << step;
    }
  }
  EXPECT_EQ(decodeStore(readFile(file())), live);
}

TEST_F(StoreCompaction, BoundsAFileThatWasOverTheBoundWhenItWasOpened) {
  const StoreLog log({{"key", std::string(300'000, 'x')}, {"key", "small"}, {"other", "kept"}});
  writeFile(file(), log.bytes());
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", "smaller"));
  EXPECT_LE(fs::file_size(file()), kFreeSize);
  EXPECT_EQ(decodeStore(readFile(file())), (StoreMap{{"key", "smaller"}, {"other", "kept"}}));
}

TEST_F(StoreCompaction, BoundsAFileWhoseLastKeyIsRemoved) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", std::string(1'000'000, 'x')));
  ASSERT_TRUE(store.remove("key"));
  EXPECT_LE(fs::file_size(file()), kFreeSize);
  EXPECT_EQ(decodeStore(readFile(file())), StoreMap());
  EXPECT_TRUE(open().isReady());
}

TEST_F(StoreCompaction, LeavesAFileUnderTheBoundAsItIs) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", "value"));
  const ino_t inode = statusOf(file()).st_ino;
  const std::size_t record = storeRecord({"key", "value"}).size();
  std::size_t size = fs::file_size(file());
  while (size + record <= kFreeSize) {
    ASSERT_TRUE(store.set("key", "value"));
    size += record;
    ASSERT_EQ(fs::file_size(file()), size);
  }
  EXPECT_EQ(statusOf(file()).st_ino, inode);
  ASSERT_TRUE(store.set("key", "value"));
  EXPECT_LT(fs::file_size(file()), size);
}

TEST_F(StoreCompaction, KeepsContentsForEveryOpenObject) {
  const StoreLog log = sampleLog();
  writeFile(file(), log.bytes());
  KeyValueStore store = open();
  KeyValueStore reader = open();
  KeyValueStore secondWriter = open();
  for (int i = 0; i < 5; ++i) {
    ASSERT_NO_FATAL_FAILURE(compact(i % 2 == 0 ? store : secondWriter));
    for (KeyValueStore* each : {&store, &reader, &secondWriter}) {
      EXPECT_EQ(readKeys(*each, log.keys()), log.state());
      EXPECT_TRUE(each->isReady());
    }
    EXPECT_TRUE(secondWriter.set("changing", "by the other"));
    EXPECT_EQ(reader.get("changing"), "by the other");
  }
}

TEST_F(StoreCompaction, KeepsTheFilesMode) {
  KeyValueStore store = open();
  for (const mode_t mode : {0600U, 0640U, 0666U, 0604U}) {
    ASSERT_EQ(::chmod(file().c_str(), mode), 0);
    ASSERT_NO_FATAL_FAILURE(compact(store));
    EXPECT_EQ(statusOf(file()).st_mode & 07777, mode);
  }
}

TEST_F(StoreCompaction, LeavesOnlyTheStoreAndTouchesNoOtherFile) {
  const std::vector<std::string> names = {"lock", "metadata.db.bak", "metadata.db.old",
                                          "metadata.dbx", "notes"};
  std::vector<struct stat> before;
  for (const std::string& name : names) {
    writeFile(directory() / name, name);
    before.push_back(statusOf(directory() / name));
  }
  KeyValueStore store = open();
  for (int i = 0; i < 3; ++i) {
    ASSERT_NO_FATAL_FAILURE(compact(store));
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_TRUE(unchanged(before[i], statusOf(directory() / names[i]))) << names[i];
  }
  std::vector<std::string> all = names;
  all.emplace_back("metadata.db");
  EXPECT_THAT(entriesOf(directory().path()), ::testing::UnorderedElementsAreArray(all));
}

TEST_F(StoreCompaction, IsNoEventForTheNameOfAnotherEntry) {
  writeFile(directory() / "victim", "victim");
  KeyValueStore store = open();
  DirectoryEvents events(directory().path());
  ASSERT_NO_FATAL_FAILURE(compact(store));
  EXPECT_THAT(events.takeOf("victim"), ::testing::IsEmpty());
}

/** What a killed compaction, or somebody with worse intentions, left where the next one writes. */
struct Leftover {
  const char* name;
  std::function<void(const fs::path& place, const fs::path& victim)> make;
};

class StoreLeftover : public StoreCompaction, public ::testing::WithParamInterface<Leftover> {
 protected:
  /** The name under which a compaction writes its new file. */
  [[nodiscard]] std::string temporaryName(KeyValueStore& store) {
    DirectoryEvents events(directory().path());
    compact(store);
    for (const std::string& event : events.take()) {
      if (event.starts_with("MOVED_FROM ")) return event.substr(11);
    }
    return "";
  }
};

INSTANTIATE_TEST_SUITE_P(
    , StoreLeftover,
    ::testing::Values(
        Leftover{"LongerFile",
                 [](const fs::path& place, const fs::path&) {
                   writeFile(place, sampleLog().bytes() + std::string(200'000, 'x'));
                 }},
        Leftover{"ReadOnlyFile",
                 [](const fs::path& place, const fs::path&) {
                   writeFile(place, "left");
                   fs::permissions(place, fs::perms::owner_read);
                 }},
        Leftover{"SymbolicLink", [](const fs::path& place,
                                    const fs::path& victim) { fs::create_symlink(victim, place); }},
        Leftover{"HardLink", [](const fs::path& place,
                                const fs::path& victim) { fs::create_hard_link(victim, place); }},
        Leftover{"Fifo",
                 [](const fs::path& place, const fs::path&) { ::mkfifo(place.c_str(), 0666); }},
        Leftover{"Directory",
                 [](const fs::path& place, const fs::path&) { fs::create_directory(place); }}),
    [](const auto& instance) { return instance.param.name; });

TEST_P(StoreLeftover, DisturbsNoChangeAndNoOtherFile) {
  const StoreLog log = sampleLog();
  writeFile(file(), log.bytes());
  const fs::path victim = directory() / "victim";
  writeFile(victim, "victim");
  KeyValueStore store = open();
  const std::string name = temporaryName(store);
  ASSERT_NE(name, "");
  ASSERT_FALSE(fs::exists(directory() / name));
  GetParam().make(directory() / name, victim);

  StoreMap expected = log.state();
  for (std::uint64_t i = 0; i < 100; ++i) {
    expected["changing"] = patternValue(i, 3000);
    ASSERT_TRUE(store.set("changing", expected["changing"])) << i;
  }
  EXPECT_EQ(decodeStore(readFile(file())), expected);
  if (!fs::is_directory(directory() / name)) {
    EXPECT_LE(fs::file_size(file()), sizeBound(expected)) << "it kept the file from shrinking";
  }
  EXPECT_EQ(readFile(victim), "victim");
  EXPECT_TRUE(S_ISREG(statusOf(file()).st_mode));
}

using StoreFull = StoreTest;

TEST_F(StoreFull, MakesRoomForAChangeByLeavingOutWhatIsNoLongerLive) {
  constexpr std::size_t kLarge = std::size_t{100} << 20U;
  KeyValueStore store = open();
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    EXPECT_TRUE(store.set("large", std::string(kLarge, letter))) << letter;
  }
  EXPECT_FALSE(store.set("other", std::string(2 * kLarge, 'x')));
  EXPECT_TRUE(store.remove("large"));
  EXPECT_TRUE(store.set("other", std::string(2 * kLarge, 'y')));
  KeyValueStore reader = open();
  EXPECT_EQ(reader.get("large"), std::nullopt);
  EXPECT_TRUE(reader.get("other") == std::string(2 * kLarge, 'y'));
}

}  // namespace
}  // namespace KELP::Test
