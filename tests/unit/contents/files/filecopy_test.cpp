// What a copy into a file property puts on disk and into the store.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
namespace fs = std::filesystem;

class FileCopy : public FilesTest {
 protected:
  /** Expects that @p result is a success without a log line. */
  void expectDone(const Result& result) {
    EXPECT_THAT(result, Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
  }
};

TEST_F(FileCopy, MakesTheDirectoriesAndTheFileAndRecordsTheWholePath) {
  const DiskState before = now();
  expectDone(copy(makeSource("content")));
  EXPECT_THAT(
      changesSince(before),
      ElementsAre(Key(entry("contentfiles")), Key(entry("contentfiles/log")),
                  Key(entry("contentfiles/log/2")),
                  Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": content")), Key("source")));
  const std::string contents =
      R"([{"media_type":"text/plain","property_type":"FILE","stable_id":"log","tags":["tag"],)"
      R"("variations":[{"relative_path":")" +
      storedFile().string() + R"(","sensitivity_level":2}]}])";
  EXPECT_THAT(recordsSince(before.records),
              ElementsAre(stamp(), StoreRecord{kContentsKey, contents}));
  EXPECT_FALSE(lockIsFree()) << "the write lock is kept";
}

TEST_F(FileCopy, LeavesTheSourceAsItIs) {
  const fs::path source = makeSource("content");
  expectDone(copy(source));
  EXPECT_EQ(readFile(source), "content");
}

TEST_F(FileCopy, WithoutANameTakesThatOfTheProperty) {
  expectDone(copy(makeSource("content"), ""));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(kLevel, "log"), kLevel)));
  EXPECT_EQ(readFile(storedFile(kLevel, "log")), "content");
}

TEST_F(FileCopy, AppendsVariationsInTheOrderOfTheCalls) {
  const std::vector<int> levels{2, std::numeric_limits<int>::min(), -7, 0,
                                1, std::numeric_limits<int>::max()};
  std::vector<Variation> expected;
  for (const int level : levels) {
    const std::string content = "level " + std::to_string(level);
    expectDone(
        report().copyFileToFileProperty(kProperty, level, makeSource(content), kFileName, false));
    EXPECT_EQ(readFile(storedFile(level)), content);
    expected.push_back(fileVariation(storedFile(level), level));
  }
  EXPECT_EQ(property().variations, expected);
}

TEST_F(FileCopy, LeavesOtherPropertiesAndVariationsAsTheyAre) {
  ASSERT_THAT(report().createReportStringProperty("before", {}), Succeeds());
  ASSERT_THAT(report().addReportStringVariation("before", kLevel, "text", false), Succeeds());
  ASSERT_THAT(report().createReportFileProperty("after", "", {}), Succeeds());
  addFile(kLevel, "after", kFileName, "after");
  Contents expected = report().getReportContents().value();
  expectDone(copy(makeSource("content")));
  expected.front().variations.push_back(fileVariation(storedFile(), kLevel));
  EXPECT_EQ(report().getReportContents(), expected);
  EXPECT_EQ(readFile(dir() / "contentfiles/after/2/a.txt"), "after");
}

TEST_F(FileCopy, IsAllowedAtEveryStage) {
  for (const char* flag : {"report_creation_complete", "user_interaction_complete",
                           "data_collection_complete", "data_policy_applied", "upload_complete"}) {
    store(flag, "1");
  }
  expectDone(copy(makeSource("content")));
  EXPECT_EQ(readFile(storedFile()), "content");
}

TEST_F(FileCopy, ReplacesAStaleFileThatHasNoRecord) {
  fs::create_directories(variationDirectory());
  writeFile(storedFile(), "a stale file that is longer");
  const fs::path source = makeSource("content");
  const DiskState before = now();
  expectDone(copy(source));
  EXPECT_THAT(changesSince(before),
              ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": content"))));
  EXPECT_EQ(property().variations.size(), 1U);
}

TEST_F(FileCopy, OverwritingKeepsTheRecordAndItsPathWhateverTheName) {
  addFile(1, "other");
  addFile(kLevel, "the former content, which is longer");
  addFile(3, "other");
  const auto record = stored(kContentsKey);
  for (const char* fileName :
       {"another.txt", "", "../../../../../climbs", "/absolute", kFileName}) {
    SCOPED_TRACE(fileName);
    store("modified", "1");
    const std::string content = std::string("instead by ") + fileName;
    const fs::path source = makeSource(content);
    const DiskState before = now();
    expectDone(copy(source, fileName, true));
    EXPECT_THAT(changesSince(before),
                ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": " + content))));
    EXPECT_THAT(recordsSince(before.records),
                ElementsAre(stamp(), StoreRecord{kContentsKey, record}));
  }
}

TEST_F(FileCopy, OverwritingPutsAFileThatIsGoneBackWithItsDirectories) {
  const fs::path path = addFile(kLevel, "former");
  fs::remove_all(dir() / "contentfiles");
  expectDone(copy(makeSource("content"), "", true));
  EXPECT_EQ(readFile(path), "content");
}

TEST_F(FileCopy, OverwritingIsNoDemand) {
  expectDone(copy(makeSource("content"), kFileName, true));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
}

TEST_F(FileCopy, OverwritesTheFirstOfSeveralVariationsAtALevel) {
  const fs::path first = addFile(kLevel, "first");
  const fs::path second = addFile(3, "second");
  storeVariations({fileVariation(first, kLevel), fileVariation(second, kLevel)});
  expectDone(copy(makeSource("content"), "", true));
  EXPECT_EQ(readFile(first), "content");
  EXPECT_EQ(readFile(second), "second");
  EXPECT_THAT(property().variations,
              ElementsAre(fileVariation(first, kLevel), fileVariation(second, kLevel)));
}

TEST_F(FileCopy, OverwritesAFileThatIsRecordedRelativeToTheReport) {
  fs::create_directories(variationDirectory());
  const auto recorded = fileVariation("contentfiles/log/2/b.txt", kLevel);
  storeVariations({recorded});
  expectDone(copy(makeSource("content"), "", true));
  EXPECT_EQ(readFile(storedFile(kLevel, "b.txt")), "content");
  EXPECT_THAT(property().variations, ElementsAre(recorded));
}

TEST_F(FileCopy, GoesToTheFirstOfSeveralPropertiesOfTheName) {
  Properties other = property();
  other.media_type = "another";
  storeContents({property(), other});
  expectDone(copy(makeSource("content")));
  const Contents contents = report().getReportContents().value();
  ASSERT_EQ(contents.size(), 2U);
  EXPECT_EQ(contents[0].variations.size(), 1U);
  EXPECT_EQ(contents[1], other);
}

TEST_F(FileCopy, DoesNotAskForTheTypeOfTheProperty) {
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  expectDone(
      report().copyFileToFileProperty("text", kLevel, makeSource("content"), kFileName, false));
  EXPECT_EQ(readFile(dir() / "contentfiles/text/2/a.txt"), "content");
  Variation recorded;
  recorded.sensitivity_level = kLevel;
  EXPECT_THAT(report().getReportStringProperty("text").value().variations, ElementsAre(recorded))
      << "a string property records no path";
}

TEST_F(FileCopy, StoresAllOfAFileThatTheSystemMakesWhileItIsRead) {
  const fs::path source = "/proc/self/limits";
  ASSERT_EQ(fs::file_size(source), 0U);
  EXPECT_THAT(copy(source), Succeeds());
  EXPECT_EQ(readFile(storedFile()), readFile(source));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FileCopy, FollowsALinkToItsSource) {
  fs::create_symlink(makeSource("content"), directory_ / "link");
  expectDone(copy(directory_ / "link"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(storedFile())));
  EXPECT_EQ(readFile(storedFile()), "content");
}

TEST_F(FileCopy, IsSeenByAnotherObject) {
  expectDone(copy(makeSource("content")));
  unlock();
  EXPECT_THAT(open()->getReportFileVariationPath(kProperty, kLevel), Holds(storedFile()));
}

TEST_F(FileCopy, LeavesNoDescriptorOpen) {
  const std::vector<int> before = descriptorsBelow(directory_.path());
  const fs::path source = makeSource("content");
  expectDone(copy(source));
  expectDone(copy(source, "", true));
  EXPECT_FALSE(copy(source).has_value());
  EXPECT_FALSE(copy(directory_ / "missing", "", true).has_value());
  EXPECT_FALSE(copy(outside(), "", true).has_value());
  EXPECT_EQ(descriptorsBelow(directory_.path()), before);
}

/** Sizes of files. */
class FileCopyOfSize : public FileCopy, public testing::WithParamInterface<std::size_t> {};

TEST_P(FileCopyOfSize, StoresEveryByte) {
  std::string content;
  content.reserve(GetParam());
  for (std::size_t i = 0; i < GetParam(); ++i) {
    content += static_cast<char>(i * 31 + i / 251);
  }
  const fs::path source = makeSource(content);
  expectDone(copy(source));
  EXPECT_TRUE(readFile(storedFile()) == content);
  EXPECT_TRUE(readFile(source) == content);
  expectDone(copy(makeSource("short"), "", true));
  EXPECT_EQ(readFile(storedFile()), "short");
  expectDone(copy(makeSource(content), "", true));
  EXPECT_TRUE(readFile(storedFile()) == content);
}

INSTANTIATE_TEST_SUITE_P(All, FileCopyOfSize,
                         testing::Values(0U, 1U, 4095U, 4096U, 65537U, 5U << 20U),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace KELP::Diagnostic
