#include "integration/report/actor.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticdata.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
using Names = std::set<std::string>;

constexpr std::size_t kProcesses = 6;

class ReportRace : public ReportTest {
 protected:
  ReportRace() {
    for (auto& actor : actors_) {
      actor = std::make_unique<Actor>(root_);
    }
  }

  [[nodiscard]] std::filesystem::path journal(std::size_t process) const {
    return directory_ / ("journal" + std::to_string(process));
  }
  /** What the processes recorded of @p event. */
  [[nodiscard]] Names recorded(const std::string& event) const {
    Names names;
    for (std::size_t i = 0; i < kProcesses; ++i) {
      std::ifstream lines(journal(i));
      for (std::string what, name; lines >> what >> name;) {
        if (what == event) {
          names.insert(name);
        }
      }
    }
    return names;
  }
  /** Expects that every process is still there and ends in order. */
  void expectOrderlyEnd() {
    for (auto& actor : actors_) {
      actor->process().closeInput();
      EXPECT_EQ(actor->process().wait(), 0);
    }
  }

  std::array<std::unique_ptr<Actor>, kProcesses> actors_;
};

TEST_F(ReportRace, LosesNoReportThatWasCreated) {
  for (std::size_t i = 0; i < kProcesses; ++i) {
    actors_[i]->tell("race 4000 " + std::to_string(i) + " " + journal(i).string());
  }
  for (auto& actor : actors_) {
    std::istringstream summary(actor->answer());
    std::string word;
    std::array<std::size_t, 4> counts{};
    summary >> word >> counts[0] >> counts[1] >> counts[2] >> counts[3];
    EXPECT_EQ(word, "raced");
    EXPECT_TRUE(summary) << "created, deleted, opened and listed are counted";
    EXPECT_GT(counts[3], 0U);
  }
  expectOrderlyEnd();

  const Names created = recorded("created");
  const Names deleted = recorded("deleted");
  EXPECT_FALSE(created.empty());
  EXPECT_FALSE(deleted.empty());
  for (const std::string& name : created) {
    if (!deleted.contains(name)) {
      EXPECT_NE(repository_.openReport(uuid(name.c_str())), nullptr) << name << " was lost";
    }
  }
  for (const std::string& name : deleted) {
    EXPECT_FALSE(std::filesystem::exists(root_ / name)) << name << " came back";
  }
  EXPECT_THAT(log_.take(), IsEmpty());

  for (const std::string& name : namesIn(root_)) {
    EXPECT_TRUE(created.contains(name)) << name << " is left, but no creation of it succeeded";
    EXPECT_THAT(repository_.deleteReport(uuid(name.c_str()), true), Succeeds());
  }
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

// Who opens a report while it is removed puts its files back for a moment.
TEST_F(ReportRace, DeletesAReportThatOthersAreJustOpening) {
  constexpr std::chrono::milliseconds kDuration{3000};
  for (auto& actor : actors_) {
    actor->tell("list-for " + std::to_string(kDuration.count()));
  }
  int deleted = 0;
  const auto end = std::chrono::steady_clock::now() + kDuration;
  while (std::chrono::steady_clock::now() < end) {
    const ReportUuid id = repository_.createReport(1, 2, 3, "device", "session")->getId();
    DiagnosticReport::Result result = repository_.deleteReport(id, false);
    // A lister has the lock for a moment.
    while (!result && result.error().message == "Unable to acquire write lock on report") {
      result = repository_.deleteReport(id, false);
    }
    ASSERT_THAT(result, Succeeds());
    ASSERT_FALSE(std::filesystem::exists(root_ / id.toString()));
    ++deleted;
  }
  EXPECT_GT(deleted, 10);
  for (auto& actor : actors_) {
    EXPECT_GT(std::stoul(actor->answer()), 0U);
  }
  expectOrderlyEnd();
}

// Each takes away what the other is about to remove. Both have the lock, since it is given up
// before.
TEST_F(ReportRace, DeletesAReportThatAnotherIsDeleting) {
  constexpr int kRounds = 200;
  constexpr int kDirectories = 20;
  for (int round = 0; round < kRounds; ++round) {
    const ReportUuid id = repository_.createReport(1, 2, 3, "device", "session")->getId();
    for (int number = 0; number < kDirectories; ++number) {
      std::filesystem::create_directories(root_ / id.toString() / "contentfiles" /
                                          std::to_string(number));
    }
    const auto first = repository_.openReport(id);
    const auto second = repository_.openReport(id);
    ASSERT_THAT(first->acquireWriteLock(true), Succeeds());
    auto other = std::async(std::launch::async, [&] {
      const DiagnosticReport::Result locked = second->acquireWriteLock(true);
      return locked ? second->deleteReport() : locked;
    });
    EXPECT_THAT(first->deleteReport(), Succeeds()) << "round " << round;
    EXPECT_THAT(other.get(), Succeeds()) << "round " << round;
    ASSERT_FALSE(std::filesystem::exists(root_ / id.toString()));
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportRace, GivesEachIdentifierToOneCreator) {
  std::string command = "create-each";
  Names wanted;
  for (int i = 0; i < 60; ++i) {
    ReportUuid id;
    id.randomize();
    wanted.insert(id.toString());
  }
  for (const std::string& name : wanted) {
    command += " " + name;
  }
  for (auto& actor : actors_) {
    actor->tell(command);
  }
  Names made;
  for (auto& actor : actors_) {
    std::istringstream answer(actor->answer());
    std::string word;
    answer >> word;
    EXPECT_EQ(word, "made");
    for (std::string name; answer >> name;) {
      EXPECT_TRUE(made.insert(name).second) << name << " was made twice";
    }
  }
  expectOrderlyEnd();
  EXPECT_EQ(made, wanted);
  EXPECT_EQ(repository_.getAllReportUuids().size(), wanted.size());
  EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
