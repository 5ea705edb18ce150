#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/mutators.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

const StoreRecord kStamp{"modified", "1700000000"};

enum class Lock { None, Read, Write };

class MutatorTest : public ReportTest {
 protected:
  /** Puts the report into a state, with an old time of modification. */
  void prepare(const Stages& stages, const std::optional<std::string>& undone, Lock lock) {
    storeStages(metadataFile(), stages, undone);
    store("modified", "1");
    ASSERT_THAT(report_->releaseLock(), Succeeds());
    if (lock == Lock::Read) {
      ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
    } else if (lock == Lock::Write) {
      ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
    }
  }

  void expectRefused(const Mutator& mutator, const std::string& message) {
    const Tree before = treeOf(root_);
    EXPECT_THAT(mutator.call(*report_), Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
    EXPECT_EQ(treeOf(root_), before);
  }

  /** Expects success, with the stamp written first and then the one value. */
  void expectDone(const Mutator& mutator) {
    const std::size_t before = recordCount();
    EXPECT_THAT(mutator.call(*report_), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(recordsSince(before), ElementsAre(kStamp, StoreRecord{mutator.key, mutator.text}));
  }

  FakeClock clock_;
  ReportPtr report_ = create();
};

/** Which stages are done, and what the store says of the others. */
using StageCase = std::tuple<unsigned, std::optional<std::string>>;

class ReportStages : public MutatorTest, public testing::WithParamInterface<StageCase> {
 protected:
  const Stages stages_ = stagesOf(std::get<0>(GetParam()));
  const std::optional<std::string> undone_ = std::get<1>(GetParam());
};

TEST_P(ReportStages, DecideWhichChangesAreAllowed) {
  for (const Mutator& mutator : mutators()) {
    SCOPED_TRACE(mutator.name);
    for (const Lock lock : {Lock::None, Lock::Read, Lock::Write}) {
      prepare(stages_, undone_, lock);
      if (!mutator.allowed(stages_)) {
        expectRefused(mutator, mutator.refusal);
      } else if (lock != Lock::Write) {
        expectRefused(mutator, kNoWriteLock);
      } else {
        expectDone(mutator);
      }
    }
  }
}

TEST_P(ReportStages, AreSeenByTheQueries) {
  prepare(stages_, undone_, Lock::None);
  const Tree before = treeOf(root_);
  const Stages& s = stages_;
  EXPECT_EQ(report_->isCreationComplete(), s.creation);
  EXPECT_EQ(report_->isUserInteractionComplete(), s.interaction);
  EXPECT_EQ(report_->isDataCollectionComplete(), s.collection);
  EXPECT_EQ(report_->isDataPolicyApplied(), s.policy);
  EXPECT_EQ(report_->isUploadComplete(), s.upload);
  EXPECT_EQ(report_->canCollectData(), s.creation && !s.collection);
  EXPECT_EQ(report_->canApplyDataPolicy(),
            s.creation && s.interaction && s.collection && !s.policy);
  EXPECT_EQ(report_->canUpload(),
            s.creation && s.interaction && s.collection && s.policy && !s.upload);
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_EQ(treeOf(root_), before);
}

const std::vector<std::optional<std::string>>& undoneTexts() {
  static const std::vector<std::optional<std::string>> texts{"0", std::nullopt, "", "true", "11"};
  return texts;
}

std::string nameOf(const testing::TestParamInfo<StageCase>& all) {
  const auto& [bits, undone] = all.param;
  const std::string text = !undone ? "Absent" : undone->empty() ? "Empty" : *undone;
  return std::to_string(bits) + "Else" + text;
}

INSTANTIATE_TEST_SUITE_P(All, ReportStages,
                         testing::Combine(testing::Range(0U, 32U),
                                          testing::ValuesIn(undoneTexts())),
                         nameOf);

class ReportMutator : public MutatorTest, public testing::WithParamInterface<Mutator> {};

TEST_P(ReportMutator, FailsAsTheTouchDoesWhenTheStampCannotBeWritten) {
  prepare(GetParam().allowing, "0", Lock::Write);
  const FileSizeLimit full(fs::file_size(metadataFile()));
  expectRefused(GetParam(), kTouchFailure);
}

TEST_P(ReportMutator, KeepsTheStampWhenItsOwnWriteFails) {
  // The second limit cuts the record short, where the first leaves no room for it at all.
  for (const std::size_t room : {0U, 5U}) {
    prepare(GetParam().allowing, "0", Lock::Write);
    const std::optional<std::string> former = stored(GetParam().key);
    const auto result = [&] {
      const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(kStamp) + room);
      return GetParam().call(*report_);
    }();
    EXPECT_THAT(result, Refuses(GetParam().writeFailure));
    EXPECT_EQ(log_.take(), errorLines({GetParam().writeFailure}));
    EXPECT_EQ(stored("modified"), "1700000000");
    EXPECT_EQ(stored(GetParam().key), former);
  }
}

TEST_P(ReportMutator, WorksAgainAfterAFailedWrite) {
  prepare(GetParam().allowing, "0", Lock::Write);
  {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(kStamp) + 5);
    ASSERT_FALSE(GetParam().call(*report_).has_value());
  }
  static_cast<void>(log_.take());
  EXPECT_THAT(GetParam().call(*report_), Succeeds());
  EXPECT_EQ(stored(GetParam().key), GetParam().text);
}

TEST_P(ReportMutator, FailsOnAReportOfNothing) {
  DiagnosticReport report;
  const std::string message = GetParam().allowed({}) ? kNoWriteLock : GetParam().refusal;
  EXPECT_THAT(GetParam().call(report), Refuses(message));
  EXPECT_EQ(log_.take(), errorLines({message}));
}

TEST_P(ReportMutator, FailsAsTheTouchDoesWhenTheMetadataWasRemoved) {
  prepare({}, "0", Lock::Write);
  fs::remove(metadataFile());
  expectRefused(GetParam(), GetParam().allowed({}) ? kTouchFailure : GetParam().refusal);
}

TEST_P(ReportMutator, FailsAsTheTouchDoesWhenTheMetadataWasDamaged) {
  prepare({}, "0", Lock::Write);
  fs::remove(metadataFile());
  writeFile(metadataFile(), "this is no store");
  expectRefused(GetParam(), GetParam().allowed({}) ? kTouchFailure : GetParam().refusal);
}

INSTANTIATE_TEST_SUITE_P(All, ReportMutator, testing::ValuesIn(mutators()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Diagnostic
