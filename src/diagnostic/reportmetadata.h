#pragma once

#include "diagnostic/failure.h"
#include "diagnostic/metadatakeys.h"
#include "diagnostic/reportstore.h"

#include <diagnostic/diagnosticreport.h>

#include <utility>

/** How a report's operations reach its metadata. */
namespace KELP::Diagnostic {

/** The value of @p property; empty when it is absent or unreadable, or there is no store. */
template <typename T>
std::optional<T> DiagnosticReport::read(const MetadataProperty<T>& property) const {
  return store_ ? store_->read(property) : std::nullopt;
}

template <typename T>
bool DiagnosticReport::write(const MetadataProperty<T>& property, T value) {
  return store_ && store_->write(property, std::move(value));
}

/** Stamps the time of modification and writes @p value. */
template <typename T>
DiagnosticReport::Result DiagnosticReport::change(const MetadataProperty<T>& property, T value,
                                                  OS::LogFormat<> writeFailure) {
  if (Result touched = touch(); !touched) {
    return touched;
  }
  if (!write(property, std::move(value))) {
    return fail(writeFailure);
  }
  return true;
}

}  // namespace KELP::Diagnostic
