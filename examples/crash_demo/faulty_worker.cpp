// A program with a bug: it believes a count that is one too high, and reads memory that is not its
// own. It writes a log, and knows nothing of reports. All that it does about its crash is to hold
// still in its signal handler until its watcher has had a look at it.

#include "console.h"
#include "crashnotice.h"
#include "workerlog.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>

namespace {

using CrashDemo::Console;

/** Called by the kernel in the middle of the bad access, so it may make system calls only. */
void handOver(int signal, siginfo_t* info, void* /*context*/) {
  const CrashDemo::CrashNotice notice{
      signal, info->si_code,
      static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(info->si_addr))};
  char seen = 0;
  if (::write(CrashDemo::kWatcherDescriptor, &notice, sizeof notice) == sizeof notice) {
    while (::read(CrashDemo::kWatcherDescriptor, &seen, 1) < 0 && errno == EINTR) {
    }
  }
  struct sigaction normal {};
  normal.sa_handler = SIG_DFL;
  ::sigaction(signal, &normal, nullptr);  // The access is now repeated, and ends the process.
}

bool installHandler() {
  struct sigaction action {};
  action.sa_sigaction = handOver;
  action.sa_flags = SA_SIGINFO;
  const rlimit noCore{0, 0};
  return ::sigaction(SIGSEGV, &action, nullptr) == 0 && ::setrlimit(RLIMIT_CORE, &noCore) == 0;
}

/** Samples in blocks of one page, with a page behind the last block that must not be touched. */
class Samples {
 public:
  explicit Samples(std::size_t blocks) : page_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) {
    void* memory = ::mmap(nullptr, (blocks + 1) * page_, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED ||
        ::mprotect(static_cast<char*>(memory) + blocks * page_, page_, PROT_NONE) != 0) {
      std::abort();
    }
    first_ = static_cast<int*>(memory);
    std::iota(first_, block(blocks), 1);
  }

  [[nodiscard]] int* block(std::size_t index) const {
    return first_ + index * (page_ / sizeof(int));
  }

 private:
  std::size_t page_;
  int* first_;
};

std::string hexadecimal(const void* address) {
  std::ostringstream text;
  text << "0x" << std::hex << reinterpret_cast<std::uintptr_t>(address);
  return text.str();
}

/** A log whose lines a crash does not take along: each is in the file before the work goes on. It
 *  is one as programs write them, which think of who looks for a fault and not of privacy. */
class Log {
 public:
  explicit Log(const std::filesystem::path& file) : stream_(file) {}

  [[nodiscard]] bool isSound() const { return stream_.good(); }
  void note(const std::string& line) { stream_ << line << std::endl; }

 private:
  std::ofstream stream_;
};

}  // namespace

int main(int argc, char** argv) {
  const Console console("worker", 31);
  if (!installHandler()) {
    console.complain("cannot install the signal handler");
    return 1;
  }
  Log log(
      CrashDemo::logFileOf(argc > 1 ? argv[1] : ".", program_invocation_short_name, ::getpid()));
  if (!log.isSound()) {
    console.complain("cannot write the log");
    return 1;
  }
  log.note("read settings from /home/robin/.config/worker.conf");
  log.note("signed in to the sample store, token=0d6f4c1e");

  constexpr std::size_t kBlocks = 3;
  constexpr std::size_t kBelievedBlocks = kBlocks + 1;
  const Samples samples(kBlocks);

  log.note("adding up " + std::to_string(kBelievedBlocks) + " blocks");
  console.say("adding up " + std::to_string(kBelievedBlocks) + " blocks of samples");
  for (std::size_t i = 0; i < kBelievedBlocks; ++i) {
    const std::string name = "block " + std::to_string(i + 1);
    console.say("reading " + name + " at " + hexadecimal(samples.block(i)));
    log.note("reading " + name);
    const long long sum = std::accumulate(samples.block(i), samples.block(i + 1), 0LL);
    console.say(name + " adds up to " + std::to_string(sum));
    log.note(name + " adds up to " + std::to_string(sum));
    log.note("saved the sum to /home/robin/sums/" + std::to_string(i + 1) + ".txt");
  }
  console.say("finished, which should not have happened");
}
