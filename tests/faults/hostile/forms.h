#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Test {

/** What somebody puts in the place of a report's file or directory. */
struct Form {
  /** What the system says of it when links are followed. */
  enum class Kind { File, Directory, Other, Nothing, Circle };

  const char* name;
  Kind kind;
  bool isLink;
  /** Puts it there. @param outside a directory with files, which it may lead to. @return why it
   *  cannot be made here; else nothing. */
  std::function<std::string(const std::filesystem::path& place,
                            const std::filesystem::path& outside)>
      put;
};

/** All of them. */
[[nodiscard]] const std::vector<Form>& forms();

}  // namespace KELP::Test
