#include "diagnostic/textform.h"

#include <diagnostic/metadataproperty.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

namespace KELP::Diagnostic {

// Times are seconds since 1970, beyond 2038.
static_assert(sizeof(long) == sizeof(std::int64_t));

template <typename T>
MetadataProperty<T>::MetadataProperty(const char* key, std::optional<T> defaultValue)
    : key_(key), default_(std::move(defaultValue)) {}

template <typename T>
std::string MetadataProperty<T>::getKey() const {
  return key_;
}

template <typename T>
std::string MetadataProperty<T>::serialize(T value) {
  return TextForm<T>::write(std::move(value));
}

template <typename T>
std::optional<T> MetadataProperty<T>::unserialize(std::optional<std::string> text) const {
  std::optional<T> value = text ? TextForm<T>::read(*std::move(text)) : std::nullopt;
  return value ? value : default_;
}

template <typename T>
bool MetadataProperty<T>::set(T value, OS::KeyValueStore& store) const try {
  return store.set(key_, serialize(std::move(value)));
} catch (const std::length_error&) {
  return false;
}

template <typename T>
std::optional<T> MetadataProperty<T>::get(OS::KeyValueStore& store) const {
  return unserialize(store.get(key_));
}

template <typename T>
bool MetadataProperty<T>::remove(OS::KeyValueStore& store) const {
  return store.remove(key_);
}

template class MetadataProperty<ReportUuid>;
template class MetadataProperty<long>;
template class MetadataProperty<int>;
template class MetadataProperty<bool>;
template class MetadataProperty<std::string>;
template class MetadataProperty<std::vector<std::string>>;
template class MetadataProperty<ReportContents>;

}  // namespace KELP::Diagnostic
