#pragma once

#include "support/temporarydirectory.h"
#include "tools/support/repository.h"
#include "tools/support/tool.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Test {

/** An archive as the usual programs unpack it. */
struct Unpacked {
  std::map<std::string, std::filesystem::path> members;  ///< Files by their paths in the archive.
  Json::Value manifest;

  [[nodiscard]] std::string content(const std::string& member) const;
  [[nodiscard]] Json::Value json(const std::string& member) const;
};

/** A repository, and a place for archives of it. */
class ExportTest : public testing::Test {
 protected:
  static constexpr const char* kId = "11111111-1111-4111-8111-111111111111";

  ExportTest();

  /** A report whose permitted level is 20, with a value and a file at 10 and at 30 each: "mode" and
   *  "log". What is at 30 has "secret" in it. Nobody has it open. */
  void createUsual(const std::string& id = kId) const;
  /** A file property, with @p content in a file of that name. */
  void attach(Diagnostic::DiagnosticReport& report, const std::string& property, int level,
              const std::string& file, const std::string& content) const;

  /** The arguments for `export` of @p ids into @p archive. */
  [[nodiscard]] std::vector<std::string> arguments(const std::string& archive,
                                                   std::vector<std::string> more = {kId}) const;
  /** Runs that. */
  [[nodiscard]] ToolResult exportTo(const std::string& archive,
                                    const std::vector<std::string>& more = {kId},
                                    const ToolSetting& setting = {}) const;

  /** Where an archive of that name is. */
  [[nodiscard]] std::filesystem::path pathOf(const std::string& archive) const;
  /** What is beside the archives, and they themselves, by name. */
  [[nodiscard]] std::vector<std::string> outputs() const;
  /** By tar or unzip, into a directory of its own; fails the test when they complain. */
  [[nodiscard]] Unpacked unpack(const std::string& archive) const;

  Repository repository_;
  TemporaryDirectory work_;
};

/** What a shell prints that runs @p script with @p arguments as $0, $1 and so on; fails the test
 * unless its status is 0. */
[[nodiscard]] std::string shell(const std::string& script,
                                const std::vector<std::string>& arguments);

}  // namespace KELP::Test
