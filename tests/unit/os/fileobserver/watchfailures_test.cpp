// addWatch() fails: what it returns, and what it says.

#include "unit/os/fileobserver/observertest.h"
#include "unit/os/fileobserver/systemcalls.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FileObserverWatchFailure : public FileObserverTest {
 protected:
  /** Fails to watch @p path: @return the error. */
  int failToWatch(const std::string& path, std::uint32_t mask = IN_CREATE) {
    const auto captured = std::make_shared<int>();
    errno = 0;
    const int wd = observer_.addWatch(
        path, mask, [captured](inotify_event*, void*) {}, nullptr);
    const int error = errno;
    EXPECT_EQ(wd, -1);
    EXPECT_EQ(captured.use_count(), 1) << "the callback is kept";
    return error;
  }

  FileObserver observer_;
};

struct Error {
  int number;
  const char* text;
};

void PrintTo(const Error& error, std::ostream* out) {
  *out << error.text;
}

class FileObserverWatchError : public FileObserverWatchFailure,
                               public ::testing::WithParamInterface<Error> {};

INSTANTIATE_TEST_SUITE_P(, FileObserverWatchError,
                         ::testing::Values(Error{EACCES, "Permission denied"},
                                           Error{ENOMEM, "Cannot allocate memory"},
                                           Error{EIO, "Input/output error"},
                                           Error{EBADF, "Bad file descriptor"}));

TEST_P(FileObserverWatchError, IsLoggedEachTime) {
  const Refusal refusal(Call::InotifyAddWatch, GetParam().number);
  EXPECT_EQ(failToWatch("/some/%s%n/path"), GetParam().number);
  EXPECT_EQ(failToWatch("/another"), GetParam().number);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(errorLine(std::string("Unable to watch /some/%s%n/path: ") + GetParam().text),
                  errorLine(std::string("Unable to watch /another: ") + GetParam().text)));
}

TEST_F(FileObserverWatchFailure, OfAPathThatIsNotThereIsNotLogged) {
  touch(directory_ / "file");
  EXPECT_EQ(failToWatch(directory_ / "none"), ENOENT);
  EXPECT_EQ(failToWatch(""), ENOENT);
  EXPECT_EQ(failToWatch(directory_ / "file" / "inside"), ENOTDIR);
  EXPECT_EQ(failToWatch(directory_ / "file", IN_CREATE | IN_ONLYDIR), ENOTDIR);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileObserverWatchFailure, OfAnUnusablePathIsLogged) {
  const std::string tooLong = "/" + std::string(5000, 'x');
  EXPECT_EQ(failToWatch(tooLong), ENAMETOOLONG);
  std::filesystem::create_symlink("loop", directory_ / "loop");
  const std::string loop = directory_ / "loop";
  EXPECT_EQ(failToWatch(loop), ELOOP);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(errorLine("Unable to watch " + tooLong + ": File name too long"),
                  errorLine("Unable to watch " + loop + ": Too many levels of symbolic links")));
}

TEST_F(FileObserverWatchFailure, OfAPathWithANulNeverWatchesItsBeginning) {
  const std::string beginning = directory_.path();
  EXPECT_EQ(failToWatch(beginning + '\0' + "rest"), EINVAL);
  EXPECT_EQ(failToWatch(beginning + '\0'), EINVAL);
  const LogLine line = errorLine("Unable to watch " + beginning + ": Invalid argument");
  EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(FileObserverWatchFailure, OfAnEmptyMaskIsLogged) {
  EXPECT_EQ(failToWatch(directory_.path(), 0), EINVAL);
  EXPECT_THAT(log_.lines(), ElementsAre(errorLine("Unable to watch " + directory_.path().string() +
                                                  ": Invalid argument")));
}

TEST_F(FileObserverWatchFailure, AtTheLimitIsLoggedOnceForEachObserver) {
  const auto limitAt = [](const std::string& path) {
    return errorLine("Unable to watch " + path +
                     ": the limit fs.inotify.max_user_watches is reached; raise it with \"sysctl "
                     "fs.inotify.max_user_watches=NUMBER\"");
  };
  FileObserver another;
  const Refusal refusal(Call::InotifyAddWatch, ENOSPC);
  EXPECT_EQ(failToWatch("/first"), ENOSPC);
  EXPECT_EQ(failToWatch("/second"), ENOSPC);
  EXPECT_EQ(failToWatch("/first"), ENOSPC);
  EXPECT_THAT(log_.take(), ElementsAre(limitAt("/first")));

  EXPECT_EQ(another.addWatch(
                "/third", IN_CREATE, [](inotify_event*, void*) {}, nullptr),
            -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(failToWatch("/fourth"), ENOSPC);
  EXPECT_THAT(log_.lines(), ElementsAre(limitAt("/third")));
}

TEST_F(FileObserverWatchFailure, AtTheLimitLeavesOtherFailuresTheirLines) {
  {
    const Refusal refusal(Call::InotifyAddWatch, ENOSPC);
    EXPECT_EQ(failToWatch("/first"), ENOSPC);
  }
  EXPECT_THAT(log_.take(), ::testing::SizeIs(1));
  const Refusal refusal(Call::InotifyAddWatch, EACCES);
  EXPECT_EQ(failToWatch("/second"), EACCES);
  EXPECT_THAT(log_.lines(), ElementsAre(errorLine("Unable to watch /second: Permission denied")));
}

TEST_F(FileObserverWatchFailure, LeavesTheOtherWatches) {
  Recorder recorder;
  const int wd = observer_.addWatch(directory_.path(), IN_CREATE, recorder.callback(), nullptr);
  ASSERT_GE(wd, 1);
  {
    const Refusal refusal(Call::InotifyAddWatch, ENOSPC);
    failToWatch(directory_.path());
    failToWatch("/other");
  }
  failToWatch(directory_ / "none");
  touch(directory_ / "file");
  EXPECT_THAT(namesOf(recorder.waitFor(1)), ElementsAre("file"));

  std::filesystem::create_directory(directory_ / "sub");
  EXPECT_GE(observer_.addWatch(directory_ / "sub", IN_CREATE, recorder.callback(), nullptr), 1);
  EXPECT_TRUE(observer_.rmWatch(wd));
}

}  // namespace
}  // namespace KELP::Test
