// A process that is killed at any instant leaves each key with its old or its new value.

#include "integration/store/actor.h"
#include "integration/store/churn.h"

#include <signal.h>
#include <time.h>

#include <cstdlib>
#include <random>

namespace KELP::Test {
namespace {

constexpr int kKills = 220;

class StoreKilled : public StoreTest {
 protected:
  /** Lets a process make changes from number next_ on and kills it at some instant.
   *  @return the number of the last change that it told; next_ - 1 if it told none. */
  std::uint64_t churnAndKill() {
    Actor actor;
    actor.tell("open " + file().string() + ' ' + std::to_string(kReportOptions));
    actor.tell("churn " + std::to_string(next_));
    std::uint64_t last = next_ - 1;
    EXPECT_EQ(actor.answer(), "true") << "the store did not open";
    const auto take = [&](std::chrono::milliseconds limit) {
      const auto line = actor.process().receive(limit);
      if (line) last = std::strtoull(line->c_str(), nullptr, 10);
      return line.has_value();
    };
    for (std::size_t left = random_() % 40; left > 0; --left) {
      EXPECT_TRUE(take(std::chrono::seconds(30))) << "it stopped by itself";
    }
    const timespec instant{0, static_cast<long>(random_() % 400'000)};
    ::nanosleep(&instant, nullptr);
    actor.process().signal(SIGKILL);
    while (take(std::chrono::seconds(30))) {
    }
    EXPECT_EQ(actor.process().wait(), 128 + SIGKILL);
    return last;
  }

  /** Takes the acknowledged changes into the expected state, and the one after them if it was made.
   *  Fails when the store holds anything else. */
  void account(std::uint64_t acknowledged, const StoreMap& found) {
    for (; next_ <= acknowledged; ++next_) {
      applyChange(churnStep(next_), state_);
    }
    StoreMap withNext = state_;
    applyChange(churnStep(next_), withNext);
    if (found == state_) return;
    ASSERT_TRUE(found == withNext)
        << "neither after change " << acknowledged << " nor after the one that was being made";
    state_ = withNext;
    ++next_;
    ++unacknowledged_;
  }

  [[nodiscard]] const StoreMap& state() const { return state_; }
  [[nodiscard]] int unacknowledged() const { return unacknowledged_; }
  [[nodiscard]] std::uint64_t changes() const { return next_ - 1; }

 private:
  std::mt19937 random_{20240611};
  std::uint64_t next_ = 1;
  StoreMap state_;
  int unacknowledged_ = 0;
};

TEST_F(StoreKilled, AtRandomInstantsLosesNothingThatWasAcknowledged) {
  KeyValueStore openAllTheTime = open();
  int compactedRounds = 0;
  int tornRounds = 0;
  for (int round = 1; round <= kKills; ++round) {
    SCOPED_TRACE("kill " + std::to_string(round));
    const ino_t inode = statusOf(file()).st_ino;
    const std::uint64_t acknowledged = churnAndKill();
    compactedRounds += statusOf(file()).st_ino == inode ? 0 : 1;
    try {
      static_cast<void>(decodeStore(readFile(file())));
    } catch (const std::runtime_error&) {
      ++tornRounds;
    }

    KeyValueStore store = open();
    ASSERT_TRUE(store.isReady());
    ASSERT_NO_FATAL_FAILURE(account(acknowledged, readKeys(store, churnKeys())));
    ASSERT_TRUE(readKeys(openAllTheTime, churnKeys()) == state());

    const std::string survivor = "after kill " + std::to_string(round);
    ASSERT_TRUE((round % 2 == 0 ? store : openAllTheTime).set("survivor", survivor));
    ASSERT_EQ(open().get("survivor"), survivor);
    StoreMap all = state();
    all["survivor"] = survivor;
    ASSERT_TRUE(decodeStore(readFile(file())) == all);
  }
  RecordProperty("changes", std::to_string(changes()));
  RecordProperty("changes made but not acknowledged", unacknowledged());
  RecordProperty("rounds with a compaction", compactedRounds);
  RecordProperty("rounds that left a torn tail", tornRounds);
  EXPECT_GT(compactedRounds, kKills / 4);
  EXPECT_GT(unacknowledged(), 0) << "no kill came between a change and its acknowledgement";
  EXPECT_LE(entriesOf(directory().path()).size(), 2U) << "what killed compactions left piles up";
}

}  // namespace
}  // namespace KELP::Test
