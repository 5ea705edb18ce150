#pragma once

#include "faults/power/cutmodels.h"
#include "faults/power/examination.h"

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KELP::Test {

/** What may be found after a cut at any instant of a run. */
class Promises {
 public:
  /** @param effects those of the whole run on @p before. */
  Promises(const FileTree& before, const std::vector<Effect>& effects);

  /**
   * What is wrong with what was found after a cut.
   *
   * @param cut   how many effects there were before it.
   * @param given what the file system promises.
   * @param tree  what was left.
   */
  [[nodiscard]] std::vector<std::string> broken(std::size_t cut, FileSystemPromises given,
                                                const FileTree& tree,
                                                const Examination& found) const;

 private:
  /** One report, or the store that belongs to none. */
  struct Subject {
    /** After each count of effects, the state; empty while there is none. */
    std::vector<std::optional<std::string>> states;
    /** Counts of effects at which all was sealed. */
    std::set<std::size_t> seals;
    /** The same, when the file system keeps names in order. */
    std::set<std::size_t> sealsByOrder;
    /** The count of effects at which its deletion began. */
    std::optional<std::size_t> deletion;
    /** The counts of effects at which something was written to its store and not synced. */
    std::set<std::size_t> unsynced;
    /** The files that may be its store after a cut, and the directory that says so. */
    std::set<std::size_t> files;
    std::optional<std::size_t> directory;

    /** The count of effects of the last seal before a cut. */
    [[nodiscard]] std::optional<std::size_t> sealBefore(std::size_t cut,
                                                        FileSystemPromises given) const;
  };
  struct WholeFile {
    std::size_t since = 0;
    std::filesystem::path path;
    std::string content;
  };

  void note(const std::string& said, std::size_t count, const FileSystemModel& model);
  void lookAtStores(std::size_t count, const FileSystemModel& model);
  void trackSyncs(const Effect& effect);
  [[nodiscard]] static std::string brokenOf(const Subject& subject, std::size_t cut,
                                            FileSystemPromises given,
                                            const std::optional<std::string>& state,
                                            const std::string& failure);

  std::map<std::string, Subject> subjects_;
  std::vector<WholeFile> wholeFiles_;
  /** Files that were written and not synced since. */
  std::set<std::size_t> dirty_;
};

}  // namespace KELP::Test
