#pragma once

#include "faults/soak/reportstate.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace KELP::Test::Soak {

/** Random choices, which follow from a seed. */
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}

  /** A number from 0 to @p limit - 1. */
  [[nodiscard]] std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(engine_);
  }
  [[nodiscard]] bool oneIn(std::size_t count) { return below(count) == 0; }

  template <typename List>
  [[nodiscard]] const auto& of(const List& list) {
    return list[below(std::size(list))];
  }

 private:
  std::mt19937_64 engine_;
};

/** One change of a report, and what must come of it. */
struct Change {
  std::string name;
  /** The message of the refusal that is to be expected; empty for a success. */
  std::optional<std::string> refusal;
  /** What the report says after a success. */
  ReportState after;
  /** What it may say, beside that and the state before, when the process is killed meanwhile. */
  std::vector<ReportState> torn;
  std::function<Report::Result(Report&)> act;
};

/** What a change is made of. */
struct Ingredients {
  ReportState before;
  Chance& chance;
  /** A number that nobody else uses. */
  std::string number;
  /** The report's directory. */
  std::filesystem::path directory;
  /** A file outside of the root to be copied; written anew for each copy. */
  std::filesystem::path source;
};

/** Makes up a change of a report that is in the state before. */
using MakeUp = Change(const Ingredients& of);

MakeUp makeUpChange;
/** The creation of a property, such as a report begins with. */
MakeUp makeUpProperty;

}  // namespace KELP::Test::Soak
