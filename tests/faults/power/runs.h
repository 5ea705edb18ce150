#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** The directory that a run is in: a repository, a store of its own, and files to copy. */
struct World {
  std::filesystem::path top;

  [[nodiscard]] std::filesystem::path root() const { return top / "reports"; }
  [[nodiscard]] std::filesystem::path store() const { return top / "store.db"; }
  [[nodiscard]] std::filesystem::path source() const { return top / "source"; }
};

/** The report that is there before each run but the first creation, and that none touches. */
constexpr const char* kBystander = "00000000-aaaa-4bbb-8ccc-0123456789ab";
/** What a run does, it does to these. */
constexpr const char* kFirst = "11111111-aaaa-4bbb-8ccc-0123456789ab";
constexpr const char* kSecond = "22222222-aaaa-4bbb-8ccc-0123456789ab";

/** The keys of the store that belongs to no report. */
[[nodiscard]] std::vector<std::string> storeKeys();

/**
 * Something that a program does until the power goes.
 *
 * It says on its standard output what it may rely on from then on: "sealed NAME" that all changes
 * of this report or store were synced or closed, "deleting NAME" that this report may go; the name
 * is the path in the world. Also "whole NAME", that this file was made durable by the caller.
 */
struct PowerRun {
  std::string name;
  /** Makes what is there before, on stable storage. */
  void (*prepare)(const World& world) = nullptr;
  void (*run)(const World& world) = nullptr;
  /** Whether each change is synced by itself, so that the order of appends does not count. */
  bool needsNoOrder = false;
};

std::ostream& operator<<(std::ostream& out, const PowerRun& run);

[[nodiscard]] const std::vector<PowerRun>& powerRuns();
/** Throws when there is none of that name. */
[[nodiscard]] const PowerRun& powerRun(const std::string& name);

}  // namespace KELP::Test
