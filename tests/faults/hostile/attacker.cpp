// Exchanges two entries, again and again, for as long as its standard input is open; in between it
// stops for a moment of random length. Then prints how often it did.
//
// attacker SEED ONE OTHER

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr unsigned kExchange = 2;  // RENAME_EXCHANGE

bool inputIsOpen() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fputs("usage: attacker SEED ONE OTHER\n", stderr);
    return 2;
  }
  std::mt19937 random(static_cast<unsigned>(std::strtoul(arguments[1], nullptr, 10)));
  std::uniform_int_distribution<int> magnitude(0, 14);
  unsigned long done = 0;
  while (inputIsOpen()) {
    done += ::syscall(SYS_renameat2, AT_FDCWD, arguments[2], AT_FDCWD, arguments[3], kExchange) == 0
                ? 1
                : 0;
    random.discard(1ULL << magnitude(random));
  }
  std::printf("%lu\n", done);
  return 0;
}
