// Tries operations, one for each line that is read: first "tried" and what it came to, then a line
// "logged" for each of the log, then "end".

#include "faults/hostile/operations.h"
#include "support/logcapture.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace KELP::Test {
namespace {

/** On one line. */
std::string line(std::string text) {
  std::ranges::replace(text, '\n', '?');
  return text;
}

std::string tried(const std::string& name, const Subject& subject) {
  const auto operation = std::ranges::find(operations(), name, &Operation::name);
  if (operation == operations().end()) {
    return "no such operation";
  }
  try {
    return operation->run(subject);
  } catch (const std::filesystem::filesystem_error& error) {
    return "thrown " + std::to_string(error.code().value());
  }
}

bool becomeNobody() {
  constexpr uid_t kNobody = 65534;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
         ::setresuid(kNobody, kNobody, kNobody) == 0;
}

}  // namespace
}  // namespace KELP::Test

int main(int count, char** arguments) {
  using namespace KELP::Test;
  if (count < 4) {
    std::cerr << "usage: hostile_actor ROOT ID SOURCE [nobody]\n";
    return 2;
  }
  Subject subject{arguments[1], {}, arguments[3]};
  if (!subject.id.parse(arguments[2]) || (count > 4 && !becomeNobody())) {
    return 2;
  }
  for (std::string name; std::getline(std::cin, name);) {
    LogCapture log;
    std::cout << "tried " << line(tried(name, subject)) << '\n';
    for (const LogLine& logged : log.take()) {
      std::cout << "logged " << line(logged.text) << '\n';
    }
    std::cout << "end" << std::endl;
  }
  return 0;
}
