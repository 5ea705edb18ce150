#include "support/strace.h"

#include "support/childprocess.h"

#include <unistd.h>

namespace KELP::Test {

std::string whyNoStrace() {
  if (::access(kStrace, X_OK) != 0) {
    return "strace is not installed";
  }
  ChildProcess probe({kStrace, "-f", "-o", "/dev/null", "/bin/true"});
  return probe.wait() == 0 ? "" : "strace may not trace here";
}

}  // namespace KELP::Test
