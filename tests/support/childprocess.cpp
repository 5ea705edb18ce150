#include "support/childprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace KELP::Test {
namespace {

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::system_category(), "pipe2");
  }
  return ends;
}

void closeIfOpen(int& descriptor) {
  if (descriptor >= 0) {
    ::close(std::exchange(descriptor, -1));
  }
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
  ::signal(SIGPIPE, SIG_IGN);  // A child that is gone is an error of send(), not our end.
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);

  auto toChild = makePipe();
  auto fromChild = makePipe();
  pid_ = ::fork();
  if (pid_ == 0) {
    ::signal(SIGPIPE, SIG_DFL);
    ::dup2(toChild[0], STDIN_FILENO);
    ::dup2(fromChild[1], STDOUT_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  const int forkError = errno;
  closeIfOpen(toChild[0]);
  closeIfOpen(fromChild[1]);
  input_ = toChild[1];
  output_ = fromChild[0];
  if (pid_ < 0) {
    throw std::system_error(forkError, std::system_category(), "fork");
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    signal(SIGKILL);
    wait();
  }
  closeIfOpen(input_);
  closeIfOpen(output_);
}

void ChildProcess::send(const std::string& line) {
  const std::string text = line + "\n";
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::system_category(), "write to child");
  }
}

void ChildProcess::closeInput() {
  closeIfOpen(input_);
}

std::optional<std::string> ChildProcess::receive(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (const auto end = received_.find('\n'); end != std::string::npos) {
      std::string line = received_.substr(0, end);
      received_.erase(0, end + 1);
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd ready{output_, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0) {
      return std::nullopt;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(output_, buffer.data(), buffer.size());
    if (count <= 0) {
      return std::nullopt;
    }
    received_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void ChildProcess::signal(int signal) const {
  if (pid_ > 0) {
    ::kill(pid_, signal);
  }
}

int ChildProcess::wait() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace KELP::Test
