#pragma once

#include <diagnostic/reportcontentproperties.h>
#include <diagnostic/reportuuid.h>
#include <os/export.h>
#include <os/keyvaluestore.h>

#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {

/**
 * A typed handle for one key of a report's metadata store: turns a value into the stored text and
 * back, and reads, writes and removes that key in a store handed to it.
 *
 * Seven kinds of value exist: ReportUuid, `long` (64-bit), `int` (32-bit), `bool`, `std::string`,
 * `std::vector<std::string>` and `std::vector<DiagnosticReportContentProperties>`. Their stored
 * texts are described in docs/on-disk-format.md.
 *
 * One rule holds for reading: a text that is present and valid for the kind gives its value; in
 * every other case the property's default is returned, which is empty when there is none. Nothing
 * here fails for a bad text. The two list kinds log one line at error priority when a text is no
 * JSON array: "Failed to parse json data: %s, error: %s" with the text and the reader's own words.
 *
 * An object never changes after its construction and may be used from any thread; the store that is
 * handed to it has its own rule.
 *
 * @tparam T the kind of value, one of the seven.
 */
template <typename T>
class MetadataProperty {
 public:
  /**
   * Makes a handle for a key.
   *
   * @param key          the key; copied.
   * @param defaultValue what a missing or unreadable text is read as; empty for none.
   */
  MetadataProperty(const char* key, std::optional<T> defaultValue);

  /** The key. @return a copy of it. */
  [[nodiscard]] std::string getKey() const;

  /**
   * Turns a value into the stored text.
   *
   * @param value the value.
   * @return its text.
   * @throws std::length_error for a string of more than 256 MiB within one of the two lists.
   */
  [[nodiscard]] static std::string serialize(T value);

  /**
   * Turns a stored text into a value.
   *
   * @param text the text; empty when there is none.
   * @return its value, or the default.
   */
  [[nodiscard]] std::optional<T> unserialize(std::optional<std::string> text) const;

  /**
   * Writes the key.
   *
   * @param value the value to write.
   * @param store where to write it.
   * @return what the store returned; false, too, for what serialize() refuses. False means that
   *         nothing was changed.
   */
  bool set(T value, OS::KeyValueStore& store) const;

  /**
   * Reads the key.
   *
   * @param store where to read it.
   * @return its value, or the default.
   */
  [[nodiscard]] std::optional<T> get(OS::KeyValueStore& store) const;

  /**
   * Removes the key.
   *
   * @param store where to remove it.
   * @return what the store returned: false when it could not be removed. An absent key gives true.
   */
  bool remove(OS::KeyValueStore& store) const;

 private:
  std::string key_;
  std::optional<T> default_;
};

extern template class KELP_EXPORT MetadataProperty<ReportUuid>;
extern template class KELP_EXPORT MetadataProperty<long>;
extern template class KELP_EXPORT MetadataProperty<int>;
extern template class KELP_EXPORT MetadataProperty<bool>;
extern template class KELP_EXPORT MetadataProperty<std::string>;
extern template class KELP_EXPORT MetadataProperty<std::vector<std::string>>;
extern template class KELP_EXPORT MetadataProperty<std::vector<DiagnosticReportContentProperties>>;

}  // namespace KELP::Diagnostic
