#pragma once

#include <os/export.h>

#include <filesystem>
#include <optional>

namespace KELP::Diagnostic {

/**
 * Owns the name of a file in a report's scratch directory, and deletes the file at the end.
 *
 * Life cycle:
 *  1. The constructor picks a fresh random name. Clients have the report's
 *     createReportTemporaryFile() call it. It makes no file: the client opens the path for writing.
 *  2. The file is moved into the report, or its owner lets go of it.
 *  3. cleanup(), a move to another handle, or the destructor ends the handle; the first and the
 *     last delete the file.
 *
 * A handle that owns nothing has the path "/dev/null", so that using it by mistake harms no report.
 * An object is used by one thread at a time. No operation logs.
 */
class KELP_EXPORT ReportTemporaryFile {
 public:
  /**
   * Picks a name.
   *
   * @param directory where the file shall be; empty for a handle that owns nothing.
   */
  explicit ReportTemporaryFile(std::optional<std::filesystem::path> directory);

  /** Takes a file over. @param other its handle, which then owns nothing. */
  ReportTemporaryFile(ReportTemporaryFile&& other) noexcept;
  ReportTemporaryFile& operator=(ReportTemporaryFile&&) = delete;
  ReportTemporaryFile(const ReportTemporaryFile&) = delete;
  ReportTemporaryFile& operator=(const ReportTemporaryFile&) = delete;

  /** As cleanup(), but never throws. */
  ~ReportTemporaryFile();

  /**
   * Deletes the file, if there is one, and owns nothing from then on. Failing to delete it (a
   * directory with something in it may have taken its place) is no failure.
   *
   * @throws std::filesystem::filesystem_error when the file cannot be examined, for want of
   *         permission say.
   */
  void cleanup();

  /** The file's path. @return it; empty when nothing is owned. */
  [[nodiscard]] std::optional<std::filesystem::path> getPath() const;

  /** Whether a file is owned, be it made yet or not. @return true if so. */
  [[nodiscard]] bool isValid() const;

 private:
  std::filesystem::path path_;
  bool valid_;
};

}  // namespace KELP::Diagnostic
