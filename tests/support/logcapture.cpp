#include "support/logcapture.h"

#include <android/log.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace KELP::Test {
namespace {

struct Lines {
  std::mutex mutex;
  bool collecting = false;
  std::vector<LogLine> lines;
};

Lines& collected() {
  static Lines lines;
  return lines;
}

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  text.pop_back();
  return text;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << ' ' << line.tag << ": " << line.text;
}

LogLine errorLine(std::string text) {
  return {kError, "diagnosticdata", std::move(text)};
}
LogLine warningLine(std::string text) {
  return {kWarning, "diagnosticdata", std::move(text)};
}

LogCapture::LogCapture() {
  const std::lock_guard lock(collected().mutex);
  collected().collecting = true;
  collected().lines.clear();
}

LogCapture::~LogCapture() {
  const std::lock_guard lock(collected().mutex);
  collected().collecting = false;
}

std::vector<LogLine> LogCapture::lines() const {
  const std::lock_guard lock(collected().mutex);
  return collected().lines;
}

std::vector<LogLine> LogCapture::take() {
  const std::lock_guard lock(collected().mutex);
  return std::exchange(collected().lines, {});
}

}  // namespace KELP::Test

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = KELP::Test::formatted(format, arguments);
  va_end(arguments);
  auto& all = KELP::Test::collected();
  const std::lock_guard lock(all.mutex);
  if (all.collecting) {
    all.lines.push_back({priority, tag, std::move(text)});
  }
  return 1;
}

extern "C" void __android_log_assert(const char* condition, const char* tag, const char* format,
                                     ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = KELP::Test::formatted(format, arguments);
  va_end(arguments);
  std::fprintf(stderr, "%s: %s%s\n", tag, condition == nullptr ? "" : condition, text.c_str());
  std::abort();
}
