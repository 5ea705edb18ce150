#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

/**
 * What the observer does when the kernel has lost events. The losses are changes of which the
 * kernel tells nothing: links that are replaced or deleted.
 */
class ObserverOverflow : public ObserverTest {
 protected:
  ObserverOverflow() { observer().start(); }

  /** Lets a report be known; its directory is made under the name @p target. */
  void makeKnown(const std::string& id, const std::string& target) {
    link(makeBareElsewhere(target), id);
    EXPECT_THAT(eventsUntilNow(), ElementsAre(added(id)));
  }
  /** Lets the observer look again. @return what it has told. */
  Events overflow() {
    tellRoot(IN_Q_OVERFLOW);
    return withoutSentinels(recorder_.take());
  }
  [[nodiscard]] fs::path bare(const std::string& name) const { return directory_ / "bare" / name; }
};

TEST_F(ObserverOverflow, WithoutReportsTellsNothing) {
  EXPECT_THAT(overflow(), IsEmpty());
  EXPECT_THAT(kernelWatches(), testing::SizeIs(1));
}

TEST_F(ObserverOverflow, TellsOnceOfAllThatAppearedVanishedAndStayed) {
  makeKnown(idText(1), "stays");
  makeKnown(idText(2), "vanishes");
  makeKnown(idText(3), "stays too");
  linkUnseen(makeBareElsewhere("appears"), idText(4));
  fs::remove(dirOf(idText(2)));
  EXPECT_THAT(overflow(), UnorderedElementsAre(updated(idText(1)), removed(idText(2)),
                                               updated(idText(3)), added(idText(4))));
  EXPECT_TRUE(isWatched(bare("stays")));
  EXPECT_FALSE(isWatched(bare("vanishes")));
  EXPECT_TRUE(isWatched(bare("appears")));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_THAT(overflow(),
              UnorderedElementsAre(updated(idText(1)), updated(idText(3)), updated(idText(4))));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverOverflow, TellsOfAllAlsoWhenTheClientThrowsEachTime) {
  makeKnown(idText(1), "stays");
  makeKnown(idText(2), "vanishes");
  linkUnseen(makeBareElsewhere("appears"), idText(3));
  fs::remove(dirOf(idText(2)));
  recorder_.onEach([](const ReportEvent&) { throw std::runtime_error("each time"); });
  EXPECT_THROW(tellRoot(IN_Q_OVERFLOW), std::runtime_error);
  recorder_.onEach({});
  EXPECT_THAT(withoutSentinels(recorder_.take()),
              UnorderedElementsAre(updated(idText(1)), removed(idText(2)), added(idText(3))));
  EXPECT_FALSE(isWatched(bare("vanishes")));
  EXPECT_TRUE(isWatched(bare("appears")));
}

TEST_F(ObserverOverflow, LetsWhatAppearedBeObservedLikeAllOthers) {
  linkUnseen(makeBareElsewhere("appears"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(added(idText(1))));
  writeFile(bare("appears") / "metadata.db", "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  fs::remove(bare("appears") / "metadata.db");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
}

TEST_F(ObserverOverflow, WatchesADirectoryThatAppearedWithoutMetadata) {
  fs::create_directory(bare(""));
  fs::create_directory(bare("appears"));
  linkUnseen(bare("appears"), idText(1));
  EXPECT_THAT(overflow(), IsEmpty());
  EXPECT_TRUE(isWatched(bare("appears")));
  writeFile(bare("appears") / "metadata.db", "");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverOverflow, AddsAReportWhoseMetadataAppeared) {
  fs::create_directory(bare(""));
  fs::create_directory(bare("early"));
  link(bare("early"), idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  linkUnseen(makeBareElsewhere("complete"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(bare("complete")));
  EXPECT_FALSE(isWatched(bare("early")));
}

TEST_F(ObserverOverflow, RemovesAReportWhoseMetadataVanished) {
  makeKnown(idText(1), "target");
  fs::create_directory(bare("empty"));
  linkUnseen(bare("empty"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(removed(idText(1))));
  EXPECT_FALSE(isWatched(bare("target")));
  EXPECT_FALSE(isWatched(bare("empty")));
}

TEST_F(ObserverOverflow, CanBeFollowedByANewReportOfTheSameName) {
  makeKnown(idText(1), "first");
  fs::remove(dirOf(idText(1)));
  EXPECT_THAT(overflow(), ElementsAre(removed(idText(1))));
  makeKnown(idText(1), "second");
  EXPECT_TRUE(isWatched(bare("second")));
}

TEST_F(ObserverOverflow, UpdatesAReportThatWasMadeAgainAndWatchesItsNewDirectory) {
  makeKnown(idText(1), "old");
  linkUnseen(makeBareElsewhere("new"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(updated(idText(1))));
  EXPECT_FALSE(isWatched(bare("old")));
  EXPECT_TRUE(isWatched(bare("new")));
  writeFile(bare("old") / "metadata.db", "text");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  writeFile(bare("new") / "metadata.db", "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
  const auto expected = removalTexts();
  observer().stop();
  EXPECT_EQ(sortedTexts(log_.take()), expected);
}

TEST_F(ObserverOverflow, WatchesTheNewDirectoryOfAReportThatWasNeverValid) {
  fs::create_directories(bare("old"));
  link(bare("old"), idText(1));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  fs::create_directory(bare("new"));
  linkUnseen(bare("new"), idText(1));
  EXPECT_THAT(overflow(), IsEmpty());
  EXPECT_FALSE(isWatched(bare("old")));
  EXPECT_TRUE(isWatched(bare("new")));
  writeFile(bare("old") / "metadata.db", "");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  writeFile(bare("new") / "metadata.db", "");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverOverflow, MakesUpForAWatchThatHadFailed) {
  observer().handlePossibleNewReport(uuid(idText(1).c_str()), EventType::REPORT_ADDED);
  linkUnseen(makeBareElsewhere("target"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(bare("target")));
  const auto expected = removalTexts();
  observer().stop();
  EXPECT_EQ(sortedTexts(log_.take()), expected);
}

TEST_F(ObserverOverflow, IgnoresWhatIsNotNamedLikeAReport) {
  linkUnseen(makeBareElsewhere("target"), "unfinished");
  fs::create_directory(root_ / ".hidden");
  EXPECT_THAT(overflow(), IsEmpty());
  EXPECT_THAT(reportWatches(), IsEmpty());
}

TEST_F(ObserverOverflow, TellsOnceOfAReportWithTwoNames) {
  constexpr const char* kUpper = "AB00CD00-0000-4000-8000-000000000001";
  linkUnseen(makeBareElsewhere("upper"), kUpper);
  linkUnseen(makeBareElsewhere("lower"), idText(1));
  EXPECT_THAT(overflow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(bare("lower")));
  EXPECT_FALSE(isWatched(bare("upper")));
  EXPECT_THAT(overflow(), ElementsAre(updated(idText(1))));
}

TEST_F(ObserverOverflow, WithoutTheRootRemovesAllReports) {
  makeKnown(idText(1), "first");
  makeKnown(idText(2), "second");
  fs::rename(root_, directory_ / "away");
  EXPECT_THAT(overflow(), UnorderedElementsAre(removed(idText(1)), removed(idText(2))));
  EXPECT_THAT(reportWatches(), IsEmpty());
}

TEST_F(ObserverOverflow, DropsEventsOfTheDirectoryThatWasBefore) {
  makeReport(idText(1));
  EXPECT_THAT(eventsUntilNow(), testing::Contains(added(idText(1))));
  const fs::path replacement = makeBareElsewhere("replacement");
  // On the delivering thread, so that the old directory's events are still to come.
  bool told = false;
  recorder_.onEach([&](const ReportEvent&) {
    if (!std::exchange(told, true)) {
      fs::remove_all(dirOf(idText(1)));
      link(replacement, idText(1));
      tellRoot(IN_Q_OVERFLOW);
    }
  });
  link(makeBareElsewhere("trigger"), idText(2));
  EXPECT_THAT(eventsUntilNow(), testing::UnorderedElementsAre(added(idText(2)), updated(idText(2)),
                                                              updated(idText(1))));
  EXPECT_TRUE(isWatched(replacement));
}

TEST_F(ObserverOverflow, EndsWhenTheClientStops) {
  for (int i = 0; i < 5; ++i) {
    linkUnseen(makeBareElsewhere(idText(i)), idText(i));
  }
  recorder_.onEach([&](const ReportEvent&) { observer().stop(); });
  EXPECT_EQ(overflow().size(), 1U);
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

TEST_F(ObserverOverflow, EndsWhenTheClientStartsAnew) {
  for (int i = 0; i < 3; ++i) {
    linkUnseen(makeReportElsewhere(idText(i)), idText(i));
  }
  bool restarted = false;
  recorder_.onEach([&](const ReportEvent&) {
    if (!std::exchange(restarted, true)) {
      observer().stop();
      observer().start();
    }
  });
  const Events events = overflow();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0].type, static_cast<int>(EventType::REPORT_ADDED));
  EXPECT_THAT(Events(events.begin() + 1, events.end()),
              UnorderedElementsAre(existing(idText(0)), existing(idText(1)), existing(idText(2))));
}

TEST_F(ObserverOverflow, LetsTheClientsExceptionOutAndCanBeRepeated) {
  makeKnown(idText(1), "known");
  recorder_.onEach([](const ReportEvent&) { throw std::runtime_error("enough"); });
  EXPECT_THROW(tellRoot(IN_Q_OVERFLOW), std::runtime_error);
  recorder_.onEach({});
  static_cast<void>(recorder_.take());
  EXPECT_THAT(overflow(), ElementsAre(updated(idText(1))));
}

}  // namespace
}  // namespace KELP::Diagnostic
