#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct archive;

/** Writing archives. */
namespace KELP::Tool {

enum class ArchiveFormat { TarZstd, TarGzip, Zip };

/** By the ending of the file's name: ".tar.zst", ".tar.gz", ".tgz" or ".zip". */
[[nodiscard]] std::optional<ArchiveFormat> archiveFormatOf(const std::filesystem::path& file);

/**
 * @p text as one name of a member's path, which any system can unpack: percentEncoded(), "." and
 * ".." as well, "%" for an empty text. What is too long for a file's name has its end replaced by
 * "%~" and the beginning of the whole text's SHA-256. Different texts stay different.
 */
[[nodiscard]] std::string memberNameOf(std::string_view text);

/**
 * Writes an archive of files. The same members give the same bytes, wherever and whenever.
 *
 * Life cycle:
 *  1. begin() a member, write() exactly as many bytes as its size says, and so on.
 *  2. close(). Without that the archive is not whole.
 *
 * Everything throws a Failure when it cannot be written.
 */
class ArchiveWriter {
 public:
  /** @param descriptor what to write to. @param name for messages. */
  ArchiveWriter(int descriptor, std::string name, ArchiveFormat format);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  /** @param path in UTF-8. @param modified seconds since the epoch; as near as the format can say.
   */
  void begin(const std::string& path, std::uint64_t size, long modified);
  void write(std::string_view piece);
  void close();

 private:
  /** Where the archive's bytes go. An error does not reach the library, which would never release
   * all that it has; it is kept, and what follows is dropped. */
  struct Sink {
    int descriptor = -1;
    int error = 0;
    bool isAbandoned = false;

    static ssize_t write(archive* writer, void* sink, const void* bytes, std::size_t size);
  };

  void require(long result) const;

  std::string name_;
  ArchiveFormat format_;
  Sink sink_;
  std::unique_ptr<archive, int (*)(archive*)> archive_;
};

}  // namespace KELP::Tool
