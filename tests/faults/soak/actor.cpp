// One process of the soak.
//
//   soak_actor ROLE ROOT WORK WHO SEED

#include "faults/soak/roles.h"

#include <exception>
#include <iostream>
#include <map>
#include <string>

int main(int count, char** arguments) try {
  using namespace KELP::Test::Soak;
  const std::map<std::string, int (*)(const Place&)> roles{
      {"work", work}, {"observe", observe}, {"list", list}, {"check", check}};
  if (count != 6 || !roles.contains(arguments[1])) {
    std::cerr << "usage: soak_actor work|observe|list|check ROOT WORK WHO SEED\n";
    return 2;
  }
  const Place place{arguments[2], arguments[3], arguments[4], std::stoull(arguments[5])};
  return roles.at(arguments[1])(place);
} catch (const std::exception& failure) {
  std::cerr << "soak_actor: " << failure.what() << '\n';
  return 1;
}
