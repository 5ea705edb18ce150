#include "base/command.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/text.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <linux/close_range.h>
#include <string_view>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

constexpr std::size_t kPieceSize = 65536;

std::string errorText(int error) {
  return std::system_category().message(error);
}

[[noreturn]] void fail(const std::string& what, int error) {
  throw Failure(ExitStatus::Failed, what + ": " + errorText(error));
}

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  /** -1 when there is none, which poll() passes over. */
  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

  void close() {
    if (isOpen()) {
      ::close(std::exchange(descriptor_, -1));
    }
  }

 private:
  int descriptor_ = -1;
};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      fail("cannot make a pipe", errno);
    }
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
  }

  Descriptor reading;
  Descriptor writing;
};

/** In the new process: becomes the program, or writes the error to @p report. Nothing here
 * allocates. */
[[noreturn]] void execute(char* const* arguments, int input, int output, int report) {
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));  // What is ignored stays so otherwise.
  if (::dup2(input, STDIN_FILENO) >= 0 && ::dup2(output, STDOUT_FILENO) >= 0 &&
      ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0) {
    ::execvp(arguments[0], arguments);
  }
  const int error = errno;
  static_cast<void>(::write(report, &error, sizeof(error)));
  ::_exit(127);
}

/** What execute() wrote to @p report; 0 when it became the program. */
int errorFrom(const Descriptor& report) {
  int error = 0;
  ssize_t size = 0;
  do {
    size = ::read(report.get(), &error, sizeof(error));
  } while (size < 0 && errno == EINTR);
  return size == sizeof(error) ? error : 0;
}

/** A program that runs, and has ended at the latest when this object has. */
class Process {
 public:
  explicit Process(std::vector<std::string> command) : name_(inQuotes(command[0])) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) {
      arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    // When it is ignored, nobody hears of how a program ended.
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
    Pipe toProgram;
    Pipe fromProgram;
    Pipe report;
    process_ = ::fork();
    if (process_ < 0) {
      fail("cannot run " + name_, errno);
    }
    if (process_ == 0) {
      execute(arguments.data(), toProgram.reading.get(), fromProgram.writing.get(),
              report.writing.get());
    }
    report.writing.close();
    if (const int error = errorFrom(report.reading); error != 0) {
      reap();
      fail("cannot run " + name_, error);
    }
    ended_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
    if (!ended_.isOpen()) {
      const int error = errno;
      end();
      fail("cannot watch " + name_, error);
    }
    input_ = std::move(toProgram.writing);
    output_ = std::move(fromProgram.reading);
    ::fcntl(input_.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(output_.get(), F_SETFL, O_NONBLOCK);
  }

  ~Process() {
    input_.close();
    output_.close();
    if (ended_.isOpen()) {
      end();
    }
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  Descriptor& input() { return input_; }
  Descriptor& output() { return output_; }
  /** Readable when it has ended; not open any more when that was seen. */
  [[nodiscard]] const Descriptor& ended() const { return ended_; }

  /** Takes note of its end. Throws a Failure unless it ended well. */
  void finish() {
    const int status = reap();
    ended_.close();
    if (WIFSIGNALED(status)) {
      const char* const text = ::sigdescr_np(WTERMSIG(status));
      throw Failure(ExitStatus::Failed,
                    "the command " + name_ + " was ended by signal " +
                        std::to_string(WTERMSIG(status)) +
                        (text == nullptr ? "" : std::string(" (") + text + ")"));
    }
    if (WEXITSTATUS(status) != 0) {
      throw Failure(ExitStatus::Failed, "the command " + name_ + " ended with status " +
                                            std::to_string(WEXITSTATUS(status)));
    }
  }

 private:
  /** Ends it: kindly at first. */
  void end() {
    constexpr int kPatienceMs = 2000;
    ::kill(process_, SIGTERM);
    pollfd ended{ended_.get(), POLLIN, 0};
    if (!ended_.isOpen() || ::poll(&ended, 1, kPatienceMs) != 1) {
      ::kill(process_, SIGKILL);
    }
    reap();
  }

  /** Waits for its end. @return the status. */
  int reap() const {
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
  }

  std::string name_;
  pid_t process_ = -1;
  Descriptor input_;
  Descriptor output_;
  Descriptor ended_;
};

/** Moves data between streams and a program until there is no more. */
class Pump {
 public:
  Pump(Process& process, std::istream& in, std::ostream& out)
      : process_(process), in_(in), out_(out) {}

  void run() {
    while (process_.output().isOpen() || process_.ended().isOpen()) {
      refill();
      std::array<pollfd, 3> polled{{{process_.input().get(), POLLOUT, 0},
                                    {process_.output().get(), POLLIN, 0},
                                    {process_.ended().get(), POLLIN, 0}}};
      checkInterrupt();
      if (!waitUntilReady(polled)) {
        continue;
      }
      if (polled[0].revents != 0) {
        feed();
      }
      if (polled[1].revents != 0) {
        drain();
      }
      if (polled[2].revents != 0) {
        process_.finish();
      }
    }
    if (!out_.flush()) {
      failToWrite();
    }
  }

 private:
  /** Sees to it that there is something to feed, or nothing to be fed. */
  void refill() {
    if (!left_.empty() || !process_.input().isOpen()) {
      return;
    }
    in_.read(fed_.data(), static_cast<std::streamsize>(fed_.size()));
    if (in_.bad()) {
      throw Failure(ExitStatus::Failed, "cannot read the stored file");
    }
    left_ = {fed_.data(), static_cast<std::size_t>(in_.gcount())};
    if (left_.empty()) {
      process_.input().close();
    }
  }

  void feed() {
    const ssize_t size = ::write(process_.input().get(), left_.data(), left_.size());
    if (size >= 0) {
      left_.remove_prefix(static_cast<std::size_t>(size));
    } else if (errno != EAGAIN && errno != EINTR) {
      process_.input().close();  // It does not want more.
    }
  }

  void drain() {
    const ssize_t size = ::read(process_.output().get(), drained_.data(), drained_.size());
    if (size > 0 && !out_.write(drained_.data(), size)) {
      failToWrite();
    }
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
      process_.output().close();
    }
  }

  [[noreturn]] static void failToWrite() { fail("cannot write the command's output", errno); }

  Process& process_;
  std::istream& in_;
  std::ostream& out_;
  std::array<char, kPieceSize> fed_{};
  std::array<char, kPieceSize> drained_{};
  std::string_view left_;
};

}  // namespace

void runFilter(const std::vector<std::string>& command, std::istream& in, std::ostream& out) {
  {
    Process process(command);
    Pump(process, in, out).run();
  }
  // Who interrupts on a terminal interrupts the command as well, which may call that a success.
  checkInterrupt();
}

}  // namespace KELP::Tool
