#pragma once

#include "support/childprocess.h"
#include "support/smalldisk.h"
#include "support/temporarydirectory.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {

constexpr const char* kSubjectId = "0b3ad2a0-5c1e-4a8e-9f57-d2b1c3e4f5a6";
constexpr const char* kOtherId = "7f00c0de-1234-4abc-8def-00112233aabb";

/** Entries with all that can be said of them. */
using Entries = std::map<std::string, std::string>;

/** Everything at and below @p top, which is not followed: type, mode, owner, links, size, time of
 *  modification, content. */
[[nodiscard]] Entries entriesBelow(const std::filesystem::path& top);

/** What is in one and not in the other, or not the same; for messages. */
[[nodiscard]] std::string difference(const Entries& before, const Entries& after);

/**
 * A repository of two reports, the subject and the other one; and a directory outside of it, in
 * which everything has the names that a report's files have, for what leads there.
 *
 * The files of the reports are written here, not by the library.
 */
class Scene {
 public:
  Scene();

  [[nodiscard]] std::filesystem::path root() const { return disk_.path() / "reports"; }
  [[nodiscard]] std::filesystem::path subject() const { return root() / kSubjectId; }
  [[nodiscard]] std::filesystem::path other() const { return root() / kOtherId; }
  [[nodiscard]] std::filesystem::path outside() const { return disk_.path() / "outside"; }
  /** A file to be copied into reports. */
  [[nodiscard]] std::filesystem::path source() const { return disk_.path() / "source"; }

  /** Makes the subject anew, unharmed, and removes all but the two reports. */
  void reset() const;

  /** All that no operation on the subject may touch. */
  [[nodiscard]] Entries untouchable() const;

  /** The store's file of a report: its fields, and @p more keys. */
  [[nodiscard]] static std::string metadata(const std::string& id,
                                            const std::map<std::string, std::string>& more);
  /** The list of contents of the report in @p directory: a file and a string, both at level 2. */
  [[nodiscard]] static std::string contents(const std::filesystem::path& directory);

 private:
  void makeReport(const std::string& id) const;

  static constexpr unsigned kKib = 256U << 10;

  TemporaryDirectory directory_;
  // In memory where that can be, but as a disk that has devices: a table has thousands of cases.
  SmallDisk disk_{directory_ / "disk", kKib};
};

/** What an operation came to, and what it logged. */
struct Attempt {
  bool isOver = false;  ///< Within 30 seconds, without a crash.
  std::string result;
  std::vector<std::string> lines;
};

/** A process of its own that tries operations on the subject. */
class Actor {
 public:
  explicit Actor(const Scene& scene, bool isNobody = false);

  /** Tries one. When that does not end, nothing more can be tried. */
  [[nodiscard]] Attempt attempt(const std::string& operation);

 private:
  ChildProcess process_;
};

}  // namespace KELP::Test
