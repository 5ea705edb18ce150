// `cat` on a terminal: text is made safe, and binary is refused.

#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <string>

namespace KELP::Test {
namespace {

using namespace std::string_literals;

class CatOnTerminal : public ReadingTest {
 protected:
  CatOnTerminal() { make(kFirst); }

  void addString(const std::string& name, const std::string& value) const {
    open(kFirst)->createReportStringProperty(name, {});
    open(kFirst)->addReportStringVariation(name, 0, value, false);
  }

  [[nodiscard]] ToolResult cat(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"cat", kFirst});
    return runOnTerminal(arguments);
  }
};

/** What a terminal makes of @p text: a line feed goes to the first column too. */
std::string onTerminal(const std::string& text) {
  std::string result;
  for (const char letter : text) {
    result += letter == '\n' ? "\r\n" : std::string(1, letter);
  }
  return result;
}

const std::string kText = "one\ttwo\nC:\\dir \x1b[31mred\r\n\xc2\x9bÄ\u202e\n";
const std::string kEscaped = "one\ttwo\r\nC:\\dir \\x1b[31mred\\r\r\n\\u{9b}Ä\\u{202e}\r\n";

TEST_F(CatOnTerminal, EscapesAllButNewlinesAndTabs) {
  addString("note", kText);
  addFile(*open(kFirst), "log", kText, {10});
  for (const char* const name : {"note", "log"}) {
    const ToolResult result = cat({name});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kEscaped);
  }
}

TEST_F(CatOnTerminal, RefusesBinary) {
  addString("note", "a\0b"s);
  addFile(*open(kFirst), "nul", "a\0b"s, {10});
  addFile(*open(kFirst), "latin", "caf\xe9", {10});
  addFile(*open(kFirst), "cutoff", "caf\xc3", {10});
  // Also when it is far behind.
  addFile(*open(kFirst), "late", std::string(200'000, 'x') + '\0', {10});
  const auto refused = [&](const char* name, const std::string& what) {
    const ToolResult result = cat({name});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "kelp-diagnostics: " + what + " is binary (--force writes it to the terminal)\r\n");
  };
  refused("note", "the value of \"note\"");
  refused("nul", "the file \"contentfiles/nul/10/nul10.txt\"");
  refused("latin", "the file \"contentfiles/latin/10/latin10.txt\"");
  refused("cutoff", "the file \"contentfiles/cutoff/10/cutoff10.txt\"");
  refused("late", "the file \"contentfiles/late/10/late10.txt\"");
}

TEST_F(CatOnTerminal, WritesWhatItIsForcedTo) {
  addString("note", "a\0b\x1b[1m"s);
  addFile(*open(kFirst), "log", "a\0b\xff\n"s, {10});
  EXPECT_EQ(cat({"note", "--force"}).output, "a\0b\x1b[1m"s);
  EXPECT_EQ(cat({"log", "--force"}).output, "a\0b\xff\r\n"s);
}

TEST_F(CatOnTerminal, DoesNotForceLevels) {
  open(kFirst)->createReportStringProperty("note", {});
  open(kFirst)->addReportStringVariation("note", 30, "secret", false);
  const ToolResult result = cat({"note", "--force"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("secret")));
}

// Characters lie across the borders of the pieces in which a file is read, at every offset.
TEST_F(CatOnTerminal, KeepsCharactersWholeInLongFiles) {
  const std::string line = "ä日😀\n";
  for (std::size_t offset = 0; offset < line.size(); ++offset) {
    std::string text(offset, 'x');
    while (text.size() < 70'000) {
      text += line;
    }
    const std::string name = "log" + std::to_string(offset);
    addFile(*open(kFirst), name, text, {10});
    const ToolResult result = cat({name});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output == onTerminal(text)) << offset;
  }
}

}  // namespace
}  // namespace KELP::Test
