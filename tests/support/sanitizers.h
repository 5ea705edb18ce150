#pragma once

namespace KELP::Test {

/** Whether this is built with the address sanitizer, and with it that of undefined behaviour. */
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
#else
constexpr bool kIsSanitized = false;
#endif

}  // namespace KELP::Test
