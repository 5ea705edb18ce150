#include "check/contentfiles.h"

#include "base/text.h"
#include "check/namedpaths.h"

#include <algorithm>
#include <set>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

std::string complaintAbout(const StoredReport& report, const Variation& variation) {
  const std::optional<fs::path> path = storedFile(report, variation);
  if (!path) {
    const std::string complaint = inQuotes(variation.relative_path) + " is not in the report";
    return fileOfAnotherRoot(report, variation)
               ? complaint + ": it is recorded under another root, and there"
               : complaint;
  }
  const std::string name = inQuotes(path->lexically_relative(report.directory).native());
  const std::optional<Entry> entry = certainEntryAt(*path);
  if (!entry) {
    return name + " is missing";
  }
  return entry->isFile() ? "" : name + " is " + entry->typeText();
}

fs::path withoutSlash(const fs::path& path) {
  return path.has_filename() ? path : path.parent_path();
}

/** Whether @p path is @p top, or is below it. */
bool isWithin(const fs::path& path, const fs::path& top) {
  const std::string& text = path.native();
  const std::string& beginning = top.native();
  return text.starts_with(beginning) &&
         (text.size() == beginning.size() || text[beginning.size()] == '/');
}

/** Goes through "contentfiles" without following links, and without a stack that grows with it. */
class Search {
 public:
  explicit Search(const Subject& subject) : top_(subject.contentFiles()), named_(subject) {
    for (const Property* const property : fileProperties(subject)) {
      owned_.push_back(withoutSlash((top_ / property->stable_id).lexically_normal()));
    }
  }

  std::vector<Orphan> run() {
    if (!named_.contain(top_)) {
      search();
      addEmptyDirectories();
    }
    std::sort(orphans_.begin(), orphans_.end(),
              [](const Orphan& a, const Orphan& b) { return a.path.native() < b.path.native(); });
    return std::move(orphans_);
  }

 private:
  void search() {
    std::vector<fs::path> left{top_};
    while (!left.empty()) {
      const fs::path next = std::move(left.back());
      left.pop_back();
      for (const Entry& entry : certainEntriesOf(next)) {
        const bool isNamed = named_.contain(entry.path);
        if (!isNamed && entry.isDirectory()) {
          left.push_back(entry.path);
          directories_.push_back(entry.path);
          continue;
        }
        markUsed(next);
        if (!isNamed) {
          orphans_.push_back({entry.path, false});
        }
      }
    }
  }

  void markUsed(fs::path directory) {
    while (directory.native() != top_.native() && used_.insert(directory.native()).second) {
      directory = directory.parent_path();
    }
  }

  /** Only the topmost of those that are in one another. */
  void addEmptyDirectories() {
    for (const fs::path& directory : directories_) {
      const fs::path parent = directory.parent_path();
      const bool isTopmost =
          parent.native() == top_.native() || used_.contains(parent.native()) || isOwned(parent);
      if (isTopmost && !used_.contains(directory.native()) && !isOwned(directory)) {
        orphans_.push_back({directory, true});
      }
    }
  }

  /** Whether a property's directory is this one, is below it, or has it below. */
  [[nodiscard]] bool isOwned(const fs::path& directory) const {
    return std::any_of(owned_.begin(), owned_.end(), [&](const fs::path& owned) {
      return isWithin(owned, directory) || isWithin(directory, owned);
    });
  }

  fs::path top_;
  NamedPaths named_;
  std::vector<fs::path> owned_;        ///< The directories of properties.
  std::vector<fs::path> directories_;  ///< Those that were seen.
  std::set<std::string> used_;         ///< Of these, those with files somewhere below.
  std::vector<Orphan> orphans_;
};

}  // namespace

std::vector<const Property*> fileProperties(const Subject& subject) {
  std::vector<const Property*> properties;
  if (subject.report.metadata.contents) {
    for (const Property& property : *subject.report.metadata.contents) {
      if (property.isFileProperty()) {
        properties.push_back(&property);
      }
    }
  }
  return properties;
}

void forEachFileVariation(const Subject& subject,
                          const std::function<void(const Property&, const Variation&)>& visit) {
  for (const Property* const property : fileProperties(subject)) {
    for (const Variation& variation : property->variations) {
      visit(*property, variation);
    }
  }
}

std::optional<fs::path> fileOfAnotherRoot(const StoredReport& report, const Variation& variation) {
  const std::string directory = "/" + report.name + "/";
  const std::size_t at = variation.relative_path.rfind(directory);
  if (at == std::string::npos || storedFile(report, variation)) {
    return std::nullopt;
  }
  Variation here = variation;
  here.relative_path = variation.relative_path.substr(at + directory.size());
  const auto path =
      fs::path(here.relative_path).is_relative() ? storedFile(report, here) : std::nullopt;
  const auto entry = path ? certainEntryAt(*path) : std::nullopt;
  return entry && entry->isFile() ? path : std::nullopt;
}

std::vector<RecordedFile> recordedFiles(const Subject& subject) {
  std::vector<RecordedFile> files;
  forEachFileVariation(subject, [&](const Property& property, const Variation& variation) {
    files.push_back({property.stable_id, variation.sensitivity_level,
                     subject.directory() / variation.relative_path,
                     complaintAbout(subject.report, variation)});
  });
  return files;
}

std::vector<Orphan> orphansOf(const Subject& subject) {
  return Search(subject).run();
}

}  // namespace KELP::Tool
