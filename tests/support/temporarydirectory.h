#pragma once

#include <filesystem>
#include <string>

namespace KELP::Test {

/** An empty directory of its own that is removed, with all that is in it, at the end. */
class TemporaryDirectory {
 public:
  /** Under $TMPDIR, or /tmp. */
  TemporaryDirectory();
  /** Under @p parent. */
  explicit TemporaryDirectory(const std::filesystem::path& parent);
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /** The path of @p name inside the directory. */
  [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

/** Where a test that makes very many small files is quickest: $TMPDIR if that is set, or else a
 * file system in memory if there is one, or else /tmp. */
[[nodiscard]] std::filesystem::path quickestPlace();

/** The whole of a file, or what can be read of it. */
[[nodiscard]] std::string readFile(const std::filesystem::path& path);

/** Writes a file anew. Throws when it cannot. */
void writeFile(const std::filesystem::path& path, const std::string& content);

}  // namespace KELP::Test
