// What all changes of a report's contents have in common: the order of their steps, what is stored,
// and what is left when a step fails.

#include "unit/contents/properties/contentmutators.h"

#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/mutators.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
namespace fs = std::filesystem;

class ContentMutators : public ContentsTest, public testing::WithParamInterface<ContentMutator> {
 protected:
  ContentMutators() {
    storeContents(mutatedContents());
    plantFile("file/1/a.txt");
    plantFile("file/2/a.txt");
    // In the places of files of properties that have none.
    for (const char* name : {"string", "integer", "double", "boolean", "new"}) {
      plantFile(std::string(name) + "/2/a.txt");
    }
  }

  const ContentMutator& mutator() const { return GetParam(); }
  Contents changed() const {
    Contents contents = mutatedContents();
    mutator().change(contents);
    return contents;
  }
  void reset() {
    ContentsTest::storeContents(mutatedContents());
    store("modified", "1");
  }
};

TEST_P(ContentMutators, StampThenStoreTheWholeListThenRemoveFiles) {
  const Snapshot before = snapshot();
  expectStoredFirst(changed(), mutator().call);
  expectGone(before, mutator().gone);
  EXPECT_EQ(open()->getReportContents().value_or(Contents()), changed());
}

TEST_P(ContentMutators, WithoutTheWriteLockChangeNothing) {
  unlock();
  expectRefused(plain(kTouchRefusal), mutator().call);
  ASSERT_THAT(report().acquireReadLock(true), Succeeds());
  expectRefused(plain(kTouchRefusal), mutator().call);
}

TEST_P(ContentMutators, ChangeNothingWhenTheStampCannotBeWritten) {
  const std::size_t size = fs::file_size(metadataFile());
  expectRefused(plain(kStampFailure), [&](Report& r) {
    const FileSizeLimit full(size);
    return mutator().call(r);
  });
}

TEST_P(ContentMutators, LeaveOnlyTheStampWhenTheListCannotBeWritten) {
  expectOnlyStamped(plain(mutator().writeFailure), [&](Report& r) {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()));
    return mutator().call(r);
  });
  EXPECT_EQ(contents(), mutatedContents());
}

TEST_P(ContentMutators, KeepListAndFilesWhenTheWriteIsCutShortAndWorkAfterwards) {
  const Snapshot before = snapshot();
  const Result result = [&] {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()) + 40);
    return mutator().call(report());
  }();
  EXPECT_THAT(result, Refuses(mutator().writeFailure));
  EXPECT_EQ(log_.take(), errorLines({mutator().writeFailure}));
  EXPECT_EQ(stored("modified"), stamp().value);
  EXPECT_EQ(stored(kContentsKey), textOf(mutatedContents()));
  expectSameFiles(before);

  EXPECT_THAT(mutator().call(report()), Succeeds());
  EXPECT_EQ(stored(kContentsKey), textOf(changed()));
  expectGone(before, mutator().gone);
}

TEST_P(ContentMutators, AreAllowedAtEveryStageUnlessDataCollectionStopsThem) {
  for (unsigned bits = 0; bits < 32; ++bits) {
    SCOPED_TRACE(bits);
    const Stages stages = stagesOf(bits);
    storeStages(metadataFile(), stages, "0");
    reset();
    if (stages.collection && !mutator().lateRefusal.empty()) {
      expectRefused(plain(mutator().lateRefusal), mutator().call);
    } else {
      EXPECT_THAT(mutator().call(report()), Succeeds());
      EXPECT_THAT(log_.take(), testing::IsEmpty());
      EXPECT_EQ(stored("modified"), stamp().value);
      EXPECT_EQ(stored(kContentsKey), textOf(changed()));
    }
  }
}

TEST_P(ContentMutators, MissContentsBeforeTheLock) {
  storeContentsText(std::nullopt);
  unlock();
  expectRefused(mutator().withoutContents.value_or(plain(kTouchRefusal)), mutator().call);
}

TEST_P(ContentMutators, AreRefusedOnAReportOfNothing) {
  Report nothing;
  const Refusal refusal = mutator().withoutContents.value_or(plain(kTouchRefusal));
  EXPECT_THAT(mutator().call(nothing), Refuses(refusal.message));
  EXPECT_EQ(log_.take(), errorLines({refusal.line}));
}

INSTANTIATE_TEST_SUITE_P(All, ContentMutators, testing::ValuesIn(contentMutators()),
                         [](const auto& all) { return all.param.name; });

/** Those that are refused once data collection is complete. */
class LateContentMutators : public ContentMutators {};

TEST_P(LateContentMutators, AreRefusedBeforeTheLockAndBeforeTheContents) {
  store("data_collection_complete", "1");
  unlock();
  expectRefused(plain(mutator().lateRefusal), mutator().call);
  storeContentsText(std::nullopt);
  expectRefused(plain(mutator().lateRefusal), mutator().call);
}

std::vector<ContentMutator> lateMutators() {
  std::vector<ContentMutator> late = contentMutators();
  std::erase_if(late, [](const ContentMutator& mutator) { return mutator.lateRefusal.empty(); });
  return late;
}

INSTANTIATE_TEST_SUITE_P(All, LateContentMutators, testing::ValuesIn(lateMutators()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Diagnostic
