// The command-line program on a repository that somebody else may write to.

#include "tools/support/tool.h"

#include "faults/hostile/forms.h"
#include "faults/hostile/scene.h"
#include "fuzz/form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** A status that the program gives by itself; a run that hangs is killed, and fails the test. */
constexpr int kLastStatus = 5;

/** Whether nothing in it commands a terminal: no control character of ASCII, nor one of the further
 *  ones, in UTF-8 or as a byte. In JSON, to delete may stand as it is. */
bool isTame(const std::string& text, bool isJson) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool isWild = (byte < ' ' && byte != '\n' && byte != '\t') || (byte == 0x7f && !isJson);
    const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : ' ');
    if (isWild || (byte == 0xc2 && next < 0xa0)) {
      return false;
    }
  }
  return Fuzz::isUtf8(text);
}

class HostileTool : public testing::Test {
 protected:
  using Commands = std::vector<std::vector<std::string>>;

  [[nodiscard]] Commands reading() const {
    return {{"list"},
            {"list", "--json"},
            {"show", kSubjectId},
            {"show", kSubjectId, "--all-levels", "--json"},
            {"stats"},
            {"export", kSubjectId, "--all-levels", "--force", "-o", archive_ / "all.tar.gz"}};
  }

  /** Runs them. @return all that they printed. */
  std::string run(const Commands& commands) const {
    std::string printed;
    const Entries before = scene_.untouchable();
    for (std::vector<std::string> arguments : commands) {
      const bool isJson = arguments.back() == "--json";
      SCOPED_TRACE(arguments.front());
      arguments.insert(arguments.begin(), {"-C", scene_.root()});
      const ToolResult result = runTool(arguments);
      EXPECT_THAT(result.status, testing::AllOf(testing::Ge(0), testing::Le(kLastStatus)));
      EXPECT_TRUE(isTame(result.output, isJson)) << result.output;
      EXPECT_TRUE(isTame(result.errors, false)) << result.errors;
      printed += result.output;
    }
    EXPECT_EQ(difference(before, scene_.untouchable()), "");
    return printed;
  }

  const Scene scene_;
  const TemporaryDirectory archive_;
};

class HostileToolForms : public HostileTool, public testing::WithParamInterface<const char*> {};

TEST_P(HostileToolForms, AreToldOfAndHurtNobody) {
  for (const Form& form : forms()) {
    SCOPED_TRACE(form.name);
    scene_.reset();
    fs::remove_all(scene_.subject() / GetParam());
    if (form.put(scene_.subject() / GetParam(), scene_.outside()).empty()) {
      run(reading());
      run({{"remove", "--force", "-y", kSubjectId}});
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, HostileToolForms,
                         testing::Values("lock", "metadata.db", "contentfiles",
                                         "contentfiles/log/2/a.txt"),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           std::erase_if(name, [](char letter) { return !std::isalnum(letter); });
                           return name;
                         });

TEST_F(HostileTool, FindsThingsOfEveryKindEverywhere) {
  int number = 0;
  for (const Form& form : forms()) {
    const std::string name = "thing " + std::to_string(++number);
    for (const fs::path& place :
         {scene_.root(), scene_.subject(), scene_.subject() / "tmp",
          scene_.subject() / "contentfiles", scene_.subject() / "contentfiles/log/2"}) {
      form.put(place / name, scene_.outside());
    }
  }
  const std::string printed = run({{"check"}, {"check", "--repair"}}) + run(reading());
  EXPECT_THAT(printed, testing::HasSubstr("thing 1"));
}

TEST_F(HostileTool, EscapesWhatWouldCommandATerminal) {
  const std::string command = "\x1b]0;owned\x07\x1b[2J\r\b\x7f";
  writeFile(scene_.subject() / "metadata.db",
            Scene::metadata(
                kSubjectId,
                {{"description", command},
                 {"device_id", command},
                 {"session_id",
                  "\x9b"
                  "31m\xff"},
                 {"process_name", command},
                 {"report_contents",
                  R"([{"stable_id":"\u001b[2Jname","property_type":"STRING","tags":["\u0007"],)"
                  R"("variations":[{"string":"\u001b[31mred\u009b","sensitivity_level":2}]}])"}}));
  fs::create_directory(scene_.root() / ("\x1b[2J" + command));
  writeFile(scene_.subject() / ("stray\x1b[2J"), "");
  fs::create_directories(scene_.subject() / "contentfiles" / command);
  writeFile(scene_.subject() / "contentfiles" / command / "\x1b[31m", "");
  const std::string printed = run(reading()) + run({{"check"}, {"check", "--json"}});
  EXPECT_THAT(printed, testing::HasSubstr("owned")) << "nothing of it was printed at all";
}

}  // namespace
}  // namespace KELP::Test
