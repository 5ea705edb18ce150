#include "peers/peers.h"
#include "support/namedrow.h"

namespace KELP::Bench {

const std::vector<PeerKind>& peerKinds() {
  using Root = const std::filesystem::path&;
  static const std::vector<PeerKind> kKinds{
      {"library", makeLibrary},
      {"bare", [](Root root) { return makeBare(root, Durable::No); }},
      {"bare_durable", [](Root root) { return makeBare(root, Durable::Yes); }},
      {"bare_blind", makeBareBlind},
      {"sqlite_each", [](Root root) { return makeSqliteEach(root, Durable::No); }},
      {"sqlite_each_durable", [](Root root) { return makeSqliteEach(root, Durable::Yes); }},
      {"sqlite_all", [](Root root) { return makeSqliteAll(root, Durable::No); }},
      {"sqlite_all_durable", [](Root root) { return makeSqliteAll(root, Durable::Yes); }},
  };
  return kKinds;
}

const PeerKind& peerKind(const std::string& name) {
  return Test::rowNamed(peerKinds(), name);
}

}  // namespace KELP::Bench
