#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kUpper = "AB00CD00-0000-4000-8000-000000000001";

/** What appears in the root while it is observed. */
class ObserverRootEntry : public ObserverTest {
 protected:
  ObserverRootEntry() { observer().start(); }

  /** Expects that only the root, and the sentinels of the calls so far, are watched. */
  void expectNoReportWatched(std::size_t sentinels = 1) {
    EXPECT_EQ(reportWatches().size(), sentinels);
  }
};

struct Name {
  const char* what;
  std::string text;
};

void PrintTo(const Name& name, std::ostream* out) {
  *out << name.what;
}

class ObserverRootName : public ObserverRootEntry, public testing::WithParamInterface<Name> {};

TEST_P(ObserverRootName, ThatIsNoIdentifierIsIgnored) {
  link(makeBareElsewhere("target"), GetParam().text);
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  expectNoReportWatched();
  EXPECT_THAT(log_.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, ObserverRootName,
    testing::Values(Name{"Short", "ab00cd00-0000-4000-8000-00000000001"},
                    Name{"Long", "ab00cd00-0000-4000-8000-0000000000011"},
                    Name{"Braces", "{ab00cd00-0000-4000-8000-000000000001}"},
                    Name{"NoHyphens", "ab00cd00000040008000000000000001"},
                    Name{"MisplacedHyphen", "ab00cd0-00000-4000-8000-000000000001"},
                    Name{"NoDigit", "gb00cd00-0000-4000-8000-000000000001"},
                    Name{"SpaceBefore", " ab00cd00-0000-4000-8000-000000000001"},
                    Name{"SpaceAfter", "ab00cd00-0000-4000-8000-000000000001 "},
                    Name{"Hidden", ".ab00cd00-0000-4000-8000-000000000001"},
                    Name{"Suffix", "ab00cd00-0000-4000-8000-000000000001.tmp"},
                    Name{"Urn", "urn:uuid:ab00cd00-0000-4000-8000-000000000001"},
                    Name{"Metadata", "metadata.db"}),
    [](const auto& all) { return all.param.what; });

TEST_F(ObserverRootEntry, ThatIsAReportAtOnceIsAddedOnce) {
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
}

TEST_F(ObserverRootEntry, MadeByTheLibraryIsAddedFirstAndOnce) {
  for (int i = 0; i < 10; ++i) {
    makeReport(idText(i));
    const Events events = eventsUntilNow();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), added(idText(i)));
    EXPECT_EQ(Events(events.begin() + 1, events.end()),
              Events(events.size() - 1, updated(idText(i))))
        << "what is written after it was seen, is an update";
  }
}

TEST_F(ObserverRootEntry, ThatIsCompleteWhenItIsLookedAtHasOneEvent) {
  whileDelivering([&] {
    makeReport(idText(1));
    makeReport(idText(2));
  });
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1)), added(idText(2))));
}

TEST_F(ObserverRootEntry, ThatIsGoneWhenItIsLookedAtHasNoEvent) {
  whileDelivering([&] {
    makeReport(idText(1));
    fs::remove_all(dirOf(idText(1)));
  });
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverRootEntry, WithoutMetadataIsWatchedAndAddedWithIt) {
  fs::create_directory(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
  writeFile(metadataOf(idText(1)), "");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverRootEntry, NeedNotBeAReportThatOpens) {
  fs::create_directory(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  writeFile(metadataOf(idText(1)), "no store");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1)), updated(idText(1))));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverRootEntry, MovedInIsFoundAtTheNextStart) {
  fs::rename(makeReportElsewhere(idText(1)), dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_FALSE(isWatched(dirOf(idText(1))));
  observer().stop();
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
}

TEST_F(ObserverRootEntry, GivenItsNameLaterIsFoundAtTheNextStart) {
  fs::rename(makeReportElsewhere(idText(1)), root_ / "unfinished");
  fs::rename(root_ / "unfinished", dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  observer().stop();
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
}

TEST_F(ObserverRootEntry, InUpperCaseStandsForTheDirectoryInLowerCase) {
  linkUnseen(makeBareElsewhere("unseen"), idText(1));
  fs::create_directory(root_ / kUpper);
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
  EXPECT_FALSE(isWatched(root_ / kUpper));
}

TEST_F(ObserverRootEntry, InUpperCaseAloneIsNoReport) {
  link(makeBareElsewhere("target"), kUpper);
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  expectNoReportWatched();
  // The identifier has been seen, and its watch has failed: nothing more is done about it.
  link(makeBareElsewhere("later"), idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  expectNoReportWatched(2);
  observer().stop();
  EXPECT_THAT(log_.take(), testing::Contains(removalLine(-1)));
}

TEST_F(ObserverRootEntry, ThatIsAFileIsWatchedAndNeverAReport) {
  writeFile(dirOf(idText(1)), "a file");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
  writeFile(dirOf(idText(1)), "written again");
  fs::remove(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

TEST_F(ObserverRootEntry, ThatIsALinkToADirectoryIsAddedWithTheTargetsMetadata) {
  fs::create_directory(directory_ / "target");
  link(directory_ / "target", idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(directory_ / "target"));
  writeFile(directory_ / "target" / "metadata.db", "");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverRootEntry, ThatIsALinkToNothingIsNoReport) {
  link("nowhere", idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  expectNoReportWatched();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverRootEntry, ThatIsALinkToItselfIsNoReport) {
  link(idText(1), idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  expectNoReportWatched();
  EXPECT_EQ(log_.take(), errorLines({"Unable to watch " + dirOf(idText(1)).string() +
                                     ": Too many levels of symbolic links"}));
}

TEST_F(ObserverRootEntry, OfTheNullIdentifierIsLikeAllOthers) {
  const std::string null = ReportUuid().toString();
  link(makeBareElsewhere(null), null);
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(null)));
}

TEST_F(ObserverRootEntry, DeletedBeforeItWasAReportIsNotSeenAgain) {
  fs::create_directory(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  fs::remove(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty()) << "its watch is not given up before the stop";
  EXPECT_FALSE(isWatched(dirOf(idText(1))));
}

TEST_F(ObserverRootEntry, MovedAwayBeforeItWasAReportKeepsItsWatch) {
  fs::create_directory(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  fs::rename(dirOf(idText(1)), directory_ / "away");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(directory_ / "away"));
  writeFile(directory_ / "away" / "metadata.db", "");
  EXPECT_THAT(eventsUntilNow(), IsEmpty()) << "there is no report at its place";
  EXPECT_TRUE(isWatched(directory_ / "away"));
}

}  // namespace
}  // namespace KELP::Diagnostic
