#include "support/logcapture.h"
#include "unit/foundation/namedcase.h"
#include "unit/foundation/pathtree.h"

#include <utils/pathcontainment.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::Utils {
namespace {

using Test::CaseName;
using Test::errorLine;
using Test::LogCapture;
using Test::LogLine;
using Test::NamedCase;
using Test::PathTree;
using Test::WorkingDirectory;

/** Which of the two paths could not be resolved. */
enum class Side { Path, RequiredDir };

/** "@" in paths stands for the tree of PathTree. */
struct Unresolved {
  Side side;
  int code;
  std::string printed;
};

LogLine lineFor(const Unresolved& unresolved, const PathTree& tree) {
  const std::string what = unresolved.side == Side::Path ? "path" : "required path";
  return errorLine("Error " + std::generic_category().message(unresolved.code) +
                   " while attempting to resolve " + what + ": " + tree.at(unresolved.printed));
}

/** What is asked, and what comes of it when every component must exist, or need not. */
struct Containment : NamedCase {
  struct Outcome {
    bool contained;
    std::optional<Unresolved> unresolved;
  };

  std::string path;
  std::string requiredDir;
  bool allowNested;
  Outcome existing;
  Outcome anything;
};

const Containment::Outcome kYes{true, std::nullopt};
const Containment::Outcome kNo{false, std::nullopt};
Containment::Outcome unresolvedPath(int code, const std::string& parent) {
  return {false, Unresolved{Side::Path, code, parent}};
}
Containment::Outcome unresolvedDir(int code, const std::string& requiredDir) {
  return {false, Unresolved{Side::RequiredDir, code, requiredDir}};
}

class PathContainmentTest : public testing::TestWithParam<Containment> {
 protected:
  void expectOutcome(bool requireExisting, const Containment::Outcome& outcome) const {
    const WorkingDirectory inTree(tree_.root());
    const LogCapture log;
    EXPECT_EQ(VerifyFilePathIsWithinRequiredDirectory(tree_.at(GetParam().path),
                                                      tree_.at(GetParam().requiredDir),
                                                      requireExisting, GetParam().allowNested),
              outcome.contained);
    std::vector<LogLine> expected;
    if (outcome.unresolved) expected.push_back(lineFor(*outcome.unresolved, tree_));
    EXPECT_EQ(log.lines(), expected);
  }

 private:
  PathTree tree_;
};

TEST_P(PathContainmentTest, HoldsWhenEveryComponentMustExist) {
  expectOutcome(true, GetParam().existing);
}

TEST_P(PathContainmentTest, HoldsWhenTheEndMayBeMissing) {
  expectOutcome(false, GetParam().anything);
}

constexpr bool kNested = true;
constexpr bool kDirect = false;

INSTANTIATE_TEST_SUITE_P(
    Inside, PathContainmentTest,
    testing::Values(
        Containment{{"DirectlyNestedAllowed"}, "@/u1/x", "@/u1", kNested, kYes, kYes},
        Containment{{"DirectlyNestedForbidden"}, "@/u1/x", "@/u1", kDirect, kYes, kYes},
        Containment{
            {"DeepNestedAllowed"}, "@/u1/contentfiles/a/b/file", "@/u1", kNested, kYes, kYes},
        Containment{
            {"DeepNestedForbidden"}, "@/u1/contentfiles/a/b/file", "@/u1", kDirect, kNo, kNo},
        Containment{{"OneDeepNestedForbidden"}, "@/u1/contentfiles/x", "@/u1", kDirect, kNo, kNo},
        Containment{{"DeepDirectory"},
                    "@/u1/contentfiles/a/b/x",
                    "@/u1/contentfiles/a/b",
                    kDirect,
                    kYes,
                    kYes},
        Containment{{"InTheRootDirectory"}, "/x", "/", kDirect, kYes, kYes},
        Containment{{"BelowTheRootDirectory"}, "@/u1/x", "/", kNested, kYes, kYes}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Outside, PathContainmentTest,
    testing::Values(Containment{{"Sibling"}, "@/u2/x", "@/u1", kNested, kNo, kNo},
                    Containment{{"SiblingWithLongerName"}, "@/u10/file", "@/u1", kNested, kNo, kNo},
                    Containment{{"ThePrefixAsAFile"}, "@/u10", "@/u1", kNested, kNo, kNo},
                    Containment{{"TheRequiredDirectoryItself"}, "@/u1", "@/u1", kNested, kNo, kNo},
                    Containment{{"Above"}, "@/x", "@/u1", kNested, kNo, kNo},
                    Containment{{"RootDirectoryIsAbove"}, "/x", "@/u1", kNested, kNo, kNo},
                    Containment{{"ByDotDot"}, "@/u1/../u2/file", "@/u1", kNested, kNo, kNo},
                    Containment{{"ByDotDotsBeyondTheRootDirectory"},
                                "@/../../../../../../../../x",
                                "@/u1",
                                kNested,
                                kNo,
                                kNo}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    RefusedUnresolved, PathContainmentTest,
    // Neither side could be resolved, so that a line in the log would show an attempt.
    testing::Values(
        Containment{{"Empty"}, "", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"RootDirectory"}, "/", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"RootDirectoryTwice"}, "//", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"Dot"}, ".", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"DotDot"}, "..", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"DotSeparator"}, "./", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"EndsInDotDot"}, "@/u1/link-loop/x/..", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{{"EndsInDot"}, "@/u1/link-loop/x/.", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{
            {"EndsInDotDotSeparator"}, "@/u1/link-loop/x/../", "@/u1/link-loop", kNested, kNo, kNo},
        Containment{
            {"EndsInDotSeparator"}, "@/u1/link-loop/x/./", "@/u1/link-loop", kNested, kNo, kNo}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    NamesThatOnlyLookLikeDots, PathContainmentTest,
    testing::Values(Containment{{"ThreeDots"}, "@/u1/...", "@/u1", kDirect, kYes, kYes},
                    Containment{{"HiddenFile"}, "@/u1/.x", "@/u1", kDirect, kYes, kYes},
                    Containment{{"DotsInFront"}, "@/u1/..x", "@/u1", kDirect, kYes, kYes},
                    Containment{{"Space"}, "@/u1/ ", "@/u1", kDirect, kYes, kYes}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    DotsOnTheWay, PathContainmentTest,
    testing::Values(
        Containment{{"Dot"}, "@/u1/./x", "@/u1", kDirect, kYes, kYes},
        Containment{{"OutAndBackIn"}, "@/u1/../u1/x", "@/u1", kDirect, kYes, kYes},
        Containment{{"InAndBackOut"}, "@/u1/contentfiles/../x", "@/u1", kDirect, kYes, kYes},
        Containment{{"DotDotInRequiredDir"}, "@/u1/x", "@/u2/../u1", kDirect, kYes, kYes},
        Containment{{"DotAtTheEndOfRequiredDir"}, "@/u1/x", "@/u1/.", kDirect, kYes, kYes},
        Containment{{"DotDotThroughMissing"},
                    "@/u1/missing/../../u2/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ENOENT, "@/u1/missing/../../u2"),
                    kNo}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Separators, PathContainmentTest,
    testing::Values(
        Containment{{"AtTheEndOfADirectory"}, "@/u1/contentfiles/", "@/u1", kDirect, kYes, kYes},
        Containment{{"AtTheEndOfAMissingName"}, "@/u1/missing/", "@/u1", kDirect, kYes, kYes},
        Containment{{"SeveralAtTheEnd"}, "@/u1/contentfiles///", "@/u1", kDirect, kYes, kYes},
        Containment{{"AtTheEndOfTheRequiredDirectoryItself"}, "@/u1/", "@/u1", kNested, kNo, kNo},
        Containment{{"DoubledInPath"}, "@//u1//x", "@/u1", kDirect, kYes, kYes},
        Containment{{"AtTheEndOfRequiredDir"}, "@/u1/x", "@/u1/", kDirect, kYes, kYes},
        Containment{{"SeveralAtTheEndOfRequiredDir"}, "@/u1/x", "@/u1//", kDirect, kYes, kYes},
        Containment{{"DoubledInRequiredDir"}, "@/u1/x", "@//u1", kNested, kYes, kYes},
        // What does not exist keeps the separator when it is resolved, and then differs from the
        // same name without it.
        Containment{{"AtTheEndOfAMissingRequiredDir"},
                    "@/missing/x",
                    "@/missing/",
                    kNested,
                    unresolvedPath(ENOENT, "@/missing"),
                    kNo}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    MissingComponents, PathContainmentTest,
    testing::Values(Containment{{"Parent"},
                                "@/u1/missing/x",
                                "@/u1",
                                kNested,
                                unresolvedPath(ENOENT, "@/u1/missing"),
                                kYes},
                    Containment{{"ParentNestedForbidden"},
                                "@/u1/missing/x",
                                "@/u1",
                                kDirect,
                                unresolvedPath(ENOENT, "@/u1/missing"),
                                kNo},
                    Containment{{"ParentIsPrintedAndNotThePath"},
                                "@/u1/missing/x/",
                                "@/u1",
                                kNested,
                                unresolvedPath(ENOENT, "@/u1/missing"),
                                kYes},
                    Containment{{"RequiredDir"},
                                "@/u1/x",
                                "@/missing",
                                kNested,
                                unresolvedDir(ENOENT, "@/missing"),
                                kNo},
                    Containment{{"RequiredDirIsPrintedUnchanged"},
                                "@/u1/x",
                                "@//u1/./missing/..//gone/",
                                kNested,
                                unresolvedDir(ENOENT, "@//u1/./missing/..//gone/"),
                                kNo},
                    Containment{{"BothAndOnlyTheFirstIsLogged"},
                                "@/missing/deep/x",
                                "@/missing",
                                kNested,
                                unresolvedPath(ENOENT, "@/missing/deep"),
                                kYes},
                    Containment{{"AFileOnTheWay"},
                                "@/u1/file/x/y",
                                "@/u1",
                                kNested,
                                unresolvedPath(ENOTDIR, "@/u1/file/x"),
                                kYes},
                    Containment{
                        {"AFileAsRequiredDir"}, "@/u1/file/x", "@/u1/file", kNested, kYes, kYes}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    SymbolicLinks, PathContainmentTest,
    testing::Values(
        Containment{{"LeadingOut"}, "@/u1/link-out/x", "@/u1", kNested, kNo, kNo},
        Containment{{"LeadingOutIntoMissing"},
                    "@/u1/link-out/missing/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ENOENT, "@/u1/link-out/missing"),
                    kNo},
        Containment{
            {"LeadingOutAndItsTargetIsRequired"}, "@/u1/link-out/x", "@/u2", kDirect, kYes, kYes},
        Containment{
            {"DotDotIsTakenAtTheTarget"}, "@/u1/link-out/../u1/x", "@/u1", kDirect, kYes, kYes},
        Containment{{"LeadingIn"}, "@/u1/link-in/x", "@/u1", kNested, kYes, kYes},
        Containment{{"LeadingInNestedForbidden"}, "@/u1/link-in/x", "@/u1", kDirect, kNo, kNo},
        Containment{{"AsTheFileItselfIsNotResolved"}, "@/u1/link-out", "@/u1", kDirect, kYes, kYes},
        Containment{
            {"WithSeparatorIsNotResolvedEither"}, "@/u1/link-out/", "@/u1", kDirect, kYes, kYes},
        Containment{{"LoopAsTheFileIsNotResolved"}, "@/u1/link-loop", "@/u1", kDirect, kYes, kYes},
        Containment{{"AsRequiredDir"}, "@/u1/x", "@/link-to-u1", kDirect, kYes, kYes},
        Containment{{"InBothPaths"}, "@/link-to-u1/x", "@/link-to-u1/", kDirect, kYes, kYes},
        // A link to nothing counts as a missing name, so it is not followed.
        Containment{{"Dangling"},
                    "@/u1/link-dangling/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ENOENT, "@/u1/link-dangling"),
                    kYes},
        Containment{{"Loop"},
                    "@/u1/link-loop/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ELOOP, "@/u1/link-loop"),
                    unresolvedPath(ELOOP, "@/u1/link-loop")},
        Containment{{"LoopAsRequiredDir"},
                    "@/u1/x",
                    "@/u1/link-loop",
                    kNested,
                    unresolvedDir(ELOOP, "@/u1/link-loop"),
                    unresolvedDir(ELOOP, "@/u1/link-loop")}),
    CaseName());

/** What the standard library has against the empty path. */
const int kEmptyPathError = [] {
  std::error_code error;
  static_cast<void>(std::filesystem::canonical("", error));
  return error.value();
}();

// The working directory is the tree's root.
INSTANTIATE_TEST_SUITE_P(
    RelativePaths, PathContainmentTest,
    testing::Values(
        Containment{{"Path"}, "u1/x", "@/u1", kDirect, kYes, kYes},
        Containment{{"RequiredDir"}, "@/u1/contentfiles/x", "u1", kNested, kYes, kYes},
        Containment{{"Both"}, "./u1/contentfiles/x", "u1", kNested, kYes, kYes},
        Containment{{"UpAndDown"}, "u1/../u2/x", "u1", kNested, kNo, kNo},
        Containment{{"DotAsRequiredDir"}, "u1/x", ".", kNested, kYes, kYes},
        // A bare name has the empty path for a parent, which is no directory; without the need to
        // exist it resolves to itself.
        Containment{{"BareName"}, "x", "@", kNested, unresolvedPath(kEmptyPathError, ""), kNo},
        Containment{{"BareNameInDot"}, "x", ".", kNested, unresolvedPath(kEmptyPathError, ""), kNo},
        Containment{
            {"BareNameInEmpty"}, "x", "", kNested, unresolvedPath(kEmptyPathError, ""), kYes},
        // The root directory is longer than the empty path, and cannot be shortened to it.
        Containment{
            {"EmptyRequiredDir"}, "@/u1/x", "", kNested, unresolvedDir(kEmptyPathError, ""), kNo}),
    CaseName());

const std::string kTooLong(300, 'n');
/** Names that are not, in a path that is. */
const std::string kTooLongTogether = [] {
  std::string path;
  for (int i = 0; i < 20; ++i) {
    path += "/" + std::string(250, 'n');
  }
  return path;
}();

INSTANTIATE_TEST_SUITE_P(
    LongNames, PathContainmentTest,
    testing::Values(
        Containment{{"TooLongOnTheWay"},
                    "@/u1/" + kTooLong + "/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ENAMETOOLONG, "@/u1/" + kTooLong),
                    unresolvedPath(ENAMETOOLONG, "@/u1/" + kTooLong)},
        Containment{{"TooLongAsAWhole"},
                    "@/u1" + kTooLongTogether + "/x",
                    "@/u1",
                    kNested,
                    unresolvedPath(ENOENT, "@/u1" + kTooLongTogether),
                    unresolvedPath(ENAMETOOLONG, "@/u1" + kTooLongTogether)},
        Containment{{"TooLongRequiredDir"},
                    "@/u1/x",
                    "@/" + kTooLong,
                    kNested,
                    unresolvedDir(ENAMETOOLONG, "@/" + kTooLong),
                    unresolvedDir(ENAMETOOLONG, "@/" + kTooLong)},
        Containment{{"TooLongForTheFileItself"}, "@/u1/" + kTooLong, "@/u1", kDirect, kYes, kYes}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    PercentSigns, PathContainmentTest,
    testing::Values(
        Containment{
            {"InPath"}, "@/u1/%s%n/x", "@/u1", kNested, unresolvedPath(ENOENT, "@/u1/%s%n"), kYes},
        Containment{
            {"InRequiredDir"}, "@/u1/x", "@/%s%n", kNested, unresolvedDir(ENOENT, "@/%s%n"), kNo}),
    CaseName());

/** Gives up the right of root to pass every directory, and takes it back at the end. */
class OrdinaryUser {
 public:
  OrdinaryUser() {
    if (before_ == 0) become(65534);
  }
  ~OrdinaryUser() {
    if (before_ == 0) become(0);
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

 private:
  static void become(uid_t user) { EXPECT_EQ(::seteuid(user), 0); }

  uid_t before_ = ::geteuid();
};

TEST(PathContainmentPermissionTest, ADirectoryThatMayNotBeSearchedIsLogged) {
  const PathTree tree;
  ASSERT_EQ(::chmod(tree.root().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(tree.at("@/u2").c_str(), 0), 0);
  for (const bool requireExisting : {true, false}) {
    SCOPED_TRACE(requireExisting);
    const OrdinaryUser user;
    LogCapture log;
    EXPECT_FALSE(VerifyFilePathIsWithinRequiredDirectory(tree.at("@/u2/inner/x"), tree.at("@/u2"),
                                                         requireExisting, true));
    EXPECT_EQ(log.take(), std::vector{lineFor({Side::Path, EACCES, "@/u2/inner"}, tree)});

    EXPECT_FALSE(VerifyFilePathIsWithinRequiredDirectory(tree.at("@/u1/x"), tree.at("@/u2/inner"),
                                                         requireExisting, true));
    EXPECT_EQ(log.take(), std::vector{lineFor({Side::RequiredDir, EACCES, "@/u2/inner"}, tree)});

    // The directory itself can be resolved; only what is in it cannot be looked at.
    EXPECT_TRUE(VerifyFilePathIsWithinRequiredDirectory(tree.at("@/u2/x"), tree.at("@/u2"),
                                                        requireExisting, true));
    EXPECT_EQ(log.take(), std::vector<LogLine>());
  }
  ASSERT_EQ(::chmod(tree.at("@/u2").c_str(), 0755), 0);
}

TEST(PathContainmentDeepTest, PathsOfManyComponentsAreShortenedToTheRequiredDirectory) {
  const PathTree tree;
  std::string path = tree.at("@/u1");
  for (int i = 0; i < 500; ++i)
    path += "/d";
  const LogCapture log;
  EXPECT_TRUE(VerifyFilePathIsWithinRequiredDirectory(path, tree.at("@/u1"), false, true));
  EXPECT_FALSE(VerifyFilePathIsWithinRequiredDirectory(path, tree.at("@/u2"), false, true));
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

}  // namespace
}  // namespace KELP::Utils
