// Whether a file lies in a directory. The input is, up to its first NUL, two letters that say what
// is asked ("e" first: all must exist; "n" second: at any depth), the directory up to the end of
// the line, and the file's path, with "@" for the absolute path of a tree that has links of every
// kind.

#include "fuzz/fuzz.h"
#include "support/logcapture.h"
#include "unit/foundation/pathtree.h"

#include <utils/pathcontainment.h>

#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace KELP::Fuzz {
namespace {

namespace fs = std::filesystem;

struct Question {
  bool requireExisting;
  bool allowNested;
  std::string directory;
  std::string path;
};

Question questionOf(const std::string& input, const Test::PathTree& tree) {
  const std::string flags = (input + "..").substr(0, 2);
  const std::string rest = input.substr(std::min<std::size_t>(2, input.size()));
  const std::size_t end = std::min(rest.find('\n'), rest.size());
  return {flags[0] == 'e', flags[1] == 'n', tree.at(rest.substr(0, end)),
          tree.at(rest.substr(std::min(end + 1, rest.size())))};
}

/** The directory that holds the file @p path by its text, and the file's name. */
struct Place {
  std::string parent;
  std::string name;
};

Place placeOf(std::string path) {
  while (path.ends_with('/')) {
    path.pop_back();
  }
  const std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) {
    return {"", path};
  }
  const std::size_t end = path.find_last_not_of('/', separator);
  const std::string parent = end == std::string::npos ? "/" : path.substr(0, end + 1);
  return {parent, path.substr(separator + 1)};
}

/** Whether @p path is @p directory or below it, both resolved. */
bool isBelow(const fs::path& path, const fs::path& directory, bool allowNested) {
  if (!allowNested) {
    return path == directory;
  }
  const auto [inPath, inDirectory] =
      std::mismatch(path.begin(), path.end(), directory.begin(), directory.end());
  return inDirectory == directory.end();
}

/** Where the system finds @p path; nothing when it does not. */
std::optional<fs::path> realPath(const std::string& path) {
  char resolved[PATH_MAX];
  return ::realpath(path.c_str(), resolved) == nullptr ? std::nullopt
                                                       : std::optional<fs::path>(resolved);
}

}  // namespace

void checkContainment(const std::string& input) {
  static const Test::PathTree tree;
  const Question question = questionOf(input.c_str(), tree);
  const Test::WorkingDirectory inTree(tree.root());
  const Test::LogCapture log;
  const bool isContained = Utils::VerifyFilePathIsWithinRequiredDirectory(
      question.path, question.directory, question.requireExisting, question.allowNested);

  const auto [parent, name] = placeOf(question.path);
  if (name.empty() || name == "." || name == "..") {
    require(!isContained, "what has no name of its own lies nowhere");
    require(log.lines().empty(), "only a failure to resolve is logged");
    return;
  }

  std::error_code error;
  const fs::path found = fs::weakly_canonical(parent, error);
  const fs::path required = error ? fs::path() : fs::weakly_canonical(question.directory, error);
  require(!isContained || (!error && isBelow(found, required, question.allowNested)),
          "what is contained lies in the directory");
  require(!isContained || log.lines().empty(), "what is contained is no failure");
  require(log.lines().size() <= 1, "a failure is one line");

  const std::optional<fs::path> realParent = realPath(parent);
  const std::optional<fs::path> realDirectory = realPath(question.directory);
  if (realParent && realDirectory) {
    require(isContained == isBelow(*realParent, *realDirectory, question.allowNested),
            "among what exists, it is contained when the system finds it there");
  } else if (question.requireExisting) {
    require(!isContained, "what must exist does");
    require(log.lines().size() == 1, "a failure to resolve is logged");
  }
}

}  // namespace KELP::Fuzz
