// Copies where the system does not copy, or copies a part, by itself.

#include "unit/contents/files/filesfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sendfile.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>

namespace {

/** How the next calls of sendfile() end: how many bytes are copied before it fails, and why. */
struct Obstacle {
  std::size_t granted;
  int error;
};

std::optional<Obstacle> obstacle;

}  // namespace

extern "C" ssize_t sendfile(int to, int from, off_t* offset, std::size_t count) noexcept {
  std::size_t granted = count;
  if (obstacle && obstacle->granted == 0) {
    errno = obstacle->error;
    return -1;
  }
  if (obstacle) {
    granted = std::min(count, obstacle->granted);
    obstacle->granted -= granted;
  }
  return ::syscall(SYS_sendfile, to, from, offset, granted);
}

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

class FileCopyByParts : public FilesTest {
 protected:
  ~FileCopyByParts() override { obstacle.reset(); }

  /** Not a multiple of any buffer, and different everywhere. */
  static std::string content() {
    std::string bytes;
    for (int number = 0; bytes.size() < 300'000; ++number) {
      bytes += std::to_string(number);
    }
    return bytes;
  }

  void expectCopied() {
    EXPECT_THAT(copy(makeSource(content())), Succeeds());
    EXPECT_EQ(readFile(storedFile()), content());
    EXPECT_THAT(log_.take(), IsEmpty());
  }
};

class FileCopyByHand : public FileCopyByParts, public testing::WithParamInterface<int> {};

TEST_P(FileCopyByHand, ReadsAndWritesWhatTheSystemDoesNotCopy) {
  obstacle = {0, GetParam()};
  expectCopied();
}

INSTANTIATE_TEST_SUITE_P(Errors, FileCopyByHand, testing::Values(EINVAL, ENOSYS, EINTR));

TEST_F(FileCopyByParts, GoesOnWhereTheSystemStopped) {
  obstacle = {100'001, EIO};
  expectCopied();
}

TEST_F(FileCopyByParts, AnythingElseIsTheFailureOfTheCopy) {
  obstacle = {0, EOVERFLOW};
  EXPECT_THAT(copy(makeSource(content())),
              FailsWith(std::make_error_code(std::errc::value_too_large), kCopyFailure));
}

}  // namespace
}  // namespace KELP::Diagnostic
