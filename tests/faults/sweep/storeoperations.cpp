// The store. It does not log.

#include "faults/sweep/scenes.h"
#include "support/temporarydirectory.h"

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Option = OS::KVStoreOpenOption;
using Options = OS::KeyValueStore::Options;

const Options kUsual{Option::CreateIfMissing, Option::Shared, Option::SyncOnClose};

void open(Scene& scene, const Options& options) {
  scene.store = std::make_unique<OS::KeyValueStore>(storeFile(scene).string(), "store", options);
}

void openShared(Scene& scene) {
  open(scene, kUsual);
  require(scene.store->isReady());
}

void prepareStore(Scene& scene) {
  prepareDirectory(scene);
  openShared(scene);
  require(scene.store->set("a", "old"));
  require(scene.store->set("b", "other"));
  scene.store.reset();
}

void prepareEmptyStore(Scene& scene) {
  prepareDirectory(scene);
  writeFile(storeFile(scene), "");
}

/** The last record is cut short. */
void prepareTorn(Scene& scene) {
  prepareStore(scene);
  openShared(scene);
  require(scene.store->set("torn", "value"));
  scene.store.reset();
  fs::resize_file(storeFile(scene), fs::file_size(storeFile(scene)) - 2);
}

void prepareBloatedStore(Scene& scene) {
  prepareStore(scene);
  bloat(storeFile(scene), "a");
}

void openSyncing(Scene& scene) {
  open(scene, {Option::CreateIfMissing, Option::Shared, Option::SyncEachWrite});
  require(scene.store->isReady());
}

void openExclusive(Scene& scene) {
  open(scene, {Option::CreateIfMissing});
  require(scene.store->isReady());
}

void openChanged(Scene& scene) {
  openShared(scene);
  require(scene.store->set("a", "not durable yet"));
}

/** Somebody else changed the file since this process looked. */
void openBehind(Scene& scene) {
  openShared(scene);
  OS::KeyValueStore other(storeFile(scene).string(), "store", kUsual);
  require(other.set("b", "other again"));
}

Outcome toldReady(Scene& scene, const Options& options) {
  open(scene, options);
  return made(scene.store->isReady());
}

Outcome setA(Scene& scene) {
  return made(scene.store->set("a", "new"));
}

const Expectation kStore{.errors = {}, .silent = true};
const Expectation kStoreFile{.errors = {}, .silent = true, .begun = {"store.db"}};

}  // namespace

std::vector<Operation> storeOperations() {
  return {
      {"StoreOpen", prepareStore, arrangeNothing, [](Scene& s) { return toldReady(s, kUsual); },
       kStore},
      {"StoreOpenMissing", prepareDirectory, arrangeNothing,
       [](Scene& s) { return toldReady(s, kUsual); }, kStoreFile},
      {"StoreOpenExclusively", prepareStore, arrangeNothing,
       [](Scene& s) { return toldReady(s, {Option::CreateIfMissing}); }, kStore},
      {"StoreGet",
       prepareStore,
       openBehind,
       [](Scene& s) { return done(inWords(s.store->get("b"))); },
       {.errors = {}, .answers = {"absent"}, .silent = true}},
      {"StoreSet", prepareStore, openShared, setA, kStore},
      {"StoreSetBehind", prepareStore, openBehind, setA, kStore},
      {"StoreSetFirst", prepareEmptyStore, openShared, setA, kStore},
      {"StoreSetTorn", prepareTorn, openShared, setA, kStore},
      {"StoreSetAndCompact", prepareBloatedStore, openShared, setA, kStore},
      {"StoreSetSynced", prepareStore, openSyncing, setA, kStore},
      {"StoreSetSyncedAndCompact", prepareBloatedStore, openSyncing, setA, kStore},
      {"StoreSetExclusively", prepareStore, openExclusive, setA, kStore},
      {"StoreSetExclusivelyAndCompact", prepareBloatedStore, openExclusive, setA, kStore},
      {"StoreRemove", prepareStore, openShared, [](Scene& s) { return made(s.store->remove("a")); },
       kStore},
      {"StoreRemoveAbsent", prepareStore, openShared,
       [](Scene& s) { return made(s.store->remove("absent")); }, kStore},
      {"StoreSync", prepareStore, openChanged, [](Scene& s) { return made(s.store->sync()); },
       kStore},
      {"StoreIsReady", prepareStore, openBehind, [](Scene& s) { return made(s.store->isReady()); },
       kStore},
      {"StoreClose", prepareStore, openChanged,
       [](Scene& s) {
         s.store.reset();
         return done();
       },
       kStore},
  };
}

}  // namespace KELP::Test
