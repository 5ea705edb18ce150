#include "console.h"

#include <unistd.h>

#include <cstdlib>

namespace CrashDemo {
namespace {

std::string padded(std::string_view text, std::size_t width) {
  std::string result(text);
  if (result.size() < width) {
    result.append(width - result.size(), ' ');
  }
  return result;
}

bool takesColours(const std::ostream& out) {
  const char* refused = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): one thread
  return (refused == nullptr || *refused == '\0') &&
         ::isatty(&out == &std::cout ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

}  // namespace

Console::Console(std::string_view role, int colour)
    : prefix_(padded(role, 9) + ' ' + padded(std::to_string(::getpid()), 7) + "| "),
      colour_(colour) {}

void Console::field(std::string_view name, std::string_view value) const {
  say("  " + padded(name, 18) + std::string(value));
}

void Console::print(std::ostream& out, std::string_view text) const {
  std::string line = prefix_;
  if (takesColours(out)) {
    line = "\033[" + std::to_string(colour_) + 'm' + line + "\033[0m";
  }
  line.append(text).push_back('\n');
  out << line << std::flush;
}

}  // namespace CrashDemo
