#pragma once

// Clang tells of its sanitizers in another way than g++.
#if defined(__has_feature)
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): only the preprocessor can ask.
#define KELP_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KELP_HAS_FEATURE(feature) 0
#endif

namespace KELP::Test {

/** Whether this is built with the address sanitizer, and with it that of undefined behaviour. */
#if defined(__SANITIZE_ADDRESS__) || KELP_HAS_FEATURE(address_sanitizer)
constexpr bool kHasAddressSanitizer = true;
#else
constexpr bool kHasAddressSanitizer = false;
#endif

/** Whether this is built with the thread sanitizer. */
#if defined(__SANITIZE_THREAD__) || KELP_HAS_FEATURE(thread_sanitizer)
constexpr bool kHasThreadSanitizer = true;
#else
constexpr bool kHasThreadSanitizer = false;
#endif

}  // namespace KELP::Test
