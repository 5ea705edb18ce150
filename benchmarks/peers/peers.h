#pragma once

#include "peers/peer.h"
#include "peers/sqlitedatabase.h"

// How each peer is made.

namespace KELP::Bench {

/** The library itself. What a report's creator or writer changed is on stable storage when the
 *  report is closed. */
[[nodiscard]] std::unique_ptr<Peer> makeLibrary(const std::filesystem::path& root);

/** The system calls that the library cannot do without. Whether with those that make durable what
 *  the library makes durable. */
[[nodiscard]] std::unique_ptr<Peer> makeBare(const std::filesystem::path& root, Durable durable);

/** The same, but a report is opened without a look at what stands there. */
[[nodiscard]] std::unique_ptr<Peer> makeBareBlind(const std::filesystem::path& root);

/** Reports as the library's, each a directory with a lock and the contents as a JSON text, but with
 *  a database of one table of keys and values in the place of the store. */
[[nodiscard]] std::unique_ptr<Peer> makeSqliteEach(const std::filesystem::path& root,
                                                   Durable durable);

/** One database with tables of reports, properties and variations, which a process keeps open, and
 *  files in directories beside it. */
[[nodiscard]] std::unique_ptr<Peer> makeSqliteAll(const std::filesystem::path& root,
                                                  Durable durable);

}  // namespace KELP::Bench
