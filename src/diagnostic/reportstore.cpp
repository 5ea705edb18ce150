#include "diagnostic/reportstore.h"

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
  std::optional<std::string> text = values_.get(property.getKey());
  if (text && !text_.empty() && *text == text_ && std::locale() == locale_) {
    return contents_;
  }
  std::optional<ReportContents> contents = property.unserialize(text);
  if (text && contents && text->size() <= kLongestKept) {
    keep(*std::move(text), ReportContents(*contents));
  }
  return contents;
}

bool ReportStore::write(const MetadataProperty<ReportContents>& property, ReportContents contents) {
  std::string text = writeReportContents(contents);
  if (!values_.set(property.getKey(), text)) {
    return false;
  }
  if (text.size() <= kLongestKept && makeAsStored(contents)) {
    keep(std::move(text), std::move(contents));
  }
  return true;
}

void ReportStore::keep(std::string text, ReportContents contents) noexcept {
  text_ = std::move(text);
  contents_ = std::move(contents);
  locale_ = std::locale();
}

}  // namespace KELP::Diagnostic
