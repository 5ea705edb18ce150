#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {

/**
 * The words that were typed, made ready for the parser, which would not take all of them as they
 * are: it takes "[a,b]" for a list and "++" for the end of a verb, and in "--name=" it overlooks
 * the empty value and goes on to the next word.
 */
class CommandLine {
 public:
  CommandLine(const CLI::App& program, int argc, const char* const* argv);

  /** In the order in which the parser wants them, the last first. Some bear marks, which
   *  the options take off again; see takeMarkOff(). */
  [[nodiscard]] std::vector<std::string> argumentsForParser() const;

  /** What is wrong with the verb, in a sentence; empty when it is there and known. */
  [[nodiscard]] std::string complaintAboutVerb() const;

 private:
  void read(const std::string& word);
  void readLongOption(const std::string& word);
  void readLetters(const std::string& word);
  void readWord(const std::string& word);
  /** The option or nothing, which is noted. */
  const CLI::Option* find(const std::string& option);

  std::vector<std::string> arguments_;
  const CLI::App* app_;                     ///< The program, or the verb so far.
  std::string verb_;                        ///< Its words, with a space behind each.
  std::optional<std::string> unknownVerb_;  ///< What stands in the place of a verb.
  bool expectsValue_ = false;  ///< The last word was an option, and its value comes next.
  bool isBehindMark_ = false;  ///< Behind "--", where nothing is an option.
  bool hasUnknownOption_ = false;
};

/** Lets @p option take its arguments as they were given. */
void takeMarkOff(CLI::Option& option);

/** @p text, which tells of arguments, without their marks. */
[[nodiscard]] std::string withoutMarks(std::string text);

}  // namespace KELP::Tool
