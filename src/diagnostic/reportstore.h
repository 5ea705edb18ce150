#pragma once

#include "diagnostic/reportcontentsformat.h"

#include <diagnostic/metadataproperty.h>
#include <os/keyvaluestore.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace KELP::Diagnostic {

/**
 * The metadata of one report.
 *
 * Every operation on a report's contents goes through the whole list, and parsing takes nearly all
 * of the time: the list is kept, together with the text that it stands for. The text is read from
 * the store each time all the same, and decides whether what is kept is used.
 */
class ReportStore {
 public:
  explicit ReportStore(const std::string& path);

  [[nodiscard]] bool isReady() { return values_.isReady(); }

  /** The value of @p property; empty when it is absent or unreadable. */
  template <typename T>
  std::optional<T> read(const MetadataProperty<T>& property) {
    return property.get(values_);
  }
  /** The same. The property must have no default. */
  std::optional<ReportContents> read(const MetadataProperty<ReportContents>& property);
  /** The same without a copy; null when it is absent or unreadable. */
  std::shared_ptr<const ReportContents> look(const MetadataProperty<ReportContents>& property);

  template <typename T>
  bool write(const MetadataProperty<T>& property, T value) {
    return property.set(std::move(value), values_);
  }
  bool write(const MetadataProperty<ReportContents>& property, ReportContents contents);

 private:
  /** Keeps @p contents as what reading @p text gives now. */
  void keep(std::string text, std::shared_ptr<const ReportContents> contents) noexcept;

  OS::KeyValueStore values_;
  std::string text_;                                ///< Empty when nothing is kept.
  std::shared_ptr<const ReportContents> contents_;  ///< What reading the text gives.
};

}  // namespace KELP::Diagnostic
