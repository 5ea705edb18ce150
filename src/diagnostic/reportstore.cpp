#include "diagnostic/reportstore.h"

#include <stdexcept>

namespace KELP::Diagnostic {
namespace {

/** What the store is called towards the platform. */
constexpr const char* kName = "metadata";
/** The longest text whose contents are kept. */
constexpr std::size_t kLongestKept = std::size_t{1} << 20;

OS::KeyValueStore::Options options() {
  using Option = OS::KVStoreOpenOption;
  return {Option::CreateIfMissing, Option::Shared, Option::SyncOnClose};
}

}  // namespace

ReportStore::ReportStore(const std::string& path) : values_(path, kName, options()) {}

std::optional<ReportContents> ReportStore::read(const MetadataProperty<ReportContents>& property) {
  const std::shared_ptr<const ReportContents> contents = look(property);
  return contents ? std::optional(*contents) : std::nullopt;
}

std::shared_ptr<const ReportContents> ReportStore::look(
    const MetadataProperty<ReportContents>& property) {
  std::optional<std::string> text = values_.get(property.getKey());
  if (text && !text_.empty() && *text == text_) {
    return contents_;
  }
  std::optional<ReportContents> read = property.unserialize(text);
  if (!read) {
    return nullptr;
  }
  auto contents = std::make_shared<const ReportContents>(*std::move(read));
  if (text && text->size() <= kLongestKept) {
    keep(*std::move(text), contents);
  }
  return contents;
}

bool ReportStore::write(const MetadataProperty<ReportContents>& property,
                        ReportContents contents) try {
  std::string text = writeReportContents(contents);
  // Before the change is made: nothing may fail afterwards.
  const auto kept = std::make_shared<ReportContents>(std::move(contents));
  if (!values_.set(property.getKey(), text)) {
    return false;
  }
  if (text.size() <= kLongestKept && makeAsStored(*kept)) {
    keep(std::move(text), kept);
  }
  return true;
} catch (const std::length_error&) {
  return false;
}

void ReportStore::keep(std::string text, std::shared_ptr<const ReportContents> contents) noexcept {
  text_ = std::move(text);
  contents_ = std::move(contents);
}

}  // namespace KELP::Diagnostic
