#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/** A known report whose metadata file is deleted. */
class ObserverRemovedMetadata : public ObserverTest {
 protected:
  ObserverRemovedMetadata() {
    makeReport(idText(1));
    observer().start();
    EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
    fs::remove(metadataOf(idText(1)));
    EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  }
};

TEST_F(ObserverRemovedMetadata, EndsTheReportsWatch) {
  EXPECT_FALSE(isWatched(dirOf(idText(1))));
  EXPECT_EQ(kernelWatches().size(), 2U) << "the root's and the sentinel's";
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverRemovedMetadata, MadeAgainInTheSameDirectoryIsNotNoticed) {
  writeFile(metadataOf(idText(1)), "text");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

TEST_F(ObserverRemovedMetadata, MadeAgainIsFoundAtTheNextStart) {
  fs::remove_all(dirOf(idText(1)));
  fs::rename(makeReportElsewhere(idText(1)), dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  observer().stop();
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
}

TEST_F(ObserverRemovedMetadata, WithItsDirectoryMadeAnewIsAdded) {
  fs::remove_all(dirOf(idText(1)));
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
  writeFile(metadataOf(idText(1)), "text");
  EXPECT_THAT(eventsUntilNow(), ElementsAre(updated(idText(1))));
}

TEST_F(ObserverRemovedMetadata, CanBeRemovedAgainAndAgain) {
  for (int i = 0; i < 5; ++i) {
    fs::remove_all(dirOf(idText(1)));
    link(makeBareElsewhere(idText(1)), idText(1));
    EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
    fs::remove(metadataOf(idText(1)));
    EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
