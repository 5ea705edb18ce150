#include "tools/support/systemcallfilter.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <vector>

namespace KELP::Test {
namespace {

constexpr std::uint32_t kWriting = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC | O_APPEND;
constexpr std::uint32_t kNumber = offsetof(seccomp_data, nr);

/** The lower half of an argument: flags are no more. */
constexpr std::uint32_t argument(std::size_t index) {
  return static_cast<std::uint32_t>(offsetof(seccomp_data, args) + index * sizeof(std::uint64_t));
}

constexpr sock_filter load(std::uint32_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset);
}

constexpr sock_filter finish(std::uint32_t action) {
  return BPF_STMT(BPF_RET | BPF_K, action);
}

/** The call @p number is not allowed at all. */
void forbid(std::vector<sock_filter>& filter, std::uint32_t number) {
  filter.push_back(load(kNumber));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
  filter.push_back(finish(SECCOMP_RET_KILL_PROCESS));
}

/** The call @p number is not allowed with flags for writing in its argument @p flags. */
void forbidWriting(std::vector<sock_filter>& filter, std::uint32_t number, std::size_t flags) {
  filter.push_back(load(kNumber));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 3));
  filter.push_back(load(argument(flags)));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kWriting, 0, 1));
  filter.push_back(finish(SECCOMP_RET_KILL_PROCESS));
}

}  // namespace

bool forbidLocksAndWrites() {
  std::vector<sock_filter> filter;
  forbid(filter, __NR_flock);
  forbidWriting(filter, __NR_openat, 2);
#ifdef __NR_open
  forbidWriting(filter, __NR_open, 1);
  forbid(filter, __NR_creat);
  forbid(filter, __NR_mkdir);
  forbid(filter, __NR_unlink);
  forbid(filter, __NR_rename);
#endif
  constexpr std::uint32_t kForbidden[] = {__NR_openat2,   __NR_mkdirat,  __NR_unlinkat,
                                          __NR_renameat2, __NR_truncate, __NR_linkat};
  for (const std::uint32_t number : kForbidden) {
    forbid(filter, number);
  }
  filter.push_back(finish(SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace KELP::Test
