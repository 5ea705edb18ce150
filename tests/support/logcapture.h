#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

constexpr int kDebug = 3;
constexpr int kWarning = 5;
constexpr int kError = 6;

/** One line as the library wrote it. */
struct LogLine {
  int priority;
  std::string tag;
  std::string text;

  bool operator==(const LogLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/** A line at error priority under the library's tag. */
[[nodiscard]] LogLine errorLine(std::string text);
/** A line at warning priority under the library's tag. */
[[nodiscard]] LogLine warningLine(std::string text);

/**
 * Collects the lines that the library logs in this process while the object lives; lines logged
 * while none lives are dropped. May be used while several threads log. One lives at a time.
 *
 * Test programs that link the fixtures define `__android_log_print` and `__android_log_assert`
 * themselves. The latter prints its tag and text to stderr as "TAG: TEXT" and aborts, for death
 * tests.
 */
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /** The lines so far, oldest first. */
  [[nodiscard]] std::vector<LogLine> lines() const;
  /** The lines so far, which are then forgotten. */
  [[nodiscard]] std::vector<LogLine> take();
};

}  // namespace KELP::Test
