#include "support/temporarydirectory.h"
#include "tools/support/tool.h"
#include "tools/watching/watchtest.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace KELP::Test {
namespace {

using testing::HasSubstr;

class WatchEndTest : public WatchTest {
 protected:
  void createSome(std::size_t count) {
    for (std::size_t made = 0; made < count; ++made) {
      static_cast<void>(repository_.create());
    }
  }
};

struct Ending {
  int signal;
  int status;
};

class WatchSignalTest : public WatchEndTest, public testing::WithParamInterface<Ending> {};

TEST_P(WatchSignalTest, EndsIt) {
  createSome(1);
  start({});
  line();
  EXPECT_EQ(end(GetParam().signal), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(All, WatchSignalTest,
                         testing::Values(Ending{SIGINT, 0}, Ending{SIGTERM, 0},
                                         Ending{SIGHUP, 128 + SIGHUP}));

class WatchReaderTest : public WatchEndTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(WatchReaderTest, WhoGoesEndsItWithoutAWord) {
  createSome(GetParam());
  const TemporaryDirectory directory;
  const std::string errors = directory / "errors";
  ChildProcess shell({"/bin/bash", "-c",
                      R"("$0" -C "$1" watch 2>"$2" | head -n 1; echo "status ${PIPESTATUS[0]}")",
                      toolPath(), repository_.root().native(), errors});
  EXPECT_THAT(shell.receive(), testing::Optional(HasSubstr("EXISTING")));
  EXPECT_THAT(shell.receive(), testing::Optional("status " + std::to_string(128 + SIGPIPE)));
  EXPECT_EQ(readFile(errors), "");
}

// With one report nothing more happens after the line that is read.
INSTANTIATE_TEST_SUITE_P(All, WatchReaderTest, testing::Values(1, 3));

TEST_F(WatchEndTest, ItEndsWhileItsReaderReadsNothing) {
  constexpr int kSmall = 8192;
  createSome(100);
  const TemporaryDirectory directory;
  const std::string pipe = directory / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  ASSERT_EQ(::fcntl(reader, F_SETPIPE_SZ, kSmall), kSmall);
  ChildProcess tool({"/bin/sh", "-c", R"(exec "$0" -C "$1" watch > "$2")", toolPath(),
                     repository_.root().native(), pipe});
  // The second half of the pipe is in use: now it waits for room, or is about to.
  ASSERT_TRUE(waitUntil([&] {
    int size = 0;
    return ::ioctl(reader, FIONREAD, &size) == 0 && size > kSmall / 2;
  }));
  tool.signal(SIGINT);
  EXPECT_EQ(tool.wait(), 0);
  ::close(reader);
}

TEST_F(WatchEndTest, ItEndsWhenTheRootIsGone) {
  createSome(1);
  start({});
  line();
  std::filesystem::remove_all(repository_.root());
  EXPECT_THAT(line(), HasSubstr("REMOVED"));
  EXPECT_EQ(tool_->wait(), 3);
}

}  // namespace
}  // namespace KELP::Test
