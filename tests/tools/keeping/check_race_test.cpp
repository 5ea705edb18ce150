// What `check --repair` does when something happens between the look and the repair.

#include "check/examination.h"
#include "check/removing.h"
#include "check/repair.h"
#include "check/stillness.h"
#include "damage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Tool::Findings;

class CheckRace : public KeepingTest {
 protected:
  CheckRace() {
    makeReport(repository_, idOf(1));
    writeOldFile(scratch());
    fs::create_directories(empty() / "deep");
  }

  [[nodiscard]] fs::path report() const { return repository_.root() / idOf(1); }
  [[nodiscard]] fs::path scratch() const { return report() / "tmp" / "left"; }
  [[nodiscard]] fs::path empty() const { return report() / "contentfiles" / "gone"; }

  [[nodiscard]] Findings examine() const { return Tool::examineAll(repository_.root()).findings; }
  void repair(Findings& findings) const { Tool::repair(repository_.root(), findings); }

  void expectLeft(const Findings& findings, const std::string& why) const {
    ASSERT_EQ(findings.size(), 2U);
    for (const Tool::Finding& finding : findings) {
      EXPECT_FALSE(finding.repaired);
      EXPECT_EQ(finding.whyLeft, why);
    }
  }
};

TEST_F(CheckRace, WithoutOneAllIsMended) {
  Findings findings = examine();
  ASSERT_EQ(findings.size(), 2U);
  repair(findings);
  EXPECT_TRUE(findings[0].repaired && findings[1].repaired);
  EXPECT_FALSE(fs::exists(scratch()));
  EXPECT_FALSE(fs::exists(empty()));
}

TEST_F(CheckRace, ALockThatIsTakenMeanwhileIsRespected) {
  for (const bool isWriter : {true, false}) {
    Findings findings = examine();
    const auto holder = hold(repository_, idOf(1));
    ASSERT_TRUE(isWriter || holder->acquireReadLock(false));
    repair(findings);
    expectLeft(findings, "the report is in use");
    EXPECT_TRUE(fs::exists(scratch()));
    EXPECT_TRUE(fs::exists(empty() / "deep"));
  }
}

TEST_F(CheckRace, WhatIsNotSoAnyMoreIsLeft) {
  Findings findings = examine();
  fs::rename(scratch(), report() / "tmp" / "other");
  writeFile(empty() / "deep" / "file", "data");
  repair(findings);
  expectLeft(findings, "it has changed meanwhile");
  EXPECT_TRUE(fs::exists(report() / "tmp" / "other"));
  EXPECT_TRUE(fs::exists(empty() / "deep" / "file"));
}

TEST_F(CheckRace, WhatIsWrittenOrNamedMeanwhileIsLeft) {
  fs::remove_all(empty());
  Findings written = examine();
  writeFile(scratch(), "more");
  repair(written);
  ASSERT_EQ(written.size(), 1U);
  EXPECT_THAT(written[0].whyLeft, ::testing::StartsWith("it may be in use: written "));
  makeOld(scratch());
  Findings named = examine();
  addRecord(repository_, idOf(1), 5, "tmp/left");
  repair(named);
  ASSERT_EQ(named.size(), 1U);
  EXPECT_EQ(named[0].whyLeft, "a record names it, or something in it");
  EXPECT_EQ(readFile(scratch()), "more");
}

TEST_F(CheckRace, AReportThatGoesMeanwhileIsLeft) {
  Findings findings = examine();
  fs::rename(report(), repository_.root() / idOf(2));
  repair(findings);
  expectLeft(findings, "there is no report \"" + idOf(1) + "\"");
  EXPECT_TRUE(fs::exists(repository_.root() / idOf(2) / "tmp" / "left"));
}

TEST_F(CheckRace, AnEmptyReportThatIsFilledMeanwhileIsLeft) {
  fs::remove_all(report());
  fs::create_directory(report());
  Findings findings = examine();
  writeFile(report() / "lock", "");
  repair(findings);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].whyLeft, "Directory not empty");
  EXPECT_TRUE(fs::exists(report() / "lock"));
}

TEST_F(CheckRace, ALinkThatTakesTheirPlaceIsNotFollowed) {
  const TemporaryDirectory elsewhere;
  writeOldFile(elsewhere / "left");
  fs::create_directories(elsewhere / "gone/deep");
  for (const char* const name : {"tmp", "contentfiles"}) {
    fs::remove_all(report() / name);
    fs::create_directory_symlink(elsewhere.path(), report() / name);
  }
  EXPECT_EQ(Tool::removeTree(report(), "tmp/left"), std::errc::not_a_directory);
  EXPECT_EQ(Tool::removeEmptyDirectories(report(), "contentfiles/gone"),
            std::errc::not_a_directory);
  const fs::path link = repository_.root() / idOf(2);
  fs::create_directory_symlink(elsewhere.path(), link);
  EXPECT_EQ(Tool::removeTree(link, "left"), std::errc::not_a_directory);
  EXPECT_EQ(readFile(elsewhere / "left"), "bytes");
  EXPECT_TRUE(fs::exists(elsewhere / "gone/deep"));
}

TEST_F(CheckRace, EmptyDirectoriesThatAreFilledMeanwhileAreLeft) {
  writeFile(empty() / "deep" / "file", "data");
  EXPECT_EQ(Tool::removeEmptyDirectories(report(), "contentfiles/gone"),
            std::errc::directory_not_empty);
  EXPECT_EQ(readFile(empty() / "deep" / "file"), "data");
  EXPECT_EQ(Tool::removeEmptyDirectories(report(), "tmp/left"), std::errc::directory_not_empty);
  EXPECT_TRUE(fs::exists(scratch()));
}

TEST_F(CheckRace, RemovesTreesOfAnyShape) {
  int parent = ::open((report() / "tmp").c_str(), O_PATH | O_CLOEXEC);
  const std::string name(200, 'd');
  for (int level = 0; level < 60; ++level) {
    ASSERT_EQ(::mkdirat(parent, name.c_str(), 0755), 0);
    for (const char* const other : {"a", "z"}) {
      ASSERT_EQ(::mkdirat(parent, other, 0755), 0);
      ASSERT_EQ(::symlinkat("/", parent, (std::string(other) + "/link").c_str()), 0);
      ASSERT_EQ(::mkdirat(parent, (std::string(other) + "/inside").c_str(), 0755), 0);
    }
    const int next = ::openat(parent, name.c_str(), O_PATH | O_CLOEXEC);
    ::close(parent);
    parent = next;
  }
  ::close(parent);
  EXPECT_EQ(Tool::removeTree(report(), "tmp"), std::error_code());
  EXPECT_FALSE(fs::exists(report() / "tmp"));
  EXPECT_EQ(Tool::removeTree(report(), "tmp"), std::error_code());
  EXPECT_EQ(Tool::removeTree(report(), "tmp/left"), std::error_code());
}

TEST_F(CheckRace, StillnessIsToldByTheClockOrByTwoLooks) {
  const auto look = [&] { return Tool::stillnessOf(Tool::entryAt(report()).value()); };
  const auto systemTime = [] { return std::chrono::system_clock::now().time_since_epoch(); };
  const auto first = look();
  EXPECT_FALSE(first.isOlderThan(1h, systemTime()));
  EXPECT_TRUE(first.isOlderThan(1h, systemTime() + 2h));
  // The clock has been set back, a little or by far.
  EXPECT_FALSE(first.isOlderThan(1s, systemTime() - 2h));
  EXPECT_FALSE(first.isOlderThan(1s, systemTime() - 24h * 1000));
  EXPECT_EQ(first, look());
  writeFile(scratch(), "other");
  EXPECT_NE(first, look());
  const auto second = look();
  fs::create_directory(empty() / "deep" / "new");
  EXPECT_NE(second, look());
}

TEST_F(CheckRace, AChangeCountsAlsoWhenItIsNotTheLatest) {
  Tool::Entry entry = Tool::entryAt(scratch()).value();
  Tool::Entry ahead = Tool::entryAt(report()).value();
  ahead.status.st_ctim.tv_sec += 1000;  // From before somebody set the clock back.
  const auto look = [&] {
    Tool::Stillness stillness;
    stillness.add(ahead);
    stillness.add(entry);
    return stillness;
  };
  const auto before = look();
  EXPECT_EQ(before, look());
  ++entry.status.st_ctim.tv_nsec;
  EXPECT_NE(before, look());
  --entry.status.st_ctim.tv_nsec;
  EXPECT_EQ(before, look());
  ++entry.status.st_ino;
  EXPECT_NE(before, look());
}

}  // namespace
}  // namespace KELP::Test
