#pragma once

#include "faults/power/record.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace KELP::Test {

/** The files and directories below a directory: their paths, and the content of the files. */
struct FileTree {
  struct Entry {
    bool isDirectory = false;
    std::string content;
    bool operator==(const Entry&) const = default;
    bool operator<(const Entry& other) const {
      return std::tie(isDirectory, content) < std::tie(other.isDirectory, other.content);
    }
  };
  std::map<std::filesystem::path, Entry> entries;

  bool operator==(const FileTree&) const = default;
  bool operator<(const FileTree& other) const { return entries < other.entries; }

  [[nodiscard]] static FileTree readFrom(const std::filesystem::path& directory);
  /** Puts these and nothing else into @p directory. */
  void writeTo(const std::filesystem::path& directory) const;
};

/** What becomes of one effect when the power goes. */
struct Fate {
  enum Kind { Kept, Lost, Zeroed, Cut } kind = Kept;
  std::size_t size = 0;  ///< How much of it is there when it is cut.
};

/** Files and directories in memory, to which the effects of a record are applied. */
class FileSystemModel {
 public:
  /** Holds @p tree, all of which is on stable storage. */
  explicit FileSystemModel(const FileTree& tree);

  /** The effects of @p calls on the tree, which was at @p base when they were recorded. Everything
   *  that they did is then done here too. */
  std::vector<Effect> perform(const std::vector<RecordedCall>& calls,
                              const std::filesystem::path& base);

  void apply(const Effect& effect, Fate fate = {});

  [[nodiscard]] FileTree tree() const;
  /** The number of what is at a path; empty when nothing is. */
  [[nodiscard]] std::optional<std::size_t> find(const std::filesystem::path& path) const;
  [[nodiscard]] const std::string& contentOf(std::size_t object) const {
    return objects_.at(object).content;
  }

 private:
  struct Object {
    bool isDirectory = false;
    std::string content;
    std::map<std::string, std::size_t> names;
  };

  std::size_t add(std::size_t directory, const std::string& name, bool isDirectory);
  [[nodiscard]] std::size_t at(const std::filesystem::path& path) const {
    return find(path).value();
  }
  [[nodiscard]] Effect effectOf(const RecordedCall& call, const std::filesystem::path& base);
  void list(std::size_t directory, const std::filesystem::path& path, FileTree& out) const;
  [[nodiscard]] Object& objectFor(const Effect& effect);

  std::vector<Object> objects_{{true, "", {}}};
};

}  // namespace KELP::Test
