#include "program.h"

#include "steps.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace CrashDemo {

std::filesystem::path ownPath() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

Program::Program(std::vector<std::string> command, int inherited, int as) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& argument : command) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  if (inherited >= 0) {
    ::posix_spawn_file_actions_adddup2(&actions, inherited, as);
  }
  const int error =
      ::posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  require(error == 0, "starting " + command.front());
  running_ = true;
}

Program::~Program() {
  if (running_) {
    ::kill(pid_, SIGKILL);
    wait();
  }
}

int Program::wait() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  running_ = false;
  return status;
}

}  // namespace CrashDemo
