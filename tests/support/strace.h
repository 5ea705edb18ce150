#pragma once

#include <string>

namespace KELP::Test {

/** The program that tells which system calls another one makes. */
constexpr const char* kStrace = "/usr/bin/strace";

/** Why nothing can be traced here; empty when it can. */
[[nodiscard]] std::string whyNoStrace();

}  // namespace KELP::Test
