#include "tools/changing/changingtest.h"

namespace KELP::Test {

using Diagnostic::DiagnosticReport;

ChangingTest::ChangingTest() : id_(repository_.create()->getId().toString()) {}

ToolResult ChangingTest::run(const std::vector<std::string>& arguments,
                             const ToolSetting& setting) const {
  return runTool(repository_.arguments(arguments), setting);
}

void ChangingTest::perform(const std::vector<std::string>& arguments,
                           const ToolSetting& setting) const {
  const ToolResult result = run(arguments, setting);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "");
}

void ChangingTest::refuse(const std::vector<std::string>& arguments, int status,
                          const std::string& message) const {
  const auto before = repository_.snapshot();
  const ToolResult result = run(arguments);
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kelp-diagnostics: " + message + "\n");
  EXPECT_EQ(repository_.snapshot(), before);
}

std::unique_ptr<DiagnosticReport> ChangingTest::report() const {
  Diagnostic::ReportUuid id;
  id.parse(id_.c_str());
  return repository_.data().openReport(id);
}

std::unique_ptr<DiagnosticReport> ChangingTest::locked() const {
  auto result = report();
  EXPECT_TRUE(result->acquireWriteLock(false));
  return result;
}

std::filesystem::path ChangingTest::directory() const {
  return repository_.root() / id_;
}

void ChangingTest::completeCollection() const {
  const auto report = locked();
  EXPECT_TRUE(report->markCreationComplete());
  EXPECT_TRUE(report->markUserInteractionComplete());
  EXPECT_TRUE(report->markDataCollectionComplete());
}

ToolSetting withInput(const std::string& input) {
  ToolSetting setting;
  setting.input = input;
  return setting;
}

const std::vector<std::string>& difficultTexts() {
  static const std::vector<std::string> texts{
      "\033[31mred\033[0m",
      "two\nlines\r\t",
      "\"quoted\" 'too' $HOME `id`",
      "naïve ✓ 日本語",
      "-n",
      "--help",
      "--",
      "[a,b]",
      "[]",
      "{}",
      "%%",
      "",
      " ",
      "../up",
      "\x1f[x]",
      "remove",
      "a\\b",
      "100%s",
  };
  return texts;
}

}  // namespace KELP::Test
