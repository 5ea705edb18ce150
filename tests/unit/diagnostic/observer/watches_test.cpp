#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/** What is watched, as the kernel lists it. */
class ObserverWatches : public ObserverTest {
 protected:
  /** The mask of each inode that is watched. */
  [[nodiscard]] static std::map<ino_t, std::uint32_t> masks() {
    std::map<ino_t, std::uint32_t> found;
    for (const KernelWatch& watch : kernelWatches()) {
      found[watch.inode] = watch.mask;
    }
    return found;
  }
  using Masks = std::map<ino_t, std::uint32_t>;
};

TEST_F(ObserverWatches, AreTheRootsAndOneForEachReport) {
  makeReport(idText(1));
  makeReport(idText(2));
  observer().start();
  EXPECT_EQ(masks(), (Masks{{inodeOf(root_), kRootMask},
                            {inodeOf(dirOf(idText(1))), kReportMask},
                            {inodeOf(dirOf(idText(2))), kReportMask}}));
  EXPECT_EQ(kernelWatches().size(), 3U);
}

TEST_F(ObserverWatches, BeginAsSoonAsADirectoryIsSeen) {
  observer().start();
  fs::create_directory(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_TRUE(isWatched(dirOf(idText(1))));
}

TEST_F(ObserverWatches, AreOfOneInstanceForAllReports) {
  for (int i = 0; i < 5; ++i) {
    makeReport(idText(i));
  }
  observer().start();
  EXPECT_EQ(inotifyInstances().size(), 1U);
}

TEST_F(ObserverWatches, EndWithTheReport) {
  makeReport(idText(1));
  makeReport(idText(2));
  observer().start();
  static_cast<void>(recorder_.take());
  ASSERT_EQ(reportWatches().size(), 2U);
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(reportWatches().size(), 2U) << "the other report's and the sentinel's";
  EXPECT_TRUE(isWatched(dirOf(idText(2))));
}

TEST_F(ObserverWatches, OfTheRootEndsWithTheRoot) {
  makeReport(idText(1));
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  fs::remove_all(root_);
  EXPECT_THAT(recorder_.waitFor(1), ElementsAre(removed(idText(1))));
  fs::create_directory(root_);
  makeReport(idText(2));
  // The kernel ended the watch of the root before the removal returned; the observer's own end of
  // the report's watch follows its callback.
  for (const KernelWatch& watch : kernelWatches()) {
    EXPECT_EQ(watch.mask, kReportMask);
  }
  observer().stop();
  EXPECT_THAT(recorder_.take(), ElementsAre(removed(idText(1))));
  EXPECT_THAT(log_.take(), IsEmpty());
  observer().start();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(2))));
}

TEST_F(ObserverWatches, FollowARootThatIsMoved) {
  observer().start();
  const fs::path moved = directory_ / "moved";
  fs::rename(root_, moved);
  fs::create_directory(root_);
  const fs::path target = makeBareElsewhere(idText(1));
  // Creations in the directory that was the root are still told; what they mean is looked up at
  // the root's path.
  fs::create_directory_symlink(target, root_ / idText(1));
  fs::create_directory(moved / idText(1));
  EXPECT_THAT(recorder_.waitFor(1), ElementsAre(added(idText(1))));
}

}  // namespace
}  // namespace KELP::Diagnostic
