#include "unit/diagnostic/observer/observerfixture.h"
#include "unit/foundation/seed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
namespace fs = std::filesystem;

constexpr int kReports = 5;
constexpr int kSteps = 3000;
constexpr const char* kMetadata = "metadata.db";

/** What is at a report's place. */
enum class Place { Nothing, EmptyDirectory, MetadataOnly, Report };
constexpr int kPlaces = 4;

bool isValid(Place place) {
  return place == Place::MetadataOnly || place == Place::Report;
}

/** What the observer has to do, as plain rules. */
class Model {
 public:
  using Watches = std::map<std::string, std::optional<ino_t>>;

  struct Entry {
    Place place = Place::Nothing;
    std::optional<ino_t> inode;  ///< Of the directory that is there.
  };

  /** The disk. */
  std::map<std::string, Entry> entries;

  bool started = false;
  Watches watches;  ///< By identifier: what is watched; nothing if that failed.
  std::set<std::string> known;
  std::set<std::string> beingWritten;
  std::vector<std::pair<std::string, EventType>> told;

  void start(const std::vector<std::string>& list) {
    if (!started) {
      started = true;
      for (const std::string& id : list) {
        possibleReport(id, EventType::REPORT_EXISTING);
      }
    }
  }

  void stop() {
    started = false;
    watches.clear();
    known.clear();
    beingWritten.clear();
  }

  void possibleReport(const std::string& id, EventType type) {
    if (!started || watches.contains(id)) {
      return;
    }
    watches[id] = entries[id].inode;
    if (isValid(entries[id].place)) {
      known.insert(id);
      told.emplace_back(id, type);
    }
  }

  void reportEvent(const std::string& id, std::uint32_t mask, const std::string& name) {
    const bool isMetadata = name == kMetadata;
    if (!started) {
      return;
    }
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0 || ((mask & IN_DELETE) != 0 && isMetadata)) {
      remove(id);
      return;
    }
    if (!isMetadata) {
      return;
    }
    if ((mask & IN_MODIFY) != 0) {
      beingWritten.insert(id);
    }
    const bool closed = (mask & IN_CLOSE_WRITE) != 0 && beingWritten.contains(id);
    if ((mask & (IN_CREATE | IN_MOVED_TO)) != 0 || closed) {
      beingWritten.erase(id);
      if (isValid(entries[id].place)) {
        announce(id);
      }
    }
  }

  void overflow() {
    if (!started) {
      return;
    }
    for (const auto& [id, entry] : entries) {
      if (entry.place != Place::Nothing) {
        watches[id] = entry.inode;
      }
      if (isValid(entry.place)) {
        announce(id);
      } else {
        remove(id);
      }
    }
  }

 private:
  void announce(const std::string& id) {
    const bool isNew = known.insert(id).second;
    told.emplace_back(id, isNew ? EventType::REPORT_ADDED : EventType::REPORT_UPDATED);
  }
  void remove(const std::string& id) {
    if (known.erase(id) != 0) {
      told.emplace_back(id, EventType::REPORT_REMOVED);
      watches.erase(id);
    }
  }
};

/**
 * Random calls of an observer and of the model, and random changes of the disk between them. What
 * is at a report's place is a link to one of several directories, none of which ever changes: the
 * kernel has nothing to tell of such changes, and nothing happens but what the test does.
 */
class ObserverRandomSteps : public ObserverTest {
 protected:
  ObserverRandomSteps() {
    for (int i = 0; i < kReports; ++i) {
      const std::string id = idText(i);
      model_.entries[id] = {};
      fs::create_directories(directory_ / "empty" / id);
      targets_[id] = {fs::path(), directory_ / "empty" / id, makeBareElsewhere(id),
                      makeReportElsewhere(id)};
    }
  }

  /** One step on both sides. @return what it was. */
  std::string step() {
    const int kind = number(0, 99);
    const std::string id = idText(number(0, kReports - 1));
    if (kind < 30) {
      return changePlace(id, static_cast<Place>(number(0, kPlaces - 1)));
    }
    if (kind < 75) {
      return tellOfReport(id);
    }
    if (kind < 88) {
      return tellOfRoot(id);
    }
    if (kind < 93) {
      const auto type = static_cast<EventType>(number(0, 3));
      observer().handlePossibleNewReport(uuid(id.c_str()), type);
      model_.possibleReport(id, type);
      return "possible report " + id;
    }
    if (kind < 96) {
      return overflow();
    }
    return model_.started && number(0, 2) == 0 ? stop() : start();
  }

  /** Expects that both sides have told the same, watch the same, and see the same on disk. */
  void compare() {
    Events expected;
    for (const auto& [id, type] : model_.told) {
      expected.push_back(event(type, id));
    }
    model_.told.clear();
    ASSERT_EQ(sorted_ ? sorted(recorder_.take()) : recorder_.take(),
              sorted_ ? sorted(expected) : expected);
    sorted_ = false;
    ASSERT_EQ(inotifyInstances().size(), model_.started ? 1U : 0U);
    if (model_.started) {
      ASSERT_EQ(watchedInodes(), expectedInodes());
    }
    for (const auto& [id, entry] : model_.entries) {
      ASSERT_EQ(observer().isValidReport(uuid(id.c_str())), isValid(entry.place)) << id;
    }
  }

 private:
  int number(int low, int high) { return randomNumber(random_, low, high); }

  template <typename Choices>
  auto oneOf(const Choices& choices) {
    return choices[static_cast<std::size_t>(number(0, static_cast<int>(choices.size()) - 1))];
  }

  std::string changePlace(const std::string& id, Place place) {
    const auto index = static_cast<std::size_t>(place);
    if (place == Place::Nothing) {
      fs::remove(dirOf(id));
      model_.entries[id] = {};
    } else {
      linkUnseen(targets_[id][index], id);
      model_.entries[id] = {place, inodeOf(targets_[id][index])};
    }
    return id + " becomes " + std::to_string(index);
  }

  std::string tellOfReport(const std::string& id) {
    constexpr std::array<std::uint32_t, 14> kBits{
        IN_MODIFY,      IN_CLOSE_WRITE, IN_CREATE,     IN_MOVED_TO, IN_DELETE,
        IN_DELETE_SELF, IN_MOVE_SELF,   IN_ACCESS,     IN_ATTRIB,   IN_MOVED_FROM,
        IN_ISDIR,       IN_IGNORED,     IN_Q_OVERFLOW, IN_UNMOUNT};
    static const std::vector<std::string> kNames{kMetadata, kMetadata, kMetadata,     kMetadata,
                                                 "",        "lock",    "metadata.db2"};
    // Rather the first bits, which are those that matter for a file.
    std::uint32_t mask = kBits[static_cast<std::size_t>(number(0, number(1, 13)))];
    if (number(0, 3) == 0) {
      mask |= oneOf(kBits);
    }
    if (unsure_.contains(id)) {
      mask |= IN_MODIFY;
    }
    const std::string name = oneOf(kNames);
    if ((mask & IN_MODIFY) != 0 && name == kMetadata && model_.started &&
        (mask & (IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF)) == 0) {
      unsure_.erase(id);
    }
    tellReport(id, mask, name);
    model_.reportEvent(id, mask, name);
    std::ostringstream what;
    what << "0x" << std::hex << mask << " of \"" << name << "\" in " << id;
    return what.str();
  }

  std::string tellOfRoot(const std::string& id) {
    constexpr std::array<std::uint32_t, 5> kMasks{IN_CREATE, IN_CREATE | IN_ISDIR, IN_CREATE,
                                                  IN_MOVED_TO, IN_DELETE};
    const std::uint32_t mask = oneOf(kMasks);
    std::string name = id;
    const int form = number(0, 5);
    if (form == 0) {
      name.pop_back();
    } else if (form == 1) {
      std::transform(name.begin(), name.end(), name.begin(),
                     [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    } else if (form == 2) {
      name.clear();
    }
    tellRoot(mask, name);
    if ((mask & IN_CREATE) != 0 && form != 0 && form != 2) {
      model_.possibleReport(id, EventType::REPORT_ADDED);
    }
    std::ostringstream what;
    what << "0x" << std::hex << mask << " of " << name << " in the root";
    return what.str();
  }

  /** Which of the writes in progress an overflow makes moot, is not fixed: until the next write of
   *  a report, no close of its file is told without one. */
  std::string overflow() {
    tellRoot(IN_Q_OVERFLOW);
    model_.overflow();
    sorted_ = true;
    if (model_.started) {
      for (const auto& [id, entry] : model_.entries) {
        unsure_.insert(id);
      }
    }
    return "overflow";
  }

  std::string start() {
    std::vector<std::string> list;
    for (const ReportUuid& id : repository_.getAllReportUuids()) {
      list.push_back(id.toString());
    }
    observer().start();
    model_.start(list);
    return "start";
  }

  std::string stop() {
    std::vector<std::string> expected;
    std::map<ino_t, int> descriptors;
    for (const KernelWatch& watch : kernelWatches()) {
      descriptors[watch.inode] = watch.wd;
    }
    std::vector<LogLine> lines;
    for (const auto& [id, inode] : model_.watches) {
      lines.push_back(removalLine(inode ? descriptors[*inode] : -1));
    }
    static_cast<void>(log_.take());
    observer().stop();
    EXPECT_EQ(sortedTexts(log_.take()), sortedTexts(lines));
    model_.stop();
    unsure_.clear();
    return "stop";
  }

  [[nodiscard]] std::map<ino_t, std::uint32_t> expectedInodes() const {
    std::map<ino_t, std::uint32_t> masks{{inodeOf(root_), kRootMask}};
    for (const auto& [id, inode] : model_.watches) {
      if (inode) {
        masks[*inode] = kReportMask;
      }
    }
    return masks;
  }
  [[nodiscard]] static std::map<ino_t, std::uint32_t> watchedInodes() {
    std::map<ino_t, std::uint32_t> masks;
    for (const KernelWatch& watch : kernelWatches()) {
      masks[watch.inode] = watch.mask;
    }
    return masks;
  }
  static Events sorted(Events events) {
    std::sort(events.begin(), events.end(), [](const ReportEvent& a, const ReportEvent& b) {
      return std::tie(a.id, a.type) < std::tie(b.id, b.type);
    });
    return events;
  }

  std::mt19937 random_{testSeed()};
  Model model_;
  std::map<std::string, std::array<fs::path, kPlaces>> targets_;
  std::set<std::string> unsure_;  ///< Whether a write of these is in progress, is not fixed.
  bool sorted_ = false;           ///< Whether the order of the last step's events is not fixed.
};

TEST_F(ObserverRandomSteps, AreToldAndWatchedAsTheRulesSay) {
  SCOPED_TRACE(seedNote());
  std::vector<std::string> steps;
  for (int i = 0; i < kSteps; ++i) {
    steps.push_back(step());
    compare();
    if (HasFailure()) {
      for (std::size_t at = steps.size() < 40 ? 0 : steps.size() - 40; at < steps.size(); ++at) {
        std::cerr << "step " << at << ": " << steps[at] << '\n';
      }
      return;
    }
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
