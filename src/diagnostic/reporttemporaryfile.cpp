#include <diagnostic/reporttemporaryfile.h>
#include <diagnostic/reportuuid.h>

#include <system_error>
#include <utility>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNoPath = "/dev/null";

fs::path freshName() {
  ReportUuid name;
  name.randomize();
  char text[ReportUuid::kTextBufferSize];
  name.unparseLower(text);
  return text;
}

}  // namespace

ReportTemporaryFile::ReportTemporaryFile(std::optional<fs::path> directory)
    : path_(directory ? *directory / freshName() : fs::path(kNoPath)),
      valid_(directory.has_value()) {}

ReportTemporaryFile::ReportTemporaryFile(ReportTemporaryFile&& other) noexcept
    : path_(std::move(other.path_)), valid_(std::exchange(other.valid_, false)) {
  other.path_ = kNoPath;
}

ReportTemporaryFile::~ReportTemporaryFile() {
  try {
    cleanup();
  } catch (const fs::filesystem_error&) {
    // The file stays: there is nobody left to tell.
  }
}

void ReportTemporaryFile::cleanup() {
  if (!std::exchange(valid_, false)) {
    return;
  }
  if (fs::exists(path_)) {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
}

std::optional<fs::path> ReportTemporaryFile::getPath() const {
  return valid_ ? std::optional(path_) : std::nullopt;
}

bool ReportTemporaryFile::isValid() const {
  return valid_;
}

}  // namespace KELP::Diagnostic
