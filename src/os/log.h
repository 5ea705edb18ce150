#pragma once

#include <android/log.h>

#include <concepts>
#include <cstddef>
#include <type_traits>

/**
 * The library's way to the Android log; the only place that names the tag.
 *
 * A format is a literal that the compiler checks against its arguments, so that no name, path or
 * value can ever become a format.
 */
namespace KELP::OS {

inline constexpr const char* kLogTag = "diagnosticdata";

/** A `printf` format for arguments of the types @p Args, of which "%s", "%d", "%u" and "%%" are
 *  understood. Any other does not compile. */
template <typename... Args>
class LogFormat {
 public:
  consteval LogFormat(const char* text) : text_(text) {  // NOLINT(google-explicit-constructor)
    std::size_t argument = 0;
    for (const char* at = text; *at != '\0'; ++at) {
      if (*at != '%') {
        continue;
      }
      ++at;
      if (*at != '%' && (argument >= sizeof...(Args) || *at != kLetters[argument++])) {
        throw "the format does not match the arguments";
      }
    }
    if (argument != sizeof...(Args)) {
      throw "the format leaves arguments out";
    }
  }

  [[nodiscard]] constexpr const char* text() const { return text_; }

 private:
  template <typename T>
  static constexpr char letterOf() {
    if constexpr (std::is_same_v<T, const char*>) {
      return 's';
    } else if constexpr (std::is_same_v<T, int>) {
      return 'd';
    } else {
      static_assert(std::is_same_v<T, unsigned>, "a kind of argument that no format takes");
      return 'u';
    }
  }
  static constexpr char kLetters[sizeof...(Args) + 1] = {letterOf<Args>()..., '\0'};

  const char* text_;
};

/** Writes one line at @p priority. */
template <typename... Args>
void log(android_LogPriority priority, LogFormat<std::type_identity_t<Args>...> format,
         Args... arguments) {
  // The format has been checked against the arguments, at compile time.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  __android_log_print(priority, kLogTag, format.text(), arguments...);
#pragma GCC diagnostic pop
}

/** Writes one line at error priority. */
template <typename... Args>
void logError(LogFormat<std::type_identity_t<Args>...> format, Args... arguments) {
  log<Args...>(ANDROID_LOG_ERROR, format, arguments...);
}

}  // namespace KELP::OS
