#include "os/log.h"

#include <os/expected.h>

#include <cstdlib>

namespace KELP::OS::expected_detail {

void panic(const char* check, unsigned line) {
  __android_log_assert(nullptr, kLogTag, "%s:%u PANIC", check, line);
  std::abort();  // In case a replaced assertion handler returns.
}

}  // namespace KELP::OS::expected_detail
