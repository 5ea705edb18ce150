#include "faults/sweep/fault.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <set>

namespace KELP::Test {
namespace {

struct Error {
  const char* name;
  int number;
};

constexpr std::array kErrors{Error{"EIO", EIO},       Error{"ENOSPC", ENOSPC},
                             Error{"EDQUOT", EDQUOT}, Error{"EMFILE", EMFILE},
                             Error{"EINTR", EINTR},   Error{"EACCES", EACCES}};

/** A write that reports less than it was given makes its caller take back what it wrote, which is
 *  nothing here. Where a caller goes on behind the part, as the standard library does, a call that
 *  is not made would leave a hole: a fault that no system has. */
bool canBeShort(const CountedCall& call) {
  return call.name == "pwrite64";
}

}  // namespace

int Fault::number() const {
  const auto* const found =
      std::ranges::find_if(kErrors, [&](const Error& one) { return one.name == error; });
  return found == kErrors.end() ? 0 : found->number;
}

std::string Fault::injection() const {
  std::string when = std::to_string(call.count);
  if (extent == Extent::FromThenOn && error == "EINTR") {
    // Signals come to an end; a call that is repeated for each would not.
    when += ".." + std::to_string(call.count + 4);
  } else if (extent == Extent::FromThenOn) {
    when += "+";
  }
  const std::string result = error.empty() ? "retval=5" : "error=" + error;
  return "inject=" + call.name + ":" + result + ":when=" + when;
}

bool Fault::isInterruption() const {
  static const std::set<std::string> kWaiting{"flock", "fsync", "pread64", "pwrite64"};
  return error == "EINTR" && kWaiting.contains(call.name);
}

bool Fault::hindersRemoval() const {
  static const std::set<std::string> kNeeded{
      "unlink",   "unlinkat",   "rmdir", "openat", "open",  "newfstatat", "stat",    "lstat",
      "getdents", "getdents64", "statx", "fstat",  "fcntl", "close",      "readlink"};
  return kNeeded.contains(call.name);
}

std::ostream& operator<<(std::ostream& out, const Fault& fault) {
  return out << fault.injection();
}

bool canFail(const CountedCall& call) {
  static const std::set<std::string> kLeftAlone{
      "brk",      "mmap",   "munmap", "mremap",         "futex",        "madvise",
      "mprotect", "getpid", "gettid", "rt_sigprocmask", "clock_gettime"};
  return !kLeftAlone.contains(call.name);
}

std::vector<Fault> faultsFor(const std::vector<CountedCall>& calls, bool all, unsigned choice) {
  std::vector<Fault> faults;
  for (const CountedCall& call : calls) {
    for (const auto extent : {Fault::Extent::Once, Fault::Extent::FromThenOn}) {
      const std::size_t chosen = choice++ % kErrors.size();
      for (std::size_t i = 0; i < kErrors.size(); ++i) {
        if (all || i == chosen) faults.push_back({call, kErrors.at(i).name, extent});
      }
      if (canBeShort(call) && (all || extent == Fault::Extent::Once)) {
        faults.push_back({call, "", extent});
      }
    }
  }
  return faults;
}

}  // namespace KELP::Test
