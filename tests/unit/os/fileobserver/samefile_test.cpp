// A second watch on the same file takes the place of the first, by whatever path.

#include "unit/os/fileobserver/observertest.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

namespace KELP::Test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

class FileObserverSameFile : public FileObserverTest,
                             public ::testing::WithParamInterface<const char*> {
 protected:
  FileObserverSameFile() {
    touch(file_);
    std::filesystem::create_directory(directory_ / "sub");
    std::filesystem::create_symlink("file", directory_ / "link");
    std::filesystem::create_hard_link(file_, directory_ / "hardlink");
  }

  int watch(const std::filesystem::path& path, std::uint32_t mask, const Recorder& recorder,
            void* userData = nullptr) {
    return observer_.addWatch(path, mask, recorder.callback(), userData);
  }

  std::filesystem::path file_ = directory_ / "file";
  FileObserver observer_;
  Sentinel sentinel_{observer_};
  Recorder first_;
  Recorder second_;
};

INSTANTIATE_TEST_SUITE_P(, FileObserverSameFile,
                         ::testing::Values("file", ".//file", "sub/../file", "link", "hardlink"));

TEST_P(FileObserverSameFile, HasTheLastCallbackAndMask) {
  int userData = 0;
  const int wd = watch(file_, IN_ATTRIB | IN_OPEN, first_);
  ASSERT_GE(wd, 1);
  EXPECT_EQ(watch(directory_ / GetParam(), IN_ATTRIB | IN_CLOSE_WRITE, second_, &userData), wd);

  changeMode(file_);
  touch(file_);  // Opens it, which the second did not ask for.
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(first_.seen(), IsEmpty());
  const std::vector<Seen> seen = second_.seen();
  EXPECT_THAT(masksOf(seen), ElementsAre(IN_ATTRIB, IN_CLOSE_WRITE));
  EXPECT_THAT(seen, ::testing::Each(AllOf(Field(&Seen::wd, wd),
                                          Field(&Seen::userData, static_cast<void*>(&userData)))));

  EXPECT_TRUE(observer_.rmWatch(wd));
  EXPECT_FALSE(observer_.rmWatch(wd));
  changeMode(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_EQ(second_.seen().size(), 2U);
}

TEST_F(FileObserverSameFile, AddsToTheMaskWithInMaskAdd) {
  const int wd = watch(file_, IN_ATTRIB, first_);
  EXPECT_EQ(watch(file_, IN_CLOSE_WRITE | IN_MASK_ADD, second_), wd);
  changeMode(file_);
  touch(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(first_.seen(), IsEmpty());
  EXPECT_THAT(masksOf(second_.seen()), ElementsAre(IN_ATTRIB, IN_CLOSE_WRITE));
}

TEST_F(FileObserverSameFile, KeepsItsWatchWhenTheSecondIsRefused) {
  const int wd = watch(file_, IN_ATTRIB, first_);
  ASSERT_GE(wd, 1);
  EXPECT_EQ(watch(file_, IN_CLOSE_WRITE | IN_MASK_CREATE, second_), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_THAT(log_.lines(),
              ElementsAre(errorLine("Unable to watch " + file_.string() + ": File exists")));
  changeMode(file_);
  touch(file_);
  ASSERT_TRUE(sentinel_.pass());
  EXPECT_THAT(masksOf(first_.seen()), ElementsAre(IN_ATTRIB));
  EXPECT_THAT(second_.seen(), IsEmpty());
}

}  // namespace
}  // namespace KELP::Test
