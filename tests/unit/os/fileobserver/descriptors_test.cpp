// The descriptors of an observer stay in this process.

#include "support/childprocess.h"
#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/ownprocess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using FileObserverDescriptors = FileObserverTest;

/** How many descriptors a program that this one executes has that are open on no file. */
std::ptrdiff_t inheritedWithoutFile() {
  ChildProcess list({"/bin/ls", "-l", "/proc/self/fd"});
  std::vector<std::string> lines;
  while (auto line = list.receive()) {
    lines.push_back(*line);
  }
  EXPECT_EQ(list.wait(), 0);
  EXPECT_GE(lines.size(), 3U);  // Its standard streams at least.
  return std::ranges::count_if(
      lines, [](const std::string& line) { return line.find("anon_inode:") != std::string::npos; });
}

TEST_F(FileObserverDescriptors, AreOneInstanceAndAWayToEnd) {
  const auto before = descriptorsOf("self");
  FileObserver observer;
  Sentinel sentinel(observer);
  ASSERT_TRUE(sentinel.pass());
  const auto opened = descriptorsSince(before);
  EXPECT_LE(opened.size(), 2U);
  EXPECT_GE(inotifyInstanceSince(before), 0);  // Throws unless it is exactly one.
  for (const auto& [descriptor, target] : opened) {
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << target;
  }
}

TEST_F(FileObserverDescriptors, AreNotInheritedByAnotherProgram) {
  const auto before = inheritedWithoutFile();
  const int leaked = ::inotify_init1(0);
  EXPECT_EQ(inheritedWithoutFile(), before + 1) << "this is how one would be seen";
  ::close(leaked);

  FileObserver observer;
  Recorder recorder;
  ASSERT_GE(observer.addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr), 1);
  EXPECT_EQ(inheritedWithoutFile(), before);

  touch(directory_ / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ::testing::ElementsAre("file"));
}

}  // namespace
}  // namespace KELP::Test
