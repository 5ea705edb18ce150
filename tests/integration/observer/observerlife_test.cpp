// The life of a report in another process, as an observer tells it.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"
#include "integration/observer/reportlife.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ObservedLife : public ObserverTest {
 protected:
  ObservedLife() {
    observer_->start();
    EXPECT_THAT(recorder_.take(), ElementsAre(Announcement{sentinel_, EventType::REPORT_EXISTING}));
  }

  [[nodiscard]] Announcements announcedAfter(const std::string& command) {
    producer_.request(command);
    return takeAll();
  }

  const std::string id_ = idText(1);
  Producer producer_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(ObservedLife, BeginsOnceAndEndsOnce) {
  Announcements announced = announcedAfter("create " + id_);
  ASSERT_FALSE(announced.empty());
  EXPECT_EQ(announced.front(), (Announcement{id_, EventType::REPORT_ADDED}));
  announced.erase(announced.begin());
  // The observer may find the metadata when some of its first values are not written yet.
  EXPECT_THAT(announced, Each(Announcement{id_, EventType::REPORT_UPDATED}));
  EXPECT_THAT(announcedAfter("delete " + id_),
              ElementsAre(Announcement{id_, EventType::REPORT_REMOVED}));
  EXPECT_THAT(recorder_.believed(), ElementsAre(sentinel_));
}

TEST_F(ObservedLife, BeginsAgainWithTheSameIdentifier) {
  static_cast<void>(announcedAfter("create " + id_));
  for (int round = 0; round < 20; ++round) {
    Announcements announced = announcedAfter("recreate " + id_);
    ASSERT_THAT(announced, SizeIs(testing::Ge(2U)));
    EXPECT_EQ(announced[0], (Announcement{id_, EventType::REPORT_REMOVED}));
    EXPECT_EQ(announced[1], (Announcement{id_, EventType::REPORT_ADDED}));
    EXPECT_THAT(announcedAfter("touch " + id_ + " 1"),
                ElementsAre(Announcement{id_, EventType::REPORT_UPDATED}));
  }
}

TEST_F(ObservedLife, TellsEachChangeAsOftenAsMetadataIsWritten) {
  static_cast<void>(announcedAfter("create " + id_));
  for (const LifeStep& step : reportLife()) {
    SCOPED_TRACE(step.name);
    EXPECT_THAT(announcedAfter("step " + step.name + " " + id_),
                AllOf(SizeIs(step.writes), Each(Announcement{id_, EventType::REPORT_UPDATED})));
  }
  EXPECT_THAT(announcedAfter("delete " + id_),
              ElementsAre(Announcement{id_, EventType::REPORT_REMOVED}));
}

TEST_F(ObservedLife, GoesOnWhenTheMetadataIsCompacted) {
  static_cast<void>(announcedAfter("create " + id_));
  // The change that brings the compacted file into place is told once too.
  EXPECT_THAT(announcedAfter(std::string("step ") + kDescribeAtLength + " " + id_),
              AllOf(SizeIs(lifeStep(kDescribeAtLength).writes),
                    Each(Announcement{id_, EventType::REPORT_UPDATED})));
  EXPECT_LT(std::filesystem::file_size(directoryOf(id_) / "metadata.db"),
            kLongDescriptions * kLongDescription / 2)
      << "it was not compacted";
  EXPECT_THAT(announcedAfter("step setPID " + id_),
              AllOf(SizeIs(2), Each(Announcement{id_, EventType::REPORT_UPDATED})));
  EXPECT_THAT(announcedAfter("delete " + id_),
              ElementsAre(Announcement{id_, EventType::REPORT_REMOVED}));
}

TEST_F(ObservedLife, SaysNothingOfThoseWhoOnlyLook) {
  static_cast<void>(announcedAfter("create " + id_));
  EXPECT_THAT(announcedAfter("look " + id_), IsEmpty());
  static_cast<void>(announcedAfter("step createReportFileProperty " + id_));
  EXPECT_THAT(announcedAfter("look " + id_), IsEmpty());
}

TEST_F(ObservedLife, IsToldApartFromThatOfOtherReports) {
  Producer other(root_);
  std::vector<std::string> ids;
  for (int number = 1; number <= 20; ++number) {
    ids.push_back(idText(number));
  }
  static_cast<void>(announcedAfter("create" + joined(ids)));
  for (const std::string& id : ids) {
    producer_.begin("touch " + id + " 3");
    other.request("touch " + id + " 4");
    producer_.await();
  }
  const Announcements announced = takeAll();
  for (const std::string& id : ids) {
    EXPECT_THAT(typesOf(id, announced), AllOf(SizeIs(7), Each(EventType::REPORT_UPDATED))) << id;
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
