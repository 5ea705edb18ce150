// Writers and readers at once, each a process of its own.

#include "integration/store/actor.h"
#include "integration/store/churn.h"

#include <memory>

namespace KELP::Test {
namespace {

constexpr std::uint64_t kWriters = 2;
constexpr std::uint64_t kChanges = 1500;

class StoreAtOnce : public StoreTest {
 protected:
  Actor& start() {
    actors_.push_back(std::make_unique<Actor>());
    EXPECT_TRUE(actors_.back()->open(file()));
    return *actors_.back();
  }

  /** Starts the writers and readers, lets them run to their end and looks at what is left. */
  void run(std::uint64_t readers) {
    const std::string count = ' ' + std::to_string(kChanges);
    std::vector<Actor*> running;
    for (std::uint64_t i = 0; i < kWriters + readers; ++i) {
      running.push_back(&start());
    }
    for (std::uint64_t i = 0; i < running.size(); ++i) {
      running[i]->tell(i < kWriters ? "write " + std::to_string(i + 1) + count
                                    : "read " + std::to_string(kWriters) + count);
    }
    for (std::uint64_t i = 0; i < running.size(); ++i) {
      EXPECT_EQ(running[i]->answer(std::chrono::minutes(2)), "done")
          << (i < kWriters ? "writer " : "reader ") << i;
    }
  }

  void expectLastValues() {
    const StoreMap left = decodeStore(readFile(file()));
    EXPECT_EQ(left.size(), kWriters + 1);
    for (std::uint64_t writer = 1; writer <= kWriters; ++writer) {
      const auto found = left.find("writer" + std::to_string(writer));
      ASSERT_NE(found, left.end());
      EXPECT_TRUE(found->second == stampedValue(writer, kChanges));
    }
    ASSERT_TRUE(left.contains("shared"));
    const auto stamp = readStamp(left.at("shared"));
    ASSERT_TRUE(stamp.has_value());
    EXPECT_EQ(stamp->number, kChanges);
  }

 private:
  std::vector<std::unique_ptr<Actor>> actors_;
};

TEST_F(StoreAtOnce, TwoWritersAndTwoReadersSeeWholeValuesInTheirOrder) {
  run(2);
  expectLastValues();
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

}  // namespace
}  // namespace KELP::Test
