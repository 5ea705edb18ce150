#include "unit/diagnostic/observer/observerfixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/** A known report whose directory is deleted, moved or replaced. */
class ObserverDirectory : public ObserverTest {
 protected:
  ObserverDirectory() {
    makeReport(idText(1));
    observer().start();
    EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  }

  [[nodiscard]] fs::path dir() const { return dirOf(idText(1)); }
  fs::path away_ = directory_ / "away";
};

TEST_F(ObserverDirectory, DeletedIsRemovedOnce) {
  fs::remove_all(dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(reportWatches().size(), 1U) << "the sentinel's";
}

TEST_F(ObserverDirectory, DeletedByTheLibraryIsRemovedOnce) {
  EXPECT_THAT(repository_.deleteReport(uuid(idText(1).c_str()), false), Succeeds());
  const Events events = eventsUntilNow();
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back(), removed(idText(1)));
  EXPECT_EQ(std::count(events.begin(), events.end(), removed(idText(1))), 1);
  EXPECT_EQ(reportWatches().size(), 1U) << "the sentinel's";
}

TEST_F(ObserverDirectory, MadeAnewIsAddedAndWatched) {
  fs::remove_all(dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  fs::create_directory(dir());
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(dir()));
  writeFile(metadataOf(idText(1)), "");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  fs::remove_all(dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
}

TEST_F(ObserverDirectory, ReplacedInOneGoIsRemovedAndAdded) {
  const fs::path target = makeBareElsewhere("replacement");
  whileDelivering([&] {
    fs::remove_all(dir());
    link(target, idText(1));
  });
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1)), added(idText(1))));
  EXPECT_TRUE(isWatched(target));
}

TEST_F(ObserverDirectory, MovedAwayIsRemoved) {
  fs::rename(dir(), away_);
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_FALSE(isWatched(away_));
  writeFile(away_ / "metadata.db", "text");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

TEST_F(ObserverDirectory, MovedBackIsNotNoticed) {
  fs::rename(dir(), away_);
  fs::rename(away_, dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_FALSE(isWatched(dir()));
  observer().stop();
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
}

TEST_F(ObserverDirectory, RenamedToAnotherIdentifierIsRemovedOnly) {
  fs::rename(dir(), dirOf(idText(2)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_FALSE(isWatched(dirOf(idText(2))));
}

TEST_F(ObserverDirectory, ExchangedWithAnotherIsRemovedOnly) {
  const fs::path other = makeBareElsewhere("other");
  ASSERT_EQ(::renameat2(AT_FDCWD, dir().c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE), 0);
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_FALSE(isWatched(dir()));
  EXPECT_FALSE(isWatched(other));
}

TEST_F(ObserverDirectory, OfAnotherReportStaysObserved) {
  makeReport(idText(2));
  EXPECT_FALSE(eventsUntilNow().empty());
  fs::remove_all(dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  writeFile(metadataOf(idText(2)), "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(2))));
}

TEST_F(ObserverDirectory, DeletedWithoutMetadataInItIsRemoved) {
  fs::rename(metadataOf(idText(1)), directory_ / "metadata");
  EXPECT_THAT(eventsUntilNow(), IsEmpty()) << "moving the file away is not asked for";
  fs::remove_all(dir());
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(reportWatches().size(), 2U) << "the sentinels'";
}

}  // namespace
}  // namespace KELP::Diagnostic
