#pragma once

#include "tools/support/repository.h"
#include "tools/support/tool.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Test {

constexpr const char* kFirst = "1a111111-1111-4111-8111-111111111111";
constexpr const char* kSecond = "2b222222-2222-4222-8222-222222222222";
constexpr const char* kThird = "3c333333-3333-4333-8333-333333333333";
constexpr const char* kFourth = "4d444444-4444-4444-8444-444444444444";

constexpr long kNoon = 1'772'366'400;  ///< 2026-03-01T12:00:00Z

/** A text that does harm to a terminal when it is not escaped, and how it looks when it is. */
constexpr const char* kHostile =
    "\x1b]0;owned\x07\n\xc2\x9b"
    "2J";
constexpr const char* kHarmless = "\\x1b]0;owned\\x07\\n\\u{9b}2J";

/** A repository, and the program run on it. */
class ReadingTest : public testing::Test {
 protected:
  [[nodiscard]] ToolResult run(const std::vector<std::string>& arguments,
                               const ToolSetting& setting = {}) const;
  [[nodiscard]] ToolResult runOnTerminal(const std::vector<std::string>& arguments,
                                         unsigned short columns = 200,
                                         const ToolSetting& setting = {}) const;

  /** A report that was made at @p created, and is not locked. */
  void make(const std::string& id, long created = kNoon) const;
  /** A report whose store cannot be read. */
  void makeDamaged(const std::string& id) const;
  /** A report that is only begun. */
  void makeHalf(const std::string& id) const;
  /** A report whose store says @p storedId. */
  void makeMismatched(const std::string& id, const std::string& storedId) const;
  /** Opens a report for changes. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> open(const std::string& id) const;
  /** Adds a file property with a file of @p content at each of @p levels. */
  static void addFile(Diagnostic::DiagnosticReport& report, const std::string& name,
                      const std::string& content, const std::vector<int>& levels);
  /** The bytes of all files of a report. */
  [[nodiscard]] std::uint64_t sizeOf(const std::string& id) const;
  [[nodiscard]] std::filesystem::path storeOf(const std::string& id) const;

  Repository repository_;
};

/** A run with these variables. */
[[nodiscard]] ToolSetting withEnvironment(const std::map<std::string, std::string>& variables);

/** @p text without the sequences that set styles. */
[[nodiscard]] std::string withoutStyles(const std::string& text);

/** The lines of what appeared on a terminal, without styles. */
[[nodiscard]] std::vector<std::string> terminalLines(const std::string& text);

}  // namespace KELP::Test
