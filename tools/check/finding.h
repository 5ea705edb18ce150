#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Tool {

/** What can be wrong with a repository. The enumerators are the places in kFindingKinds. */
enum class FindingKind {
  NoReport,
  HalfMade,
  DamagedStore,
  WrongFile,
  MismatchedIdentifier,
  UnreadableMetadata,
  UnreadableContents,
  MissingFile,
  OrphanFile,
  LeftoverTemporary,
};

/** What people are told about a kind. */
struct FindingKindText {
  const char* name;
  const char* meaning;
  const char* repair;   ///< What --repair does about it.
  const char* whyLeft;  ///< Why --repair does not mend it, or not always.
};

constexpr std::array<FindingKindText, 10> kFindingKinds{{
    {"no-report", "something under the root that is no report", "left",
     "it belongs to somebody else"},
    {"half-made", "a report without its lock file, its store, or what creation writes there",
     "an empty directory is removed, others are left",
     "it may hold data; remove --force removes it"},
    {"damaged-store", "metadata that cannot be read", "left",
     "what is in it is for whoever can mend it; remove --force removes it"},
    {"wrong-file", "a link, a directory or the like in the place of one of the report's own files",
     "left", "it may hold data; remove --force removes it"},
    {"mismatched-identifier", "metadata that name another report", "left",
     "it may be the only copy of another report; remove --force removes it"},
    {"unreadable-metadata", "a stored key that is no value of its type", "left",
     "what is in it is for whoever can mend it; remove --force removes it"},
    {"unreadable-contents", "a list of contents that cannot be read", "left",
     "what is in it is for whoever can mend it"},
    {"missing-file", "a record whose file is missing, is no file, or is not in the report", "left",
     "the record is all that is left of it"},
    {"orphan-file", "a file under \"contentfiles\", or an empty directory, that no record names",
     "empty directories are removed, files are left", "it is data, though no record names it"},
    {"leftover-temporary", "scratch files of a report that nobody holds",
     "removed when nobody wrote to them for a day, no process has them open, and no record\n"
     "      names them",
     ""},
}};

[[nodiscard]] constexpr const FindingKindText& textOf(FindingKind kind) {
  return kFindingKinds.at(static_cast<std::size_t>(kind));
}

/** What mends a finding without losing data. */
enum class Remedy {
  None,
  RemoveTree,              ///< Under the report's lock.
  RemoveEmptyDirectories,  ///< Under the report's lock.
  RemoveEmptyReport,       ///< There is no lock to take.
};

struct Finding {
  FindingKind kind;
  std::string report;  ///< The report's name; empty when it is about none.
  std::filesystem::path path;
  std::string detail;  ///< For people, escaped.
  Remedy remedy = Remedy::None;
  std::string objection =
      {};  ///< Why there is no remedy, when not for what its kind says; escaped.
  bool repaired = false;
  std::string whyLeft = {};  ///< After a repair that did not mend it; escaped.
};

using Findings = std::vector<Finding>;

}  // namespace KELP::Tool
