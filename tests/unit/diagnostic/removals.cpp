#include "unit/diagnostic/removals.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace KELP::Test {
namespace {

RemovalSpy* spyInUse = nullptr;

}  // namespace

RemovalSpy::RemovalSpy() {
  spyInUse = this;
}
RemovalSpy::~RemovalSpy() {
  spyInUse = nullptr;
}

void RemovalSpy::removed(const std::string& name) {
  names_.push_back(name);
  if (action_) {
    action_(name);
  }
}

}  // namespace KELP::Test

extern "C" int unlinkat(int directory, const char* name, int flags) noexcept {
  const auto result = static_cast<int>(::syscall(SYS_unlinkat, directory, name, flags));
  if (result == 0 && KELP::Test::spyInUse != nullptr) {
    KELP::Test::spyInUse->removed(name);
  }
  return result;
}
