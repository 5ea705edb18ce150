// `prune`.

#include "damage.h"
#include "support/childprocess.h"
#include "support/waituntil.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>
#include <numeric>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr long kDay = 86400;

/** Five reports; number N was created N days and an hour ago. */
class Prune : public KeepingTest {
 protected:
  Prune() {
    for (unsigned number = 1; number <= 5; ++number) {
      makeReportOfAge(repository_, idOf(number), static_cast<long>(number) * kDay + 3600);
    }
  }

  [[nodiscard]] std::uint64_t sizeOf(const std::string& id) const {
    std::uint64_t size = 0;
    for (const auto& entry : fs::recursive_directory_iterator(repository_.root() / id)) {
      size += entry.is_regular_file() ? entry.file_size() : 0;
    }
    return size;
  }

  /** The bytes of the reports from number @p first to the last. */
  [[nodiscard]] std::uint64_t sizeUpTo(unsigned last) const {
    std::uint64_t size = 0;
    for (unsigned number = 1; number <= last; ++number) {
      size += sizeOf(idOf(number));
    }
    return size;
  }
};

TEST_F(Prune, RemovesWhatIsOlder) {
  const ToolResult result = run({"prune", "--max-age", "3d"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, "removed " + idOf(5) + ": older than 3d\nremoved " + idOf(4) +
                               ": older than 3d\nremoved " + idOf(3) + ": older than 3d\n");
  EXPECT_THAT(names(), ElementsAre(idOf(1), idOf(2)));
}

TEST_F(Prune, RemovesUntilSoManyAreLeft) {
  const ToolResult result = run({"prune", "--max-count", "3"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "removed " + idOf(5) + ": more than 3 reports\nremoved " + idOf(4) +
                               ": more than 3 reports\n");
  EXPECT_THAT(names(), ElementsAre(idOf(1), idOf(2), idOf(3)));
}

TEST_F(Prune, RemovesUntilTheyAreSmallEnough) {
  writeFile(repository_.root() / idOf(5) / "contentfiles/log/0/log", std::string(5000, 'x'));
  const std::uint64_t limit = sizeUpTo(3);
  const ToolResult result = run({"prune", "--max-size", std::to_string(limit)});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.lines().size(), 2U);
  EXPECT_THAT(result.lines()[0],
              ::testing::MatchesRegex("removed " + idOf(5) + ": more than [0-9.]+ KiB"));
  EXPECT_THAT(names(), ElementsAre(idOf(1), idOf(2), idOf(3)));
  EXPECT_EQ(run({"prune", "--max-size", std::to_string(limit)}).output, "");
  EXPECT_EQ(run({"prune", "--max-size", std::to_string(limit - 1)}).lines().size(), 1U);
}

TEST_F(Prune, KeepsEveryLimitThatIsGiven) {
  const ToolResult result = run(
      {"prune", "--max-age", "5d", "--max-count", "4", "--max-size", std::to_string(sizeUpTo(3))});
  EXPECT_EQ(result.status, 0);
  ASSERT_EQ(result.lines().size(), 2U);
  EXPECT_EQ(result.lines()[0], "removed " + idOf(5) + ": older than 5d");
  EXPECT_THAT(result.lines()[1],
              ::testing::MatchesRegex("removed " + idOf(4) + ": more than [0-9.]+ KiB"));
}

TEST_F(Prune, DoesNothingWhenTheLimitsAreKept) {
  const auto before = repository_.snapshot();
  const ToolResult result =
      run({"prune", "--max-age", "6d", "--max-count", "5", "--max-size", "1G"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_EQ(repository_.snapshot(), before);
  const Json::Value document = run({"prune", "--max-count", "5", "--json"}).json();
  EXPECT_EQ(document["removed"], Json::Value(Json::arrayValue));
}

TEST_F(Prune, RemovesEverythingWhenNothingMayBeLeft) {
  EXPECT_EQ(run({"prune", "--max-count", "0"}).status, 0);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Prune, OnlySaysWhatItWouldDo) {
  const auto before = repository_.snapshot();
  const auto holder = hold(repository_, idOf(5));
  const ToolResult result = run({"prune", "--max-count", "0", "--max-age", "4d", "--dry-run"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.lines(), ElementsAre("would leave " + idOf(5) + ": in use",
                                          "would remove " + idOf(4) + ": older than 4d",
                                          "would remove " + idOf(3) + ": more than 0 reports",
                                          "would remove " + idOf(2) + ": more than 0 reports",
                                          "would remove " + idOf(1) + ": more than 0 reports"));
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: the limit --max-age would not be reached: 1 report is older\n"
            "kelp-diagnostics: the limit --max-count would not be reached: 1 report left\n");
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_F(Prune, NeverRemovesAReportThatIsInUse) {
  const auto writer = hold(repository_, idOf(5));
  const auto reader = hold(repository_, idOf(4));
  ASSERT_TRUE(reader->acquireReadLock(false));
  const ToolResult result = run({"prune", "--max-count", "3"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.lines(),
              ElementsAre("left " + idOf(5) + ": in use", "left " + idOf(4) + ": in use",
                          "removed " + idOf(3) + ": more than 3 reports",
                          "removed " + idOf(2) + ": more than 3 reports"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(names(), ElementsAre(idOf(1), idOf(4), idOf(5)));
}

TEST_F(Prune, SaysWhenALimitIsNotReached) {
  const auto holder = hold(repository_, idOf(2));
  const fs::path report = repository_.root() / idOf(2);
  writeFile(
      report / "contentfiles/log/0/log",
      std::string(100'000 - (sizeOf(idOf(2)) - readFile(report / "contentfiles/log/0/log").size()),
                  'x'));
  const ToolResult result =
      run({"prune", "--max-age", "1h", "--max-count", "0", "--max-size", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(names(), ElementsAre(idOf(2)));
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: the limit --max-age was not reached: 1 report is older\n"
            "kelp-diagnostics: the limit --max-count was not reached: 1 report left\n"
            "kelp-diagnostics: the limit --max-size was not reached: 98 KiB left\n");
}

TEST_F(Prune, RemovesOnlyWhatHasBeenUploaded) {
  upload(repository_, idOf(2));
  upload(repository_, idOf(4));
  const ToolResult result = run({"prune", "--uploaded-only", "--max-count", "4"});
  EXPECT_EQ(result.output, "removed " + idOf(4) + ": more than 4 reports\n");
  EXPECT_EQ(result.errors, "");
  const ToolResult rest = run({"prune", "--uploaded-only", "--max-age", "1h"});
  EXPECT_EQ(rest.status, 0);
  EXPECT_EQ(rest.output, "removed " + idOf(2) + ": older than 1h\n");
  EXPECT_EQ(rest.errors,
            "kelp-diagnostics: the limit --max-age was not reached: 3 reports are older\n");
}

TEST_F(Prune, NeverRemovesWhatIsDamagedOrHalfMade) {
  writeFile(repository_.root() / idOf(5) / "metadata.db", "this is no store of keys");
  fs::remove(repository_.root() / idOf(4) / "lock");
  repository_.writeKey(idOf(3), "report_id", idOf(1));
  const ToolResult result = run({"prune", "--max-count", "3"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.lines(),
              ::testing::UnorderedElementsAre("left " + idOf(5) + ": damaged",
                                              "left " + idOf(4) + ": half-made",
                                              "left " + idOf(3) + ": mismatched",
                                              "removed " + idOf(2) + ": more than 3 reports",
                                              "removed " + idOf(1) + ": more than 3 reports"));
  EXPECT_THAT(names(), ElementsAre(idOf(3), idOf(4), idOf(5)));
}

TEST_F(Prune, NeverRemovesAReportWithoutATimeOfCreation) {
  repository_.writeKey(idOf(3), "created", "yesterday");
  EXPECT_EQ(run({"prune", "--max-age", "1h"}).lines().size(), 4U);
  const ToolResult result = run({"prune", "--max-count", "0"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "left " + idOf(3) + ": damaged\n");
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: the limit --max-count was not reached: 1 report left\n");
  EXPECT_TRUE(exists(idOf(3)));
}

/** Many reports more, and a run that stands still in the middle since nobody reads what it
 * prints. */
class PruneInTheMiddle : public Prune {
 protected:
  static constexpr unsigned kMore = 200;

  PruneInTheMiddle() {
    const std::filesystem::path model = repository_.root() / idOf(1);
    for (unsigned number = 100; number < 100 + kMore; ++number) {
      fs::copy(model, repository_.root() / idOf(number), fs::copy_options::recursive);
      repository_.writeKey(idOf(number), "report_id", idOf(number));
      repository_.writeKey(idOf(number), "created", std::to_string(1'000'000'000 + number));
    }
  }

  /** Starts it, and waits until its output, a pipe, is full. */
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& more) {
    EXPECT_EQ(::mkfifo(pipe_.c_str(), 0600), 0);
    reader_ = ::open(pipe_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(::fcntl(reader_, F_SETPIPE_SZ, kPipe), kPipe);
    std::vector<std::string> command{"/bin/sh", "-c", R"(out=$1; shift; exec "$0" "$@" > "$out")",
                                     toolPath(), pipe_.native()};
    for (const std::string& argument : repository_.arguments({"prune"})) {
      command.push_back(argument);
    }
    command.insert(command.end(), more.begin(), more.end());
    auto tool = std::make_unique<ChildProcess>(command);
    EXPECT_TRUE(waitUntil([&] {
      int size = 0;
      return ::ioctl(reader_, FIONREAD, &size) == 0 && size > kPipe / 2;
    }));
    return tool;
  }

  /** Reads all that is printed until the end. */
  std::string drain(ChildProcess& tool) {
    ::fcntl(reader_, F_SETFL, 0);
    std::string all;
    std::array<char, 4096> piece{};
    for (ssize_t size = 0; (size = ::read(reader_, piece.data(), piece.size())) > 0;) {
      all.append(piece.data(), static_cast<std::size_t>(size));
    }
    ::close(reader_);
    status_ = tool.wait();
    return all;
  }

  static constexpr int kPipe = 8192;
  TemporaryDirectory directory_;
  std::filesystem::path pipe_ = directory_ / "pipe";
  int reader_ = -1;
  int status_ = -1;
};

TEST_F(PruneInTheMiddle, DoesNotCountWhatOthersRemoveMeanwhile) {
  const auto tool = start({"--max-count", "50"});
  constexpr unsigned kByOthers = 60;
  for (unsigned number = 100 + kMore - kByOthers; number < 100 + kMore; ++number) {
    fs::remove_all(repository_.root() / idOf(number));
  }
  drain(*tool);
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(names().size(), 50U);
}

TEST_F(PruneInTheMiddle, TellsWhatItHasRemovedWhenItIsInterrupted) {
  const auto tool = start({"--max-count", "5"});
  tool->signal(SIGINT);
  const std::string printed = drain(*tool);
  EXPECT_EQ(status_, 128 + SIGINT);
  EXPECT_GT(names().size(), 5U);
  EXPECT_LT(names().size(), 5U + kMore);
}

TEST_F(Prune, PrintsOneDocument) {
  const auto holder = hold(repository_, idOf(5));
  repository_.writeKey(idOf(4), "created", "1000000000");
  const std::uint64_t size = sizeOf(idOf(4));
  const ToolResult result = run({"prune", "--max-age", "4d", "--json", "--utc"});
  EXPECT_EQ(result.status, 0);
  const Json::Value document = result.json();
  EXPECT_EQ(document["schema"], 1);
  EXPECT_EQ(document["dry_run"], Json::Value(false));
  ASSERT_EQ(document["removed"].size(), 1U);
  EXPECT_EQ(document["removed"][0]["id"], idOf(4));
  EXPECT_EQ(document["removed"][0]["reason"], "max-age");
  EXPECT_EQ(document["removed"][0]["created"], "2001-09-09T01:46:40Z");
  EXPECT_EQ(document["removed"][0]["size"].asUInt64(), size);
  ASSERT_EQ(document["left"].size(), 1U);
  EXPECT_EQ(document["left"][0]["id"], idOf(5));
  EXPECT_EQ(document["left"][0]["reason"], "in use");
  EXPECT_EQ(document["exceeded"][0], "max-age");
  EXPECT_EQ(document["count"], 4);
  EXPECT_EQ(document["size"].asUInt64(), sizeUpTo(3) + sizeOf(idOf(5)));
}

TEST_F(Prune, WantsALimitThatIsOne) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"prune"},
                                                    {"prune", "--uploaded-only"},
                                                    {"prune", "--max-count", "-1"},
                                                    {"prune", "--max-count", "many"},
                                                    {"prune", "--max-age", "soon"},
                                                    {"prune", "--max-age", "-3d"},
                                                    {"prune", "--max-size", "large"},
                                                    {"prune", "--max-size", "-1"},
                                                    {"prune", "--max-age", "1h", "1111"}}) {
    const ToolResult result = run(arguments);
    EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments) << result.errors;
    EXPECT_EQ(result.output, "");
  }
  EXPECT_EQ(names().size(), 5U);
}

TEST_F(Prune, FailsWithoutARoot) {
  EXPECT_EQ(runTool({"-C", "/nowhere/at/all", "prune", "--max-count", "1"}).status, 3);
}

}  // namespace
}  // namespace KELP::Test
