#include "reports/locktable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

namespace KELP::Tool {
namespace {

/**
 * The numbers by which the kernel itself knows the file systems. What stat() says of a file is
 * another one where a file system makes numbers up for its parts, as btrfs and overlayfs do.
 */
std::map<std::uint64_t, dev_t> mountedDevices() {
  std::map<std::uint64_t, dev_t> devices;
  std::ifstream mounts("/proc/self/mountinfo");
  // "36 35 98:0 / /mnt rw,noatime - ext4 /dev/sda1 rw"
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::uint64_t mount = 0;
    std::uint64_t parent = 0;
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    if (fields >> mount >> parent >> major >> colon >> minor) {
      devices[mount] = makedev(major, minor);
    }
  }
  return devices;
}

}  // namespace

const char* nameOf(LockState state) {
  switch (state) {
    case LockState::Read:
      return "read";
    case LockState::Write:
      return "write";
    case LockState::Free:
      break;
  }
  return "free";
}

LockTable::LockTable() : devices_(mountedDevices()) {
  std::ifstream locks("/proc/locks");
  // "12: FLOCK  ADVISORY  WRITE 4711 fe:01:131 0 EOF"; one who only waits has "->" behind the
  // number.
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number;
    std::string kind;
    std::string mode;
    std::string access;
    std::string process;
    unsigned major = 0;
    unsigned minor = 0;
    ino_t inode = 0;
    char colon = 0;
    fields >> number >> kind >> mode >> access >> process;
    fields >> std::hex >> major >> colon >> minor >> colon >> std::dec >> inode;
    if (!fields || kind != "FLOCK") {
      continue;
    }
    LockState& state = states_[{makedev(major, minor), inode}];
    state = std::max(state, access == "WRITE" ? LockState::Write : LockState::Read);
  }
}

LockState LockTable::stateOf(const std::filesystem::path& file) const {
  struct statx status {};
  if (::statx(AT_FDCWD, file.c_str(), 0, STATX_INO | STATX_MNT_ID, &status) != 0) {
    return LockState::Free;
  }
  const auto mounted = devices_.find((status.stx_mask & STATX_MNT_ID) != 0 ? status.stx_mnt_id : 0);
  const dev_t device = mounted == devices_.end()
                           ? makedev(status.stx_dev_major, status.stx_dev_minor)
                           : mounted->second;
  const auto found = states_.find({device, status.stx_ino});
  return found == states_.end() ? LockState::Free : found->second;
}

}  // namespace KELP::Tool
