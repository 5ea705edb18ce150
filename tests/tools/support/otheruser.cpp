#include "tools/support/otheruser.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

namespace KELP::Test {

std::optional<ToolResult> runToolAsNobody(const std::vector<std::string>& arguments,
                                          const std::function<void()>& check) {
  constexpr uid_t kNobody = 65534;
  std::optional<ToolResult> result;
  // Users are a matter of the thread, when the system is asked directly.
  std::thread([&] {
    if (::syscall(SYS_setgroups, 0, nullptr) == 0 &&
        ::syscall(SYS_setresgid, kNobody, kNobody, kNobody) == 0 &&
        ::syscall(SYS_setresuid, kNobody, kNobody, kNobody) == 0 &&
        ::access(toolPath().c_str(), X_OK) == 0) {
      if (check) {
        check();
      }
      result = runTool(arguments);
    }
  }).join();
  return result;
}

}  // namespace KELP::Test
