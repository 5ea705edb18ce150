#include "peers/contents.h"

#include "barecalls.h"
#include "sampledata.h"

#include <diagnostic/metadataproperty.h>

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using ContentsProperty = Diagnostic::MetadataProperty<Contents>;

template <typename AnyContents>
auto& propertyOf(AnyContents& contents, const std::string& name) {
  const auto found = std::find_if(contents.begin(), contents.end(),
                                  [&](const auto& property) { return property.stable_id == name; });
  require(found != contents.end(), "finding a property");
  return *found;
}

}  // namespace

std::string writeContents(const Contents& contents) {
  return ContentsProperty::serialize(contents);
}

Contents readContents(const std::string& text) {
  static const ContentsProperty kProperty("report_contents", std::nullopt);
  auto contents = kProperty.unserialize(text);
  require(contents.has_value(), "reading contents");
  return *std::move(contents);
}

Variation& variationOf(Contents& contents, const std::string& name, int level) {
  auto& variations = propertyOf(contents, name).variations;
  const auto found = std::find_if(variations.begin(), variations.end(), [&](const Variation& each) {
    return each.sensitivity_level == level;
  });
  if (found != variations.end()) {
    return *found;
  }
  variations.emplace_back().sensitivity_level = level;
  return variations.back();
}

int bestValue(const Contents& contents, const std::string& name, int permitted) {
  const Variation* best = nullptr;
  for (const Variation& each : propertyOf(contents, name).variations) {
    if (each.sensitivity_level <= permitted &&
        (best == nullptr || each.sensitivity_level > best->sensitivity_level)) {
      best = &each;
    }
  }
  require(best != nullptr, "finding a variation");
  return best->integer;
}

std::vector<std::string> dropVariations(Contents& contents, int permitted) {
  std::vector<std::string> files;
  for (auto& property : contents) {
    std::erase_if(property.variations, [&](const Variation& each) {
      if (each.sensitivity_level <= permitted) {
        return false;
      }
      if (property.isFileProperty()) {
        files.push_back(each.relative_path);
      }
      return true;
    });
  }
  return files;
}

std::size_t countVariations(const Contents& contents) {
  std::size_t count = 0;
  for (const auto& property : contents) {
    count += property.variations.size();
  }
  return count;
}

fs::path contentFile(const fs::path& report, const std::string& name, int level) {
  return report / "contentfiles" / name / std::to_string(level) / name;
}

void copyContentFile(const fs::path& source, const fs::path& file) {
  std::error_code missing;
  if (fs::copy_file(source, file, fs::copy_options::overwrite_existing, missing)) {
    return;
  }
  fs::create_directories(file.parent_path());
  fs::copy_file(source, file);
}

void removeContentFiles(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    BareCalls::checked(::unlink(file.c_str()), "unlink");
  }
}

}  // namespace KELP::Bench
