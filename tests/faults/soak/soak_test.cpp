// Many processes do whatever there is to do on one root, and are killed all the time; nothing that
// was acknowledged may be lost.

#include "faults/soak/journal.h"
#include "support/childprocess.h"
#include "support/sanitizers.h"
#include "support/setting.h"
#include "support/temporarydirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Test::Soak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kWorkers = 8;

struct Measure {
  long descriptors = 0;
  long residentKib = 0;
};

class Soak : public testing::Test {
 protected:
  using Process = std::unique_ptr<ChildProcess>;

  Soak() { std::filesystem::create_directory(root_); }

  Process begin(const std::string& role, const std::string& who) {
    return std::make_unique<ChildProcess>(std::vector<std::string>{
        KELP_SOAK_ACTOR, role, root_, directory_ / "", who, std::to_string(random_())});
  }

  void beginWorker(std::size_t place) {
    names_.at(place) = "w" + std::to_string(++begun_);
    workers_.at(place) = begin("work", names_[place]);
  }

  /** Waits for the end of a worker, however it comes. */
  void end(std::size_t place, const testing::Matcher<int>& expected) {
    EXPECT_THAT(workers_[place]->wait(), expected) << names_[place];
    workers_[place].reset();
    std::filesystem::remove(directory_ / names_[place]);  // What it copied into reports.
    journal_.writeFor(names_[place], Kind::Ended, "-");
  }

  /** Half of them while they change something, if that comes soon. */
  void kill(std::size_t place) {
    if (random_() % 2 == 0) {
      constexpr milliseconds kRespite{150};
      workers_[place]->signal(SIGUSR1);
      static_cast<void>(workers_[place]->receive(kRespite));  // Its output ends with it.
    }
    workers_[place]->signal(SIGKILL);
    // One that has hardly begun does not know the other signal yet.
    end(place, testing::AnyOf(128 + SIGKILL, 128 + SIGUSR1));
  }

  static Measure measure(ChildProcess& process) {
    process.send("measure");
    Measure measure;
    std::istringstream answer(process.receive(std::chrono::minutes(2)).value_or(""));
    EXPECT_TRUE(answer >> measure.descriptors >> measure.residentKib) << "no answer";
    return measure;
  }

  /** Kills one worker after the other until @p end. */
  void killUntil(Clock::time_point end) {
    for (;;) {
      const auto pause = milliseconds(50 + random_() % 451);
      if (Clock::now() + pause > end) {
        std::this_thread::sleep_until(end);
        return;
      }
      std::this_thread::sleep_for(pause);
      const std::size_t place = random_() % kWorkers;
      kill(place);
      ++kills_;
      beginWorker(place);
    }
  }

  void endWorkers() {
    for (const Process& worker : workers_) {
      worker->closeInput();
    }
    for (std::size_t place = 0; place < kWorkers; ++place) {
      end(place, 0);
    }
  }

  TemporaryDirectory directory_;
  const std::filesystem::path root_ = directory_ / "root";
  Journal journal_{directory_ / "journal", "supervisor"};
  const std::uint64_t seed_ = setting("KELP_SOAK_SEED", std::random_device()());
  std::mt19937_64 random_{seed_};
  std::vector<Process> workers_{kWorkers};
  std::vector<std::string> names_{kWorkers};
  std::size_t begun_ = 0;
  std::size_t kills_ = 0;
};

void expectNoGrowth(const char* who, const Measure& early, const Measure& late) {
  std::cout << who << ": " << early.descriptors << " descriptors, then " << late.descriptors << "; "
            << early.residentKib << " KiB, then " << late.residentKib << '\n';
  EXPECT_EQ(early.descriptors, late.descriptors) << who;
  if (!kHasAddressSanitizer && !kHasThreadSanitizer) {  // They keep what was freed.
    constexpr long kGrowthKib = 16 * 1024;
    EXPECT_LE(late.residentKib, early.residentKib + kGrowthKib) << who;
  }
}

TEST_F(Soak, NothingAcknowledgedIsLost) {
  const seconds duration(
      setting("KELP_SOAK_SECONDS", kHasAddressSanitizer || kHasThreadSanitizer ? 5 : 45));
  std::cout << "KELP_SOAK_SECONDS=" << duration.count() << " KELP_SOAK_SEED=" << seed_ << std::endl;
  const Process checker = begin("check", "checker");
  const Process observer = begin("observe", "observer");
  static_cast<void>(measure(*observer));  // It has started then.
  const Process lister = begin("list", "lister");
  const auto start = Clock::now();
  for (std::size_t place = 0; place < kWorkers; ++place) {
    beginWorker(place);
  }
  killUntil(start + duration / 4);
  const Measure observerEarly = measure(*observer);
  const Measure listerEarly = measure(*lister);
  killUntil(start + duration);
  endWorkers();
  expectNoGrowth("lister", listerEarly, measure(*lister));
  lister->closeInput();
  EXPECT_EQ(lister->wait(), 0);

  checker->closeInput();
  std::cout << "kills: " << kills_ << '\n';
  while (const auto line = checker->receive(std::chrono::minutes(2))) {
    std::cout << *line << '\n';
  }
  EXPECT_EQ(checker->wait(), 0) << "a promise was broken";
  expectNoGrowth("observer", observerEarly, measure(*observer));
  observer->closeInput();
  EXPECT_EQ(observer->wait(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(root_));
  constexpr std::size_t kFewKills = 3;  // One in so many seconds, on a busy machine.
  EXPECT_GT(kFewKills * kills_, static_cast<std::size_t>(duration.count()));
}

}  // namespace
}  // namespace KELP::Test::Soak
