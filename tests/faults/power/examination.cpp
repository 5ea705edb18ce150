#include "faults/power/examination.h"

#include "support/childprocess.h"

#include <sstream>

namespace KELP::Test {

std::string describeState(const StoreMap& state) {
  std::string line;
  for (const auto& [key, value] : state) {
    const bool isShort = value.size() < 40 && value.find('\n') == std::string::npos;
    line += key + '=' + (isShort ? value : describeValue(value)) + "; ";
  }
  return line;
}

Examination examine(ChildProcess& examiner) {
  examiner.send("look");
  Examination found;
  for (;;) {
    const auto line = examiner.receive();
    if (!line) {
      found.faults.emplace_back("the process that looked ended, or hung");
      return found;
    }
    std::istringstream words(*line);
    std::string kind;
    std::string name;
    std::string rest;
    words >> kind;
    if (kind == "done") return found;
    words >> name >> std::ws;
    std::getline(words, rest);
    if (kind == "opens") {
      found.states[name] = rest;
    } else if (kind == "fails") {
      found.failures[name] = rest;
    } else {
      found.faults.push_back(*line);
    }
  }
}

}  // namespace KELP::Test
