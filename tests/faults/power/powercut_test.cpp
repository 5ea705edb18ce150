// Whatever a file system keeps of what was not synced when the power goes: a report that was closed
// is whole, one that was being written has an earlier state, and nothing gets in the way of the
// others.

#include "faults/power/cutmodels.h"
#include "faults/power/examination.h"
#include "faults/power/promises.h"
#include "faults/power/recordedrun.h"
#include "support/childprocess.h"
#include "support/setting.h"
#include "support/smalldisk.h"
#include "unit/foundation/seed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::IsEmpty;

/** How often each sampled model is tried on each run. */
std::size_t sampledCuts() {
  return setting("KELP_POWER_CUTS", 100);
}

class PowerCut : public testing::TestWithParam<PowerRun> {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoRecorder(); !why.empty()) GTEST_SKIP() << why;
    run_.emplace(GetParam());
    FileSystemModel model(run_->before());
    effects_ = model.perform(run_->calls(), run_->world().top);
    promises_.emplace(run_->before(), effects_);
    // What a cut leaves is put in the place of the world: lists of contents hold whole paths. In
    // memory when that can be had, since nothing there has to last.
    disk_.emplace(run_->world().top, 64 << 10);
    examiner_.emplace(std::vector<std::string>{POWER_EXAMINER, run_->world().top.string()});
  }

  /** Cuts the power after @p cut effects. */
  void cutAt(std::size_t cut, const CutModel& model, std::mt19937& random) {
    SCOPED_TRACE("cut after " + std::to_string(cut) + " of " + std::to_string(effects_.size()) +
                 " effects, " + model.name);
    const std::span<const Effect> before(effects_.data(), cut);
    const Fates fates = model.fates(before, random);
    FileSystemModel left(run_->before());
    for (std::size_t i = 0; i < cut; ++i) {
      left.apply(effects_[i], fates[i]);
    }
    const FileTree tree = left.tree();
    const Examination& found = examineOnce(tree);
    FileSystemPromises given = model.given;
    given.appendsInOrder = given.appendsInOrder || GetParam().needsNoOrder;
    EXPECT_THAT(promises_->broken(cut, given, tree, found), IsEmpty());
  }

  [[nodiscard]] std::size_t effectCount() const { return effects_.size(); }
  [[nodiscard]] std::size_t treeCount() const { return examined_.size(); }

 private:
  const Examination& examineOnce(const FileTree& tree) {
    const auto [entry, isNew] = examined_.try_emplace(tree);
    if (isNew) {
      tree.writeTo(run_->world().top);
      entry->second = examine(*examiner_);
    }
    return entry->second;
  }

  std::optional<RecordedRun> run_;
  std::vector<Effect> effects_;
  std::optional<Promises> promises_;
  std::optional<SmallDisk> disk_;
  std::optional<ChildProcess> examiner_;
  std::map<FileTree, Examination> examined_;
};

TEST_P(PowerCut, KeepsWhatIsPromised) {
  std::mt19937 unused;
  for (std::size_t cut = 0; cut <= effectCount() && !HasFailure(); ++cut) {
    for (const CutModel& model : cutModels()) {
      if (!model.isSampled) cutAt(cut, model, unused);
    }
  }
  RecordProperty("effects", std::to_string(effectCount()));
  RecordProperty("trees", std::to_string(treeCount()));
}

TEST_P(PowerCut, KeepsWhatIsPromisedInSamples) {
  SCOPED_TRACE(seedNote());
  std::mt19937 random(testSeed());
  for (std::size_t i = 0; i < sampledCuts() && !HasFailure(); ++i) {
    for (const CutModel& model : cutModels()) {
      if (model.isSampled) cutAt(random() % (effectCount() + 1), model, random);
    }
  }
  RecordProperty("seed", std::to_string(testSeed()));
  RecordProperty("trees", std::to_string(treeCount()));
}

INSTANTIATE_TEST_SUITE_P(All, PowerCut, testing::ValuesIn(powerRuns()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Test
