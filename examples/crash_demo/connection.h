#pragma once

namespace CrashDemo {

/** A socket between this process and a program that it starts. The program gets its end as an
 *  inherited descriptor (see Program). Each side sees when the other is gone. */
class Connection {
 public:
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] int ownEnd() const { return ownEnd_; }
  [[nodiscard]] int programEnd() const { return programEnd_; }

  /** Closes the program's end here, when the program has it. Otherwise it would never be closed. */
  void leaveProgramEnd();

 private:
  int ownEnd_ = -1;
  int programEnd_ = -1;
};

}  // namespace CrashDemo
