#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "unit/foundation/pathtree.h"
#include "unit/foundation/seed.h"

#include <utils/pathcontainment.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::Utils {
namespace {

namespace fs = std::filesystem;
using Test::errorLine;
using Test::LogCapture;
using Test::LogLine;
using Test::randomNumber;
using Test::seedNote;
using Test::TemporaryDirectory;
using Test::testSeed;
using Test::WorkingDirectory;

struct Question {
  std::string path;
  std::string requiredDir;
  bool requireExisting = false;
  bool allowNested = false;
};

std::ostream& operator<<(std::ostream& out, const Question& question) {
  return out << "path '" << question.path << "', required '" << question.requiredDir << "'"
             << (question.requireExisting ? ", existing" : "")
             << (question.allowNested ? ", nested" : "");
}

/** How the rules end for a question: each way out of them has a number of its own. */
struct Answer {
  bool contained = false;
  std::vector<LogLine> log;
  int rule = 0;
};

/** The rules of containment, one after the other, as a reader would check them by hand. */
Answer answerByTheRules(const Question& question) {
  const auto resolve = [&](const fs::path& path, std::error_code& error) {
    return question.requireExisting ? fs::canonical(path, error)
                                    : fs::weakly_canonical(path, error);
  };

  fs::path file = question.path;
  if (file.filename().empty()) file = file.parent_path();
  if (file.filename() == "." || file.filename() == "..") return {false, {}, 1};

  const fs::path parent = file.parent_path();
  if (file == parent) return {false, {}, 2};

  std::error_code error;
  fs::path candidate = resolve(parent, error);
  if (error) {
    return {false,
            {errorLine("Error " + error.message() +
                       " while attempting to resolve path: " + parent.string())},
            3};
  }
  const fs::path required = resolve(question.requiredDir, error);
  if (error) {
    return {false,
            {errorLine("Error " + error.message() +
                       " while attempting to resolve required path: " + question.requiredDir)},
            4};
  }

  // The root directory is where shortening ends: it is its own parent.
  int shortened = 0;
  while (question.allowNested && candidate.native().size() > required.native().size() &&
         candidate != candidate.parent_path()) {
    candidate = candidate.parent_path();
    shortened = 1;
  }
  const bool contained = candidate == required;
  return {contained, {}, (contained ? 5 : 6) + 2 * shortened};
}

/** Directories "a" and "b" in each other, three deep, each with a file and a link of every kind. */
void populate(const fs::path& directory, const fs::path& outside, int depth) {
  fs::create_directory(directory);
  fs::create_directory_symlink(outside, directory / "link-out");
  fs::create_symlink("link-loop", directory / "link-loop");
  fs::create_symlink("missing", directory / "link-dangling");
  Test::writeFile(directory / "file", "");
  if (depth > 0) {
    populate(directory / "a", outside, depth - 1);
    populate(directory / "b", outside, depth - 1);
  }
}

/** A path of random components, absolute in @p root or relative to it. */
std::string randomPath(std::mt19937& random, const fs::path& root, int mostComponents) {
  // What exists comes more often than what ends a path's life at once.
  static const std::array<const char*, 17> kComponents{
      "a", "a",  "a", "a", "a",    "a",        "b",         "b",      "b",
      "b", "..", ".", "",  "file", "link-out", "link-loop", "missing"};
  static const std::array<const char*, 5> kRare{"link-dangling", "..", "", "missing", "."};

  std::string path = randomNumber(random, 0, 2) == 0 ? "" : root.string();
  if (randomNumber(random, 0, 60) == 0) path = "/";
  const int count = randomNumber(random, 0, mostComponents);
  for (int i = 0; i < count; ++i) {
    if (!path.empty() || i > 0) path += '/';
    path += randomNumber(random, 0, 15) == 0
                ? kRare[static_cast<std::size_t>(randomNumber(random, 0, kRare.size() - 1))]
                : kComponents[static_cast<std::size_t>(
                      randomNumber(random, 0, kComponents.size() - 1))];
  }
  if (randomNumber(random, 0, 9) == 0) path += '/';
  return path;
}

TEST(PathContainmentPropertyTest, AnswersAndLogsAreThoseOfTheRulesOnRandomPaths) {
  SCOPED_TRACE(seedNote());
  const TemporaryDirectory scratch;
  fs::create_directories(scratch / "outside/a/b");
  populate(scratch / "tree", scratch / "outside", 3);
  const fs::path root = scratch / "tree";
  const WorkingDirectory inTree(root);

  std::mt19937 random(testSeed());
  std::set<int> rulesSeen;
  for (int i = 0; i < 4000; ++i) {
    Question question;
    question.requiredDir = randomPath(random, root, 3);
    question.path = randomPath(random, root, 6);
    // Often the one is spelled as the beginning of the other, as names within a directory are, or
    // as those beside it whose name only begins alike.
    if (randomNumber(random, 0, 2) == 0) {
      const char* separator = randomNumber(random, 0, 4) == 0 ? "" : "/";
      question.path = question.requiredDir + separator + randomPath(random, "", 2);
    }
    for (const bool requireExisting : {false, true}) {
      for (const bool allowNested : {false, true}) {
        question.requireExisting = requireExisting;
        question.allowNested = allowNested;
        const Answer expected = answerByTheRules(question);
        rulesSeen.insert(expected.rule);
        const LogCapture log;
        ASSERT_EQ(VerifyFilePathIsWithinRequiredDirectory(question.path, question.requiredDir,
                                                          requireExisting, allowNested),
                  expected.contained)
            << question;
        ASSERT_EQ(log.lines(), expected.log) << question;
      }
    }
  }
  EXPECT_EQ(rulesSeen, (std::set<int>{1, 2, 3, 4, 5, 6, 7, 8})) << "the paths met too few rules";
}

}  // namespace
}  // namespace KELP::Utils
