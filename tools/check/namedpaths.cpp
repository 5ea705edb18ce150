#include "check/namedpaths.h"

#include "check/contentfiles.h"

#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

/** As many links as the system itself follows in one path. */
constexpr int kMostLinks = 40;

/** The names of a path that are yet to be gone through, the next one last. */
class NamesLeft {
 public:
  void push(const fs::path& path) {
    std::vector<std::string> names;
    for (const fs::path& name : path.relative_path()) {
      names.push_back(name.native());
    }
    names_.insert(names_.end(), names.rbegin(), names.rend());
  }

  /** Nothing at the end. */
  std::optional<std::string> pop() {
    if (names_.empty()) {
      return std::nullopt;
    }
    std::string name = std::move(names_.back());
    names_.pop_back();
    return name;
  }

 private:
  std::vector<std::string> names_;
};

}  // namespace

NamedPaths::NamedPaths(const Subject& subject) : directory_(subject.directory()) {
  std::error_code error;
  place_ = fs::canonical(directory_, error);
  if (error == std::errc::no_such_file_or_directory) {
    return;  // The report has been removed.
  }
  if (error) {
    throw std::system_error(error);
  }
  forEachFileVariation(subject, [&](const Property&, const Variation& variation) {
    // As the system reads it, which ends at a NUL.
    const fs::path recorded = variation.relative_path.c_str();
    follow(place_ / recorded);
    if (const auto file = fileOfAnotherRoot(subject.report, variation)) {
      follow(fs::absolute(*file));
    }
  });
}

bool NamedPaths::contain(const fs::path& path) const {
  return names_.contains(keyOf(path));
}

bool NamedPaths::touch(const fs::path& path) const {
  const std::string key = keyOf(path);
  const std::string below = key + "/";
  const auto next = names_.lower_bound(below);
  if (names_.contains(key) || (next != names_.end() && next->starts_with(below))) {
    return true;
  }
  for (fs::path at = fs::path(key).parent_path(); at.native().size() > place_.native().size();
       at = at.parent_path()) {
    if (names_.contains(at.native())) {
      return true;
    }
  }
  return false;
}

std::string NamedPaths::keyOf(const fs::path& path) const {
  return place_.native() + path.native().substr(directory_.native().size());
}

/** Goes the way of the system, name by name. */
void NamedPaths::follow(const fs::path& path) {
  const auto isInReport = [&](const fs::path& at) {
    return at.native().starts_with(place_.native() + "/");
  };
  NamesLeft left;
  left.push(path);
  fs::path at = "/";
  int links = 0;
  while (const auto name = left.pop()) {
    if (*name == "..") {
      at = at.parent_path();
    }
    if (name->empty() || *name == "." || *name == "..") {
      continue;
    }
    const fs::path next = at / *name;
    std::error_code error;
    const auto entry = entryAt(next, error);
    if (error && isInReport(next)) {
      throw std::system_error(error);
    }
    if (!entry) {
      return;
    }
    if ((entry->status.st_mode & S_IFMT) != S_IFLNK) {
      at = next;
      continue;
    }
    names_.insert(next.native());
    const fs::path target = fs::read_symlink(next, error);
    if (error || ++links > kMostLinks) {
      return;
    }
    left.push(target);
    at = target.is_absolute() ? fs::path("/") : at;
  }
  if (isInReport(at)) {
    names_.insert(at.native());
  }
}

}  // namespace KELP::Tool
