// Somebody exchanges a file or directory of a report for something else, all the time, while the
// library works on it. KELP_HOSTILE_SECONDS is how long for each, KELP_HOSTILE_SEED the attacker's
// choices.

#include "faults/hostile/scene.h"
#include "support/childprocess.h"
#include "support/setting.h"
#include "unit/os/storefile.h"

#include <diagnostic/diagnosticdata.h>
#include <os/keyvaluestore.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <random>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticReport;

Diagnostic::ReportUuid subjectId() {
  Diagnostic::ReportUuid id;
  id.parse(kSubjectId);
  return id;
}

/** What an operation under attack works on. */
struct Battle {
  const Scene& scene;
  fs::path one;    ///< What the report needs.
  fs::path other;  ///< What the attacker has beside it.
  DiagnosticData data{scene.root()};

  [[nodiscard]] std::unique_ptr<DiagnosticReport> open() const {
    auto report = data.openReport(subjectId());
    return report && report->acquireWriteLock(false) ? std::move(report) : nullptr;
  }
  /** Puts everything back as it was. Nothing is exchanged once the attacker's entry is gone, which
   *  comes last. */
  void renew(const std::function<void(const fs::path&)>& makeOther) const {
    while (fs::exists(fs::symlink_status(other))) {
      std::error_code exchanged;
      fs::remove_all(other, exchanged);
    }
    scene.reset();
    makeOther(other);
  }
};

/** Whether the operation leaves the report as it needs it, or something is gone afterwards. */
enum class After { Again, Renew };

struct Race {
  const char* name;
  After after;
  std::string place;  ///< Of what is exchanged, in the report; "" is its directory.
  std::function<void(const Scene&, const fs::path&)> makeOther;
  std::function<bool(const Battle&)> act;  ///< @return whether it succeeded.
  bool mayAlwaysSucceed = false;           ///< When what is found instead makes no difference.
};

std::ostream& operator<<(std::ostream& out, const Race& race) {
  return out << race.name;
}

std::function<void(const Scene&, const fs::path&)> linkTo(const char* target) {
  return [target](const Scene& scene, const fs::path& place) {
    fs::create_symlink(scene.outside() / target, place);
  };
}

void makeFifo(const Scene&, const fs::path& place) {
  ::mkfifo(place.c_str(), 0666);
}

/** Of a report whose metadata cannot be read. */
void damageAndLink(const Scene& scene, const fs::path& place) {
  writeFile(scene.subject() / "metadata.db", "damage");
  fs::create_symlink(scene.outside() / "directory", place);
}

bool copyTo(const Battle& battle, int level) {
  const auto report = battle.open();
  return report &&
         report->copyFileToFileProperty("log", level, battle.scene.source(), "a.txt", true);
}

bool addFile(const Battle& battle) {
  return copyTo(battle, 3);
}
bool replaceFile(const Battle& battle) {
  return copyTo(battle, 2);
}
bool addScratchFile(const Battle& battle) {
  const auto report = battle.open();
  return report && report->copyFileToFileProperty("log", 3, battle.scene.subject() / "tmp/file",
                                                  "a.txt", true);
}
bool removeProperty(const Battle& battle) {
  const auto report = battle.open();
  return report && report->removeReportFileProperty("log");
}
bool removeVariation(const Battle& battle) {
  const auto report = battle.open();
  return report && report->removeFileVariation("log", 2);
}
bool applyPolicy(const Battle& battle) {
  const auto report = battle.open();
  return report && report->setCurrentConsentLevel(0) && report->applyPolicyFilters();
}
bool deleteReport(const Battle& battle) {
  return battle.data.deleteReport(subjectId(), false).has_value();
}
bool forceDeleteReport(const Battle& battle) {
  return battle.data.deleteReport(subjectId(), true).has_value();
}
bool touch(const Battle& battle) {
  const auto report = battle.open();
  return report && report->touch();
}
bool purge(const Battle& battle) {
  const auto report = battle.open();
  return report && report->purgeReportTemporaryFiles();
}
bool filter(const Battle& battle) {
  const auto report = battle.open();
  return report && report->filterFileVariationToTemporaryFile(
                       "log", 2, [](std::ifstream& input, std::ofstream&) {
                         return input.get() == 's' && input.get() == 't';
                       });
}

class SwapRace : public testing::TestWithParam<Race> {
 protected:
  SwapRace() {
    writeFile(scene_.outside() / "store", Scene::metadata(kSubjectId, {}));
    const fs::path beside = scene_.subject() / (GetParam().place.empty() ? "../.other" : "other");
    battle_.one = GetParam().place.empty() ? scene_.subject() : scene_.subject() / GetParam().place;
    battle_.other = beside.lexically_normal();
  }

  void renew() const {
    battle_.renew([&](const fs::path& place) { GetParam().makeOther(scene_, place); });
  }

  const Scene scene_;
  Battle battle_{scene_, {}, {}};
};

TEST_P(SwapRace, LeadsNobodyOutAndDoesNotHang) {
  const std::chrono::seconds length(setting("KELP_HOSTILE_SECONDS", 1));
  const auto seed = static_cast<unsigned>(setting("KELP_HOSTILE_SEED", std::random_device()()));
  ::alarm(static_cast<unsigned>(length.count()) + 30);  // A hang ends this process.
  const Entries before = scene_.untouchable();
  renew();
  ChildProcess attacker({KELP_HOSTILE_ATTACKER, std::to_string(seed), battle_.one, battle_.other});

  int succeeded = 0;
  int failed = 0;
  const auto end = std::chrono::steady_clock::now() + length;
  do {
    const bool hasSucceeded = GetParam().act(battle_);
    ++(hasSucceeded ? succeeded : failed);
    if (hasSucceeded && GetParam().after == After::Renew) {
      renew();
    }
  } while (std::chrono::steady_clock::now() < end || succeeded == 0);
  attacker.closeInput();
  const std::string exchanges = attacker.receive().value_or("no");
  ::alarm(0);

  std::cout << "KELP_HOSTILE_SEED=" << seed << ": " << exchanges << " exchanges, " << succeeded
            << " successes, " << failed << " failures\n";
  EXPECT_EQ(difference(before, scene_.untouchable()), "");
  EXPECT_NE(exchanges, "0");
  EXPECT_TRUE(failed > 0 || GetParam().mayAlwaysSucceed) << "nothing was exchanged in time";
}

INSTANTIATE_TEST_SUITE_P(
    , SwapRace,
    testing::Values(
        Race{"CopyWithContentsForALink", After::Again, "contentfiles", linkTo("directory"),
             addFile},
        Race{"CopyWithAPropertyForALink", After::Again, "contentfiles/log", linkTo("directory"),
             addFile},
        Race{"CopyWithALevelForALink", After::Again, "contentfiles/log/2", linkTo("directory"),
             replaceFile},
        Race{"CopyWithTheFileForALink", After::Again, "contentfiles/log/2/a.txt", linkTo("file"),
             replaceFile, true},
        Race{"CopyWithTheFileForADanglingLink", After::Again, "contentfiles/log/2/a.txt",
             linkTo("missing"), replaceFile, true},
        Race{"CopyWithTheFileForAFifo", After::Again, "contentfiles/log/2/a.txt", makeFifo,
             replaceFile},
        Race{"CopyOfAFileForAFifo", After::Again, "tmp/file", makeFifo, addScratchFile},
        Race{"RemovePropertyWithContentsForALink", After::Renew, "contentfiles",
             linkTo("directory"), removeProperty},
        Race{"RemovePropertyWithItsDirectoryForALink", After::Renew, "contentfiles/log",
             linkTo("directory"), removeProperty, true},
        Race{"RemoveVariationWithALevelForALink", After::Renew, "contentfiles/log/2",
             linkTo("directory"), removeVariation},
        Race{"PolicyWithAPropertyForALink", After::Renew, "contentfiles/log", linkTo("directory"),
             applyPolicy, true},
        Race{"PurgeWithTheScratchDirectoryForALink", After::Renew, "tmp", linkTo("directory"),
             purge, true},
        Race{"DeleteWithContentsForALink", After::Renew, "contentfiles", linkTo("directory"),
             deleteReport, true},
        Race{"ForceDeleteWithTheReportForALink", After::Renew, "", linkTo("directory"),
             forceDeleteReport, true},
        Race{"ForceDeleteOfADamagedReportForALink", After::Renew, "", damageAndLink,
             forceDeleteReport, true},
        Race{"OpenWithTheLockForADanglingLink", After::Again, "lock", linkTo("missing"), touch},
        Race{"OpenWithTheLockForAFifo", After::Again, "lock", makeFifo, touch},
        Race{"ChangeWithTheStoreForALink", After::Again, "metadata.db", linkTo("store"), touch},
        Race{"ChangeWithTheStoreForAFifo", After::Again, "metadata.db", makeFifo, touch},
        Race{"FilterWithTheFileForAFifo", After::Again, "contentfiles/log/2/a.txt", makeFifo,
             filter}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace KELP::Test
