// A slow callback costs no events: they wait in this process, not in the kernel's queue.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

namespace KELP::Test {
namespace {

class FileObserverSlowCallback : public FileObserverTest {
 protected:
  FileObserverSlowCallback() {
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kernelHolds_;
    for (int number = 0; number < 100; ++number) {
      // Long names, so that a moment's events are more than one read takes.
      files_.push_back(std::string(240, 'n') + std::to_string(number));
      touch(directory_ / files_.back());
    }
  }

  std::size_t kernelHolds_ = 0;
  std::vector<std::string> files_;
};

TEST_F(FileObserverSlowCallback, LosesNothing) {
  const auto before = descriptorsOf("self");
  FileObserver observer;
  const int instance = inotifyInstanceSince(before);
  Recorder recorder;
  ASSERT_GE(observer.addWatch(directory_.path(), IN_ATTRIB, recorder.callback(), nullptr), 1);
  Blocker blocker(observer);
  ASSERT_TRUE(blocker.block());

  ASSERT_GE(kernelHolds_, 2U);
  std::vector<std::string> expected;
  for (int chunk = 0; chunk < 5; ++chunk) {
    for (std::size_t count = 0; count < kernelHolds_ / 2; ++count) {
      expected.push_back(files_[expected.size() % files_.size()]);
      changeMode(directory_ / expected.back());
    }
    ASSERT_TRUE(waitUntil([&] { return pendingBytes(instance) == 0; }))
        << "events stay in the kernel's queue while a callback runs";
  }
  blocker.release();

  const std::vector<Seen> seen = recorder.waitFor(expected.size());
  ASSERT_EQ(seen.size(), expected.size());
  EXPECT_TRUE(namesOf(seen) == expected);  // Not worth to be printed.
  EXPECT_THAT(seen, ::testing::Each(::testing::Field(&Seen::mask, IN_ATTRIB)));
}

}  // namespace
}  // namespace KELP::Test
