// Several processes change the contents of one report, each under the write lock: nothing is lost.

#include "support/childprocess.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

constexpr int kProcesses = 3;
constexpr int kChanges = 60;

class ConcurrentChanges : public ReportTest {
 protected:
  ConcurrentChanges() {
    {
      const auto report = create();
      EXPECT_THAT(report->acquireWriteLock(true), Succeeds());
      EXPECT_THAT(report->createReportIntegerProperty("shared", {}), Succeeds());
    }
    for (int i = 0; i < kProcesses; ++i) {
      actors_.push_back(std::make_unique<ChildProcess>(
          std::vector<std::string>{CONTENTS_ACTOR, root_.string(), kIdText}));
    }
    for (const auto& actor : actors_) {
      EXPECT_EQ(actor->receive(), "ready");
    }
  }

  static std::string command(const std::string& name, int first, int count) {
    return name + ' ' + std::to_string(first) + ' ' + std::to_string(count);
  }
  /** The numbers of an actor are its own. */
  static int firstOf(int actor) { return actor * 1000; }
  ChildProcess& actor(int i) { return *actors_[static_cast<std::size_t>(i)]; }

  /** Lets all processes make their changes at once. */
  void changeAtOnce(const std::string& name) {
    for (int i = 0; i < kProcesses; ++i) {
      actor(i).send(command(name, firstOf(i), kChanges));
    }
    for (int i = 0; i < kProcesses; ++i) {
      EXPECT_EQ(actor(i).receive(std::chrono::minutes(2)), "ok");
    }
  }

  static std::vector<int> allNumbers() {
    std::vector<int> numbers;
    for (int i = 0; i < kProcesses; ++i) {
      for (int k = 0; k < kChanges; ++k) {
        numbers.push_back(firstOf(i) + k);
      }
    }
    return numbers;
  }

  /** The property "shared", which must be there. */
  DiagnosticReportContentProperties shared() const {
    const auto report = open();
    return report->getReportIntegerProperty("shared").value();
  }

  /** The levels of its variations in their order; their values must be the same. */
  std::vector<int> levels() const {
    std::vector<int> found;
    for (const auto& variation : shared().variations) {
      EXPECT_EQ(variation.integer, variation.sensitivity_level);
      found.push_back(variation.sensitivity_level);
    }
    return found;
  }

  /** Expects @p numbers to be those of all processes, each process's in the order of its changes.
   */
  static void expectAllInOrder(const std::vector<int>& numbers) {
    std::vector<int> byProcess = numbers;
    std::ranges::stable_sort(byProcess, {}, [](int number) { return number / 1000; });
    EXPECT_EQ(byProcess, allNumbers());
  }

  std::vector<std::unique_ptr<ChildProcess>> actors_;
};

TEST_F(ConcurrentChanges, InTurnsEachSeesTheOthers) {
  std::vector<int> expected;
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < kProcesses; ++i) {
      const int level = firstOf(i) + round;
      actor(i).send(command("add", level, 1));
      ASSERT_EQ(actor(i).receive(), "ok");
      expected.push_back(level);
    }
  }
  EXPECT_EQ(levels(), expected);

  actor(1).send(command("remove", firstOf(0), 1));
  ASSERT_EQ(actor(1).receive(), "ok");
  actor(2).send(command("add", firstOf(1), 1));
  EXPECT_EQ(actor(2).receive(), "Variation already exists and overwrite is not allowed");
  actor(2).send(command("add", firstOf(0), 1));
  EXPECT_EQ(actor(2).receive(), "ok");
  expected.erase(expected.begin());
  expected.push_back(firstOf(0));
  EXPECT_EQ(levels(), expected);
}

TEST_F(ConcurrentChanges, AtOnceLoseNoVariation) {
  changeAtOnce("add");
  expectAllInOrder(levels());
}

TEST_F(ConcurrentChanges, AtOnceRemoveAllVariations) {
  changeAtOnce("add");
  changeAtOnce("remove");
  EXPECT_THAT(levels(), testing::IsEmpty());
}

TEST_F(ConcurrentChanges, AtOnceLoseNoTag) {
  changeAtOnce("tag");
  const auto property = shared();
  std::vector<int> numbers;
  for (const std::string& tag : property.tags) {
    numbers.push_back(std::stoi(tag));
  }
  EXPECT_THAT(numbers, testing::UnorderedElementsAreArray(allNumbers()));
}

TEST_F(ConcurrentChanges, AtOnceLoseNoProperty) {
  changeAtOnce("create");
  const auto contents = open()->getReportContents().value();
  std::vector<int> numbers;
  for (const auto& property : contents) {
    if (property.stable_id != "shared") {
      numbers.push_back(std::stoi(property.stable_id));
    }
  }
  expectAllInOrder(numbers);
}

TEST_F(ConcurrentChanges, OfDifferentKindsLoseNothing) {
  actor(0).send(command("add", firstOf(0), kChanges));
  actor(1).send(command("tag", firstOf(1), kChanges));
  actor(2).send(command("create", firstOf(2), kChanges));
  for (int i = 0; i < kProcesses; ++i) {
    EXPECT_EQ(actor(i).receive(std::chrono::minutes(2)), "ok");
  }
  EXPECT_EQ(levels().size(), static_cast<std::size_t>(kChanges));
  EXPECT_EQ(shared().tags.size(), static_cast<std::size_t>(kChanges));
  EXPECT_EQ(open()->getReportContents()->size(), static_cast<std::size_t>(kChanges) + 1);
}

}  // namespace
}  // namespace KELP::Diagnostic
