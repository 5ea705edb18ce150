#include "tools/support/tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace KELP::Test {
namespace {

constexpr std::chrono::seconds kLimit{60};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

/** The command line and the environment, made before the fork. */
class Command {
 public:
  Command(std::vector<std::string> arguments, const ToolSetting& setting)
      : texts_(std::move(arguments)),
        directory_(setting.directory),
        errors_(setting.errors),
        isDetached_(setting.detached) {
    texts_.insert(texts_.begin(), toolPath());
    std::map<std::string, std::string> variables = setting.environment;
    variables.try_emplace("LC_ALL", "C.UTF-8");
    variables.try_emplace("TZ", "UTC");
    variables.try_emplace("TERM", "xterm");
    for (const char* const kept : {"PATH", "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
      if (const char* const value = std::getenv(kept)) {
        variables.try_emplace(kept, value);
      }
    }
    for (const auto& [name, value] : variables) {
      environment_.push_back(name + "=" + value);
    }
    arguments_ = pointersTo(texts_);
    variables_ = pointersTo(environment_);
  }

  /** In the child. */
  [[noreturn]] void execute() {
    if (!errors_.empty()) {
      ::dup2(::open(errors_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600),
             STDERR_FILENO);
    }
    if (isDetached_) {
      std::signal(SIGHUP, SIG_IGN);  // It comes from giving up the terminal.
      ::ioctl(STDIN_FILENO, TIOCNOTTY);
      std::signal(SIGHUP, SIG_DFL);
    }
    if (directory_.empty() || ::chdir(directory_.c_str()) == 0) {
      ::execve(arguments_[0], arguments_.data(), variables_.data());
    }
    ::_exit(127);
  }

 private:
  std::vector<std::string> texts_;
  std::vector<std::string> environment_;
  std::vector<char*> arguments_;
  std::vector<char*> variables_;
  std::filesystem::path directory_;
  std::filesystem::path errors_;
  bool isDetached_;
};

/** A descriptor that is read from or written to until it is done; -1 then. */
struct Channel {
  int descriptor;
  std::string* text;
  bool writes;
};

/** Moves what can be moved now. */
void move(Channel& channel, std::size_t& written) {
  char buffer[64 * 1024];
  const ssize_t size = channel.writes ? ::write(channel.descriptor, channel.text->data() + written,
                                                channel.text->size() - written)
                                      : ::read(channel.descriptor, buffer, sizeof(buffer));
  if (size > 0 && channel.writes) {
    written += static_cast<std::size_t>(size);
  } else if (size > 0) {
    channel.text->append(buffer, static_cast<std::size_t>(size));
  }
  if (size <= 0 || (channel.writes && written == channel.text->size())) {
    ::close(channel.descriptor);
    channel.descriptor = -1;
  }
}

/** What is waited for: to read all, and to write as soon as @p mayWrite. */
std::vector<pollfd> polledOf(const std::vector<Channel>& channels, bool mayWrite) {
  std::vector<pollfd> polled;
  for (const Channel& channel : channels) {
    polled.push_back({channel.writes && !mayWrite ? -1 : channel.descriptor,
                      static_cast<short>(channel.writes ? POLLOUT : POLLIN), 0});
  }
  return polled;
}

/** Whether one that is read from has not come to its end. */
bool isReading(const std::vector<Channel>& channels) {
  return std::any_of(channels.begin(), channels.end(), [](const Channel& channel) {
    return channel.descriptor >= 0 && !channel.writes;
  });
}

/** Serves all channels until those that are read from have come to their ends. Nothing is written
 * before @p awaited has come from the first. */
void serve(std::vector<Channel> channels, pid_t child, const std::string& awaited) {
  const auto end = std::chrono::steady_clock::now() + kLimit;
  std::size_t written = 0;
  while (isReading(channels)) {
    const bool mayWrite = channels[0].text->find(awaited) != std::string::npos;
    std::vector<pollfd> polled = polledOf(channels, mayWrite);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      ADD_FAILURE() << "kelp-diagnostics did not come to its end";
      ::kill(child, SIGKILL);
      break;
    }
    ::poll(polled.data(), polled.size(), static_cast<int>(left.count()));
    for (std::size_t at = 0; at < channels.size(); ++at) {
      if (polled[at].revents != 0) {
        move(channels[at], written);
      }
    }
  }
  for (const Channel& channel : channels) {
    if (channel.descriptor >= 0) {
      ::close(channel.descriptor);
    }
  }
}

int waitFor(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Json::Value ToolResult::json() const {
  Json::Value value;
  std::istringstream in(output);
  std::string complaint;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &complaint)) {
    ADD_FAILURE() << complaint << output;
  }
  return value;
}

std::vector<std::string> ToolResult::lines() const {
  std::vector<std::string> result;
  std::istringstream in(output);
  for (std::string line; std::getline(in, line);) {
    result.push_back(line);
  }
  return result;
}

std::string toolPath() {
  return KELP_TOOL;
}

ToolResult runTool(const std::vector<std::string>& arguments, const ToolSetting& setting) {
  std::signal(SIGPIPE, SIG_IGN);
  Command command(arguments, setting);
  int pipes[3][2];
  for (auto& ends : pipes) {
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
  }
  const pid_t child = ::fork();
  if (child == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    ::dup2(pipes[0][0], STDIN_FILENO);
    ::dup2(pipes[1][1], STDOUT_FILENO);
    ::dup2(pipes[2][1], STDERR_FILENO);
    command.execute();
  }
  ::close(pipes[0][0]);
  ::close(pipes[1][1]);
  ::close(pipes[2][1]);
  ToolResult result;
  std::string input = setting.input;
  std::vector<Channel> channels{{pipes[1][0], &result.output, false},
                                {pipes[2][0], &result.errors, false}};
  if (input.empty()) {
    ::close(pipes[0][1]);
  } else {
    channels.push_back({pipes[0][1], &input, true});
  }
  serve(channels, child, setting.awaited);
  result.status = waitFor(child);
  return result;
}

ToolResult runToolOnTerminal(const std::vector<std::string>& arguments, const ToolSetting& setting,
                             unsigned short columns) {
  std::signal(SIGPIPE, SIG_IGN);
  Command command(arguments, setting);
  winsize size{24, columns, 0, 0};
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child < 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  if (child == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    command.execute();
  }
  ToolResult result;
  std::string input = setting.input;
  std::vector<Channel> channels{{terminal, &result.output, false}};
  if (!input.empty()) {
    channels.push_back({::dup(terminal), &input, true});
  }
  serve(channels, child, setting.awaited);
  result.status = waitFor(child);
  return result;
}

}  // namespace KELP::Test
