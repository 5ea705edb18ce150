#pragma once

#include <filesystem>

namespace KELP::Tool {

/**
 * A file that appears whole or not at all: it is written under a temporary name in the same
 * directory, and gets its own name at the end. Without that the temporary one goes with the object.
 */
class NewFile {
 public:
  /**
   * Creates the temporary file.
   *
   * @param path       the file's own name.
   * @param mayReplace whether a file of that name may be there, which is replaced. Throws a Failure
   *                   when there is one and it may not, when something else than a file is there,
   * or when the temporary one cannot be created.
   */
  NewFile(std::filesystem::path path, bool mayReplace);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /** To write to. */
  [[nodiscard]] int descriptor() const { return descriptor_; }

  /** Sees to it that all is on the disk, and gives it its name. Throws a Failure. */
  void commit();

 private:
  [[noreturn]] void fail(int error) const;
  void giveName() const;

  std::filesystem::path path_;
  std::filesystem::path temporary_;
  bool mayReplace_;
  int descriptor_;
};

}  // namespace KELP::Tool
