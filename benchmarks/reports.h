#pragma once

#include "peers/peer.h"
#include "support/temporarydirectory.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

namespace KELP::Bench {

/**
 * Reports of one peer in a directory of their own, which is removed at the end. They are made in
 * memory and copied to where the benchmarks run, because making many durable ones takes long.
 */
class Reports {
 public:
  Reports(const PeerKind& kind, std::size_t count);

  [[nodiscard]] const std::filesystem::path& root() const { return root_.path(); }
  /** Leaves the reports to other peers. */
  void closePeer() { peer_.reset(); }
  [[nodiscard]] Peer& peer() const { return *peer_; }
  [[nodiscard]] const std::vector<ReportUuid>& ids() const { return ids_; }

 private:
  Test::TemporaryDirectory root_;
  std::vector<ReportUuid> ids_;
  std::unique_ptr<Peer> peer_;
};

/** Reports that are made by the first call, and gone when the program ends. Whoever adds some
 *  removes them; they are in the state in which their creators let go of them. */
[[nodiscard]] const Reports& sharedReports(const PeerKind& kind, std::size_t count);

}  // namespace KELP::Bench
