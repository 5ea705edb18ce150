// The command line. Each line of the input, up to its first NUL, is one argument.

#include "verbs/commandline.h"

#include "base/failure.h"
#include "base/text.h"
#include "fuzz/form.h"
#include "fuzz/fuzz.h"
#include "verbs/program.h"
#include "verbs/verb.h"

#include <stdlib.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Fuzz {
namespace {

using Tool::Context;
using Words = std::vector<std::string>;

Words linesOf(const std::string& text) {
  Words lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

bool isForTerminal(const std::string& text) {
  return isUtf8(text) && std::ranges::none_of(text, [](unsigned char byte) {
           return (byte < ' ' && byte != '\n') || byte == 0x7f;
         });
}

/** Parses @p words as the program does, and fills @p context. */
void parse(const Words& words, Context& context) {
  const std::unique_ptr<CLI::App> program = Tool::makeProgram(context);
  std::vector<const char*> arguments{"kelp-diagnostics"};
  for (const std::string& word : words) {
    arguments.push_back(word.c_str());
  }
  const Tool::CommandLine line(*program, static_cast<int>(arguments.size()), arguments.data());
  try {
    program->parse(line.argumentsForParser());
    require(static_cast<bool>(context.run), "a line without a fault names a verb");
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream complaint;
    if (program->exit(error, out, complaint) == 0) {
      require(!out.str().empty(), "what asks for a text gets one");
      return;
    }
    const std::string aboutVerb = line.complaintAboutVerb();
    require(isForTerminal(aboutVerb), "a complaint is safe to print");
    require(!aboutVerb.empty() || !Tool::withoutMarks(error.what()).empty(), "a fault is told");
    throw Tool::Failure(Tool::ExitStatus::Usage, aboutVerb);
  }
}

/** Whether @p words are right, or ask for a text. */
bool isAccepted(const Words& words, Context& context) {
  try {
    parse(words, context);
    return true;
  } catch (const Tool::Failure& failure) {
    require(failure.status() == Tool::ExitStatus::Usage, "what is wrong in a line is its usage");
    require(isForTerminal(failure.what()), "a failure is safe to print");
    return false;
  }
}

/** Whatever @p value looks like, an option has it as it was typed. */
void checkValue(const std::string& value) {
  for (const Words& words : {Words{"-C", value, "list"}, Words{"-C" + value, "list"}}) {
    const bool isApart = words.size() == 3;
    if (!isApart && value.empty()) {
      continue;  // Then the next word is the value.
    }
    Context context;
    require(isAccepted(words, context) == !value.empty(), "any value will do but none");
    require(context.root.native() == value, "a value is what was typed");
  }
}

}  // namespace

void checkCommandLine(const std::string& input) {
  ::unsetenv("KELP_DIAGNOSTICS_ROOT");
  const Words words = linesOf(input.c_str());
  Context context;
  static_cast<void>(isAccepted(words, context));
  checkValue(words.empty() ? "" : words.front());
}

}  // namespace KELP::Fuzz
