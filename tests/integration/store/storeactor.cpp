// A process beside the tests' own: it reads commands, one a line, and answers each with one line,
// which is "true" or "false" where nothing else is said.
//
//   open FILE OPTIONS         whether the store is ready
//   close                     closes the store; "closed"
//   get KEY                   the value in short, as describeValue() tells it
//   set KEY SEED SIZE         sets patternValue(SEED, SIZE)
//   remove KEY
//   sync
//   isReady
//   churn FIRST               makes the changes churnStep(FIRST), ... without end and tells each
//                             number
//   write WRITER COUNT        sets its own key and a shared one COUNT times, reading back; "done"
//   read WRITERS COUNT        reads what the writers write until all are through; "done"
//   echo TEXT                 TEXT
//   user ID                   goes on as that user, "0" for back to root
//   fileLimit BYTES           no file may grow over that size; "-1" for any size
//   descriptorLimit MORE      that many more descriptors may be opened; "-1" for any number
//   interrupt MICROSECONDS    a signal interrupts it every so often
//   descriptors               what its descriptors from 3 on lead to
//   spawn                     starts a program that waits
//   reap                      ends that program
//
// Anything that goes wrong otherwise ends it with status 1 and a message.

#include "integration/arguments.h"
#include "integration/store/churn.h"
#include "support/childprocess.h"
#include "support/descriptors.h"
#include "unit/os/storefixture.h"

#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

using KELP::OS::KeyValueStore;
using KELP::Test::next;
using KELP::Test::StoreChange;

using Clock = std::chrono::steady_clock;

/** A reader that sees nothing new for so long, while others write, sees nothing any more. */
constexpr std::chrono::seconds kNoProgress{20};

std::string told(bool result) {
  return result ? "true" : "false";
}

class Actor {
 public:
  /** Carries out one command. @return its answer. */
  std::string answer(const std::string& command) {
    std::istringstream words(command);
    const std::string name = next<std::string>(words);
    const auto found = commands_.find(name);
    if (found == commands_.end()) {
      throw std::runtime_error("no such command: " + command);
    }
    return (this->*found->second)(words);
  }

 private:
  using Command = std::string (Actor::*)(std::istream&);

  KeyValueStore& store() {
    if (!store_) throw std::runtime_error("no store is open");
    return *store_;
  }

  std::string open(std::istream& words) {
    const auto file = next<std::string>(words);
    const auto options = next<unsigned long>(words);
    store_.reset();
    store_ = std::make_unique<KeyValueStore>(file, "metadata",
                                             KeyValueStore::Options::fromValue(options));
    return told(store_->isReady());
  }

  std::string close(std::istream&) {
    store_.reset();
    return "closed";
  }

  std::string get(std::istream& words) {
    return KELP::Test::describeValue(store().get(next<std::string>(words)));
  }

  std::string set(std::istream& words) {
    const auto key = next<std::string>(words);
    const auto seed = next<std::uint64_t>(words);
    const auto size = next<std::size_t>(words);
    return told(store().set(key, KELP::Test::patternValue(seed, size)));
  }

  std::string remove(std::istream& words) { return told(store().remove(next<std::string>(words))); }

  std::string sync(std::istream&) { return told(store().sync()); }
  std::string isReady(std::istream&) { return told(store().isReady()); }

  std::string churn(std::istream& words) {
    for (auto number = next<std::uint64_t>(words);; ++number) {
      const StoreChange change = KELP::Test::churnStep(number);
      if (!(change.value ? store().set(change.key, *change.value) : store().remove(change.key))) {
        throw std::runtime_error("change " + std::to_string(number) + " was refused");
      }
      std::cout << number << std::endl;
    }
  }

  std::string write(std::istream& words) {
    const auto writer = next<std::uint64_t>(words);
    const auto count = next<std::uint64_t>(words);
    startInterruptions(interval_);
    std::string result = writeAll(writer, count);
    startInterruptions({});
    return result;
  }

  std::string writeAll(std::uint64_t writer, std::uint64_t count) {
    const std::string own = "writer" + std::to_string(writer);
    for (std::uint64_t number = 1; number <= count; ++number) {
      const std::string value = KELP::Test::stampedValue(writer, number);
      if (!store().set(own, value) || !store().set("shared", value)) {
        return "change " + std::to_string(number) + " was refused";
      }
      if (store().get(own) != value) {
        return "change " + std::to_string(number) + " was lost";
      }
    }
    return "done";
  }

  std::string read(std::istream& words) {
    const auto writers = next<std::uint64_t>(words);
    const auto count = next<std::uint64_t>(words);
    Readings readings;
    auto progress = Clock::now();
    for (std::uint64_t before = 0;;) {
      for (std::uint64_t writer = 1; writer <= writers; ++writer) {
        readings.look(store().get("writer" + std::to_string(writer)), writer, "own");
      }
      readings.look(store().get("shared"), 0, "shared");
      if (!store().isReady()) return "not ready";
      if (!readings.problem().empty()) return readings.problem();
      if (readings.sum("own") == writers * count) return "done";
      if (readings.sum("own") != before) {
        before = readings.sum("own");
        progress = Clock::now();
      } else if (Clock::now() - progress > kNoProgress) {
        return "after change " + std::to_string(before) + " nothing new was seen";
      }
    }
  }

  /** The newest number that was read of each writer, under each key. */
  class Readings {
   public:
    /** Takes in a value of @p writer, or of any when that is 0. */
    void look(const std::optional<std::string>& value, std::uint64_t writer,
              const std::string& key) {
      if (!value) {
        if (newest_.contains({writer, key})) problem_ = "a value vanished";
        return;
      }
      const auto stamp = KELP::Test::readStamp(*value);
      if (!stamp || (writer != 0 && stamp->writer != writer)) {
        problem_ = "not what was written: " + KELP::Test::describeValue(value);
        return;
      }
      std::uint64_t& newest = newest_[{stamp->writer, key}];
      if (stamp->number < newest) {
        problem_ = "value " + std::to_string(stamp->number) + " after " + std::to_string(newest);
      }
      newest = stamp->number;
    }
    /** What was wrong with the values; empty if nothing was. */
    [[nodiscard]] const std::string& problem() const { return problem_; }
    /** The sum of the newest numbers of all writers under that kind of key. */
    [[nodiscard]] std::uint64_t sum(const std::string& key) const {
      std::uint64_t total = 0;
      for (const auto& [of, newest] : newest_) {
        total += of.second == key ? newest : 0;
      }
      return total;
    }

   private:
    std::map<std::pair<std::uint64_t, std::string>, std::uint64_t> newest_;
    std::string problem_;
  };

  std::string echo(std::istream& words) { return next<std::string>(words); }

  std::string user(std::istream& words) {
    const auto id = next<unsigned>(words);
    if (::geteuid() != 0 && ::seteuid(0) != 0) return told(false);
    const bool done = ::setgroups(0, nullptr) == 0 && ::setegid(id) == 0 && ::seteuid(id) == 0;
    // A process that changed its user could no longer be looked into by the leak checker.
    return told(::prctl(PR_SET_DUMPABLE, 1) == 0 && done);
  }

  static bool setLimit(__rlimit_resource resource, rlim_t value) {
    rlimit limit{};
    if (::getrlimit(resource, &limit) != 0) return false;
    limit.rlim_cur = std::min(value, limit.rlim_max);
    return ::setrlimit(resource, &limit) == 0;
  }

  std::string fileLimit(std::istream& words) {
    ::signal(SIGXFSZ, SIG_IGN);
    const auto bytes = next<long>(words);
    return told(setLimit(RLIMIT_FSIZE, bytes < 0 ? RLIM_INFINITY : static_cast<rlim_t>(bytes)));
  }

  std::string descriptorLimit(std::istream& words) {
    const auto more = next<long>(words);
    if (more < 0) return told(setLimit(RLIMIT_NOFILE, 1024));
    // All numbers below the first free one are in use.
    const int firstFree = ::dup(STDIN_FILENO);
    ::close(firstFree);
    return told(setLimit(RLIMIT_NOFILE, static_cast<rlim_t>(firstFree + more)));
  }

  std::string interrupt(std::istream& words) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // No SA_RESTART: calls that wait end with EINTR.
    interval_.tv_usec = next<suseconds_t>(words);
    return told(::sigaction(SIGALRM, &action, nullptr) == 0);
  }

  /** Sends the process SIGALRM every @p interval; never when that is 0. */
  static void startInterruptions(timeval interval) {
    const itimerval timer{interval, interval};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }

  std::string descriptors(std::istream&) {
    std::string all;
    for (const auto& [descriptor, target] : KELP::Test::descriptorsOf("self")) {
      if (descriptor > 2) {
        all += target + ' ';
      }
    }
    return all;
  }

  std::string spawn(std::istream&) {
    child_ = std::make_unique<KELP::Test::ChildProcess>(
        std::vector<std::string>{std::filesystem::read_symlink("/proc/self/exe").string()});
    child_->send("echo here");
    return told(child_->receive() == "here");
  }

  std::string reap(std::istream&) {
    child_.reset();
    return told(true);
  }

  const std::map<std::string, Command> commands_{
      {"open", &Actor::open},
      {"close", &Actor::close},
      {"get", &Actor::get},
      {"set", &Actor::set},
      {"remove", &Actor::remove},
      {"sync", &Actor::sync},
      {"isReady", &Actor::isReady},
      {"churn", &Actor::churn},
      {"write", &Actor::write},
      {"read", &Actor::read},
      {"echo", &Actor::echo},
      {"user", &Actor::user},
      {"fileLimit", &Actor::fileLimit},
      {"descriptorLimit", &Actor::descriptorLimit},
      {"interrupt", &Actor::interrupt},
      {"descriptors", &Actor::descriptors},
      {"spawn", &Actor::spawn},
      {"reap", &Actor::reap},
  };
  std::unique_ptr<KeyValueStore> store_;
  std::unique_ptr<KELP::Test::ChildProcess> child_;
  timeval interval_{};
};

}  // namespace

int main() {
  try {
    Actor actor;
    for (std::string command; std::getline(std::cin, command);) {
      std::cout << actor.answer(command) << std::endl;
    }
  } catch (const std::exception& problem) {
    std::cerr << "store_actor: " << problem.what() << std::endl;
    return 1;
  }
  return 0;
}
