#include "base/output.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/progress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <system_error>

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

[[noreturn]] void failToWrite() {
  const int error = errno;
  if (error == EPIPE) {
    throw Interrupted{SIGPIPE};
  }
  checkInterrupt();
  throw Failure(ExitStatus::Failed,
                "cannot write the output: " + std::system_category().message(error));
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

bool canAsk() {
  return isTerminal(STDIN_FILENO) && errorsAreTerminal();
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
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    failToWrite();
  }
}

void flushOutput() {
  if (std::fflush(stdout) != 0) {
    failToWrite();
  }
}

void warn(std::string_view text) {
  Progress::hide();
  std::cerr << "kelp-diagnostics: " << text << '\n';
}

bool confirmed(std::string_view text) {
  Progress::hide();
  flushOutput();
  std::cerr << text << " [y/N] ";
  {
    // A signal must not be missed between the look for one and the wait for the answer.
    const BlockedSignals blocked;
    checkInterrupt();
    pollfd input{STDIN_FILENO, POLLIN, 0};
    ::ppoll(&input, 1, nullptr, &blocked.before());
  }
  checkInterrupt();
  const int answer = std::fgetc(stdin);
  for (int rest = answer; rest != '\n' && rest != EOF; rest = std::fgetc(stdin)) {
  }
  checkInterrupt();
  return answer == 'y' || answer == 'Y';
}

}  // namespace KELP::Tool
