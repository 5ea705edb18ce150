#include "connection.h"

#include "steps.h"

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace CrashDemo {

Connection::Connection() {
  int ends[2];
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "making a socket");
  ownEnd_ = ends[0];
  programEnd_ = ends[1];
}

Connection::~Connection() {
  ::close(ownEnd_);
  leaveProgramEnd();
}

void Connection::leaveProgramEnd() {
  if (programEnd_ >= 0) {
    ::close(std::exchange(programEnd_, -1));
  }
}

}  // namespace CrashDemo
