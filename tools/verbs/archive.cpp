#include "verbs/archive.h"

#include "base/digest.h"
#include "base/failure.h"
#include "base/text.h"

#include <archive.h>
#include <archive_entry.h>
#include <locale.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

constexpr std::size_t kLongestName = 200;
constexpr int kBlockSize = 64 * 1024;

constexpr std::array<std::pair<std::string_view, ArchiveFormat>, 4> kEndings{{
    {".tar.zst", ArchiveFormat::TarZstd},
    {".tar.gz", ArchiveFormat::TarGzip},
    {".tgz", ArchiveFormat::TarGzip},
    {".zip", ArchiveFormat::Zip},
}};

/** As long as it lives, this thread's texts are UTF-8: by that libarchive stores names, and in the
 *  user's locale it may be unable to. */
class Utf8Texts {
 public:
  Utf8Texts()
      : utf8_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(::uselocale(utf8_)) {}
  ~Utf8Texts() {
    ::uselocale(before_);
    if (utf8_ != nullptr) {
      ::freelocale(utf8_);
    }
  }
  Utf8Texts(const Utf8Texts&) = delete;
  Utf8Texts& operator=(const Utf8Texts&) = delete;

 private:
  locale_t utf8_;
  locale_t before_;
};

struct FreeEntry {
  void operator()(archive_entry* entry) const { ::archive_entry_free(entry); }
};

/** What the format can say of a time, as seconds since the epoch. */
long storable(long time, ArchiveFormat format) {
  constexpr long kYear1980 = 315532800;
  constexpr long kLatest = 0xFFFFFFFF;
  return std::clamp(time, format == ArchiveFormat::Zip ? kYear1980 : 0, kLatest);
}

}  // namespace

std::optional<ArchiveFormat> archiveFormatOf(const std::filesystem::path& file) {
  const std::string name = file.filename().native();
  for (const auto& [ending, format] : kEndings) {
    if (name.size() > ending.size() && name.ends_with(ending)) {
      return format;
    }
  }
  return std::nullopt;
}

std::string memberNameOf(std::string_view text) {
  if (text.empty()) {
    return "%";
  }
  if (text == "." || text == "..") {
    return text.size() == 1 ? "%2E" : "%2E%2E";
  }
  std::string name = percentEncoded(text);
  if (name.size() > kLongestName) {
    constexpr std::size_t kDigits = 16;
    std::size_t kept = kLongestName - kDigits - 2;
    while ((static_cast<unsigned char>(name[kept]) & 0xC0U) == 0x80) {
      --kept;  // Not in the middle of a character.
    }
    name.resize(kept);
    name += "%~" + sha256Of(text).substr(0, kDigits);
  }
  return name;
}

ArchiveWriter::ArchiveWriter(int descriptor, std::string name, ArchiveFormat format)
    : name_(std::move(name)),
      format_(format),
      sink_{descriptor},
      archive_(::archive_write_new(), ::archive_write_free) {
  if (archive_ == nullptr) {
    throw std::bad_alloc();
  }
  if (format_ == ArchiveFormat::Zip) {
    // The format has local times, by whatever zone the process has.
    ::setenv("TZ", "UTC0", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread.
    ::tzset();                  // NOLINT(concurrency-mt-unsafe)
    require(::archive_write_set_format_zip(archive_.get()));
  } else {
    require(::archive_write_set_format_pax_restricted(archive_.get()));
  }
  if (format_ == ArchiveFormat::TarGzip) {
    require(::archive_write_add_filter_gzip(archive_.get()));
    require(::archive_write_set_filter_option(archive_.get(), "gzip", "timestamp", nullptr));
  } else if (format_ == ArchiveFormat::TarZstd) {
    require(::archive_write_add_filter_zstd(archive_.get()));
  }
  require(::archive_write_set_bytes_per_block(archive_.get(), kBlockSize));
  require(::archive_write_set_bytes_in_last_block(archive_.get(), 1));
  require(::archive_write_open(archive_.get(), &sink_, nullptr, Sink::write, nullptr));
}

ArchiveWriter::~ArchiveWriter() {
  sink_.isAbandoned = true;  // What is not closed stays unfinished.
}

ssize_t ArchiveWriter::Sink::write(archive* /*writer*/, void* sink, const void* bytes,
                                   std::size_t size) {
  auto& [descriptor, error, isAbandoned] = *static_cast<Sink*>(sink);
  std::string_view left(static_cast<const char*>(bytes), size);
  while (!left.empty() && error == 0 && !isAbandoned) {
    const ssize_t written = ::write(descriptor, left.data(), left.size());
    if (written >= 0) {
      left.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  return static_cast<ssize_t>(size);
}

void ArchiveWriter::begin(const std::string& path, std::uint64_t size, long modified) {
  const Utf8Texts utf8;
  const std::unique_ptr<archive_entry, FreeEntry> entry(::archive_entry_new());
  ::archive_entry_set_pathname(entry.get(), path.c_str());
  ::archive_entry_set_filetype(entry.get(), AE_IFREG);
  ::archive_entry_set_perm(entry.get(), 0644);
  ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
  ::archive_entry_set_mtime(entry.get(), storable(modified, format_), 0);
  require(::archive_write_header(archive_.get(), entry.get()));
}

void ArchiveWriter::write(std::string_view piece) {
  while (!piece.empty()) {
    const la_ssize_t written = ::archive_write_data(archive_.get(), piece.data(), piece.size());
    require(written);
    if (written == 0) {
      throw Failure(ExitStatus::Failed, "cannot write " + name_ + ": a member is too long");
    }
    piece.remove_prefix(static_cast<std::size_t>(written));
  }
}

void ArchiveWriter::close() {
  const Utf8Texts utf8;  // Zip writes its names once more at the end.
  require(::archive_write_close(archive_.get()));
}

void ArchiveWriter::require(long result) const {
  if (result >= ARCHIVE_OK && sink_.error == 0) {
    return;
  }
  const int error = sink_.error != 0 ? sink_.error : ::archive_errno(archive_.get());
  const char* const text = ::archive_error_string(archive_.get());
  std::string reason = text == nullptr ? "the archive cannot be made" : escaped(text);
  if (error > 0) {
    reason = std::system_category().message(error);
  }
  throw Failure(ExitStatus::Failed, "cannot write " + name_ + ": " + reason);
}

}  // namespace KELP::Tool
