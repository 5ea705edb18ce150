#include "reports.h"

#include "barecalls.h"
#include "sampledata.h"

#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

fs::path memoryOr(const fs::path& other) {
  const fs::path memory = "/dev/shm";
  return ::access(memory.c_str(), W_OK | X_OK) == 0 ? memory : other;
}

/** Lets the disk come to rest. */
void writeOut(const fs::path& root) {
  const int directory = BareCalls::openFile(root, O_RDONLY | O_DIRECTORY);
  BareCalls::checked(::syncfs(directory), "syncfs");
  ::close(directory);
}

void makeReports(const PeerKind& kind, const fs::path& root, const std::vector<ReportUuid>& ids) {
  const std::unique_ptr<Peer> peer = kind.make(root);
  for (const ReportUuid& id : ids) {
    peer->create(id);
  }
}

}  // namespace

Reports::Reports(const PeerKind& kind, std::size_t count) : ids_(randomIds(count)) {
  const fs::path here = root_.path().parent_path();
  const fs::path quick = memoryOr(here);
  if (quick == here) {
    makeReports(kind, root(), ids_);
  } else {
    const Test::TemporaryDirectory made(quick);
    makeReports(kind, made.path(), ids_);
    fs::copy(made.path(), root(), fs::copy_options::recursive);
    writeOut(root());
  }
  peer_ = kind.make(root());
}

const Reports& sharedReports(const PeerKind& kind, std::size_t count) {
  static std::map<std::pair<std::string, std::size_t>, Reports> all;
  return all.try_emplace({kind.name, count}, kind, count).first->second;
}

}  // namespace KELP::Bench
