#pragma once

#include <iostream>
#include <string>
#include <string_view>

namespace CrashDemo {

/**
 * Prints what one process of the demo does. Each line begins with the process's role and id, and is
 * written at once and whole, so that the lines of several processes do not mix.
 *
 * The beginning is coloured when the output is a terminal and NO_COLOR is not set.
 */
class Console {
 public:
  /** @param colour number of the ANSI colour of the role, 30 to 37 or 90 to 97. */
  Console(std::string_view role, int colour);

  /** Prints one step. */
  void say(std::string_view text) const { print(std::cout, text); }
  /** Prints a name and a value in two columns. */
  void field(std::string_view name, std::string_view value) const;
  /** Prints a failure, on the error output. */
  void complain(std::string_view text) const { print(std::cerr, text); }

 private:
  void print(std::ostream& out, std::string_view text) const;

  std::string prefix_;
  int colour_;
};

}  // namespace CrashDemo
