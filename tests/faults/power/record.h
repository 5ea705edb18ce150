#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/** @file What the recorder writes, and what that did to the files. */
namespace KELP::Test {

/**
 * One call that the recorder wrote down. In its file: a line with the name of the system call, the
 * effect, an offset and the size of the data; a line with the path; a line with a second one; the
 * data.
 */
struct RecordedCall {
  std::string call;
  std::string effect;
  std::uint64_t offset = 0;  ///< Of what was written; the size that a file was cut to.
  std::string data;
  std::filesystem::path path;
  std::filesystem::path toPath;  ///< The new name.
};

/** The calls of a record, oldest first. Throws when the file is no record. */
[[nodiscard]] std::vector<RecordedCall> readRecord(const std::filesystem::path& file);

/** What a call did. */
enum class EffectKind {
  Create,     ///< A file got its first name.
  Directory,  ///< A directory got its name.
  Remove,     ///< A name went away.
  Rename,     ///< An object got another name, in place of what had it.
  Write,
  Truncate,
  Sync,
  Say,  ///< The program told how far it is.
};

/**
 * One effect on files and directories, which are numbered by their creation: a number stays with
 * its object when the name changes.
 */
struct Effect {
  EffectKind kind{};
  std::size_t object = 0;       ///< What is created, removed, renamed, written or synced.
  std::size_t directory = 0;    ///< Where its name is.
  std::size_t toDirectory = 0;  ///< Where its new name is.
  std::string name;
  std::string toName;
  std::uint64_t offset = 0;
  std::string data;  ///< What is written, or said.

  /** Whether this is about a name, and not about what is in a file. */
  [[nodiscard]] bool isAboutNames() const {
    return kind == EffectKind::Create || kind == EffectKind::Directory ||
           kind == EffectKind::Remove || kind == EffectKind::Rename;
  }
  /** Whether this is about what is in a file. */
  [[nodiscard]] bool isAboutContent() const {
    return kind == EffectKind::Write || kind == EffectKind::Truncate;
  }
};

}  // namespace KELP::Test
