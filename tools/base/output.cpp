#include "base/output.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/progress.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

bool isTerminal(int descriptor) {
  return ::isatty(descriptor) == 1;
}

bool hasColour() {
  const char* const no = std::getenv("NO_COLOR");
  return isTerminal(STDOUT_FILENO) && (no == nullptr || *no == '\0');
}

const char* codeOf(Style style) {
  switch (style) {
    case Style::Bold:
      return "\033[1m";
    case Style::Dim:
      return "\033[2m";
    case Style::Red:
      return "\033[31m";
    case Style::Green:
      return "\033[32m";
    case Style::Yellow:
      return "\033[33m";
    case Style::Blue:
      return "\033[34m";
    case Style::Plain:
      break;
  }
  return "";
}

bool outputIsFile() {
  struct stat status {};
  return ::fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode);
}

/** What was printed and not written yet. */
std::string& pending() {
  static std::string text;
  return text;
}

/** Writes all of @p text. While nobody takes it, a signal ends that. */
void writeOut(std::string_view text) {
  // A pipe that is ready takes so much at once, and a file all.
  static const std::size_t most = outputIsFile() ? 1'048'576 : PIPE_BUF;
  while (!text.empty()) {
    waitUntilReady(STDOUT_FILENO, POLLOUT);
    const ssize_t size = ::write(STDOUT_FILENO, text.data(), std::min(text.size(), most));
    if (size >= 0) {
      text.remove_prefix(static_cast<std::size_t>(size));
    } else if (errno == EPIPE) {
      throw Interrupted{SIGPIPE};
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Failure(ExitStatus::Failed,
                    "cannot write the output: " + std::system_category().message(errno));
    }
  }
}

}  // namespace

void keepStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) < 0) {
      ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

bool outputIsTerminal() {
  static const bool is = isTerminal(STDOUT_FILENO);
  return is;
}

bool errorsAreTerminal() {
  static const bool are = isTerminal(STDERR_FILENO);
  return are;
}

std::size_t terminalColumns() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

std::string styled(std::string_view text, Style style) {
  static const bool colour = hasColour();
  if (!colour || style == Style::Plain || text.empty()) {
    return std::string(text);
  }
  return codeOf(style) + std::string(text) + "\033[0m";
}

void print(std::string_view text) {
  constexpr std::size_t kMost = 65'536;
  pending() += text;
  if (pending().size() >= kMost || (outputIsTerminal() && text.ends_with('\n'))) {
    flushOutput();
  }
}

void flushOutput() {
  writeOut(std::exchange(pending(), {}));
}

void printNow(std::string_view text) {
  Progress::hide();
  print(text);
  flushOutput();
}

void discardOutput() {
  pending().clear();
}

void warn(std::string_view text) {
  Progress::hide();
  std::cerr << "kelp-diagnostics: " << text << '\n';
}

}  // namespace KELP::Tool
