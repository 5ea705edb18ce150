#include "faults/power/cutmodels.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace KELP::Test {
namespace {

using Effects = std::span<const Effect>;

/**
 * Which effects no cut may undo, by POSIX alone: what is in a file when the file was synced
 * afterwards, a name when its directory was.
 */
std::vector<bool> syncedByPosix(Effects effects) {
  std::set<std::size_t> synced;
  std::vector<bool> safe(effects.size());
  for (std::size_t i = effects.size(); i-- > 0;) {
    const Effect& effect = effects[i];
    if (effect.kind == EffectKind::Sync) synced.insert(effect.object);
    safe[i] = synced.contains(effect.isAboutNames() ? effect.directory : effect.object);
  }
  return safe;
}

/** The same where names and sizes are kept in a journal, which every sync writes out. */
std::vector<bool> syncedByJournal(Effects effects) {
  std::vector<bool> safe = syncedByPosix(effects);
  bool written = false;
  for (std::size_t i = effects.size(); i-- > 0;) {
    written = written || effects[i].kind == EffectKind::Sync;
    if (effects[i].kind != EffectKind::Write) safe[i] = written;
  }
  return safe;
}

/** Gives each effect that is not safe the fate that @p choose says. */
template <typename Choose>
Fates fatesOf(const std::vector<bool>& safe, Effects effects, Choose choose) {
  Fates fates(effects.size());
  for (std::size_t i = 0; i < effects.size(); ++i) {
    if (!safe[i]) fates[i] = choose(effects[i]);
  }
  return fates;
}

bool isWrite(const Effect& effect) {
  return effect.kind == EffectKind::Write;
}

Fates everything(Effects effects, std::mt19937&) {
  return Fates(effects.size());
}

Fates onlySynced(Effects effects, std::mt19937&) {
  return fatesOf(syncedByPosix(effects), effects, [](const Effect&) { return Fate{Fate::Lost}; });
}

Fates namesWithoutData(Effects effects, std::mt19937&) {
  return fatesOf(syncedByJournal(effects), effects, [](const Effect& effect) {
    return Fate{isWrite(effect) ? Fate::Lost : Fate::Kept};
  });
}

Fates namesWithZeros(Effects effects, std::mt19937&) {
  return fatesOf(syncedByJournal(effects), effects, [](const Effect& effect) {
    return Fate{isWrite(effect) ? Fate::Zeroed : Fate::Kept};
  });
}

Fates dataWithoutNames(Effects effects, std::mt19937&) {
  return fatesOf(syncedByJournal(effects), effects, [](const Effect& effect) {
    return Fate{isWrite(effect) ? Fate::Kept : Fate::Lost};
  });
}

/** Of each file, all but the second half of what was written last. */
Fates lastWriteCut(Effects effects, std::mt19937&) {
  const std::vector<bool> safe = syncedByJournal(effects);
  Fates fates(effects.size());
  std::set<std::size_t> seen;
  for (std::size_t i = effects.size(); i-- > 0;) {
    if (isWrite(effects[i]) && seen.insert(effects[i].object).second && !safe[i]) {
      fates[i] = {Fate::Cut, effects[i].data.size() / 2};
    }
  }
  return fates;
}

std::size_t below(std::size_t limit, std::mt19937& random) {
  return std::uniform_int_distribution<std::size_t>(0, limit)(random);
}

/** Names up to some instant; of each file, what was written up to some byte, and perhaps zeros. */
Fates inOrder(Effects effects, std::mt19937& random) {
  const std::vector<bool> safe = syncedByJournal(effects);
  const std::size_t names = below(effects.size(), random);
  struct Write {
    std::size_t until = 0;
    Fate after;
  };
  std::map<std::size_t, Write> writes;
  Fates fates(effects.size());
  for (std::size_t i = 0; i < effects.size(); ++i) {
    const Effect& effect = effects[i];
    if (safe[i]) continue;
    if (!isWrite(effect)) {
      fates[i] = {i < names ? Fate::Kept : Fate::Lost};
      continue;
    }
    if (!writes.contains(effect.object)) {
      writes[effect.object] = {below(effects.size(), random),
                               {random() % 2 == 0 ? Fate::Zeroed : Fate::Lost}};
    }
    Write& file = writes[effect.object];
    if (i < file.until) continue;
    fates[i] = file.after;
    if (file.after.kind == Fate::Lost && std::exchange(file.until, 0) > 0) {
      fates[i] = {Fate::Cut, below(effect.data.size(), random)};
    }
  }
  return fates;
}

/** Whatever POSIX leaves open, each effect for itself. */
Fates anyhow(Effects effects, std::mt19937& random) {
  return fatesOf(syncedByPosix(effects), effects, [&](const Effect& effect) {
    if (!isWrite(effect)) return Fate{random() % 2 == 0 ? Fate::Kept : Fate::Lost};
    constexpr Fate::Kind kAll[] = {Fate::Kept, Fate::Lost, Fate::Zeroed, Fate::Cut};
    return Fate{kAll[random() % 4], below(effect.data.size(), random)};
  });
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const CutModel& model) {
  return out << model.name;
}

const std::vector<CutModel>& cutModels() {
  constexpr FileSystemPromises kOrder{true, true};
  constexpr FileSystemPromises kAppendsOnly{true, false};
  constexpr FileSystemPromises kNothing{false, false};
  static const std::vector<CutModel> all{
      {"Everything", kOrder, false, everything},
      {"OnlySynced", kAppendsOnly, false, onlySynced},
      {"NamesWithoutData", kOrder, false, namesWithoutData},
      {"NamesWithZeros", kOrder, false, namesWithZeros},
      {"DataWithoutNames", kOrder, false, dataWithoutNames},
      {"LastWriteCut", kOrder, false, lastWriteCut},
      {"InOrder", kOrder, true, inOrder},
      {"Anyhow", kNothing, true, anyhow},
  };
  return all;
}

}  // namespace KELP::Test
