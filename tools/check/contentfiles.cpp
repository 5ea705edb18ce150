#include "check/contentfiles.h"

#include "base/files.h"
#include "base/text.h"
#include "reports/contents.h"

#include <algorithm>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

/** Calls @p visit with each property of files, and each of its variations. */
template <typename Visit>
void forEachFileVariation(const Subject& subject, const Visit& visit) {
  if (subject.report.metadata.contents) {
    for (const Property& property : *subject.report.metadata.contents) {
      if (property.isFileProperty()) {
        for (const Variation& variation : property.variations) {
          visit(property, variation);
        }
      }
    }
  }
}

std::string complaintAbout(const StoredReport& report, const Variation& variation) {
  const std::optional<fs::path> path = storedFile(report, variation);
  if (!path) {
    return "\"" + escaped(variation.relative_path) + "\" is not in the report";
  }
  const std::string name =
      "\"" + escaped(path->lexically_relative(report.directory).native()) + "\"";
  const std::optional<Entry> entry = entryAt(*path);
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

/** The one path of a file, whatever links and ".." led to its directory; the file itself may be a
 * link. Nothing when the directory is not there. */
std::optional<fs::path> resolved(const fs::path& path) {
  const fs::path file = withoutSlash(path);
  std::error_code error;
  const fs::path parent = fs::canonical(file.parent_path(), error);
  return error ? std::nullopt : std::optional(parent / file.filename());
}

/** Goes through "contentfiles" without following links, and without a stack that grows with it. */
class Search {
 public:
  explicit Search(const Subject& subject) : top_(subject.contentFiles()) {
    forEachFileVariation(subject, [&](const Property&, const Variation& variation) {
      if (const auto file = storedFile(subject.report, variation)) {
        if (auto path = resolved(*file)) {
          named_.insert(path->native());
        }
      }
    });
    if (subject.report.metadata.contents) {
      for (const Property& property : *subject.report.metadata.contents) {
        if (property.isFileProperty()) {
          owned_.push_back(withoutSlash((top_ / property.stable_id).lexically_normal()));
        }
      }
    }
  }

  std::vector<Orphan> run() {
    const auto start = entryAt(top_);
    const auto place = resolved(top_);
    if (!start || !start->isDirectory() || !place || named_.contains(place->native())) {
      return {};
    }
    std::vector<fs::path> left{top_};
    while (!left.empty()) {
      const fs::path next = std::move(left.back());
      left.pop_back();
      for (const Entry& entry : entriesOf(next)) {
        const std::string below = entry.path.native().substr(top_.native().size());
        const bool isNamed = named_.contains(place->native() + below);
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
    addEmptyDirectories();
    std::sort(orphans_.begin(), orphans_.end(),
              [](const Orphan& a, const Orphan& b) { return a.path.native() < b.path.native(); });
    return std::move(orphans_);
  }

 private:
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
  // Texts, since paths are compared name by name.
  std::set<std::string> named_;        ///< What records name, as one path each.
  std::vector<fs::path> owned_;        ///< The directories of properties.
  std::vector<fs::path> directories_;  ///< Those that were seen.
  std::set<std::string> used_;         ///< Of these, those with files somewhere below.
  std::vector<Orphan> orphans_;
};

}  // namespace

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
