#pragma once

#include "diagnostic/reportcontentsformat.h"

#include <algorithm>
#include <string>

/** Finding things in a report's contents. Of several that match, the first counts. */
namespace KELP::Diagnostic {

/** The element of @p list whose @p member is @p wanted; null when there is none. */
template <typename List, typename Member, typename Wanted>
auto findBy(List& list, Member member, const Wanted& wanted) -> decltype(list.data()) {
  const auto found = std::ranges::find(list, wanted, member);
  return found == list.end() ? nullptr : &*found;
}

/** The property called @p name; null when there is none. */
template <typename Contents>
auto findProperty(Contents& contents, const std::string& name) {
  return findBy(contents, &DiagnosticReportContentProperties::stable_id, name);
}

/** The variation of @p property at @p level; null when there is none. */
template <typename Property>
auto findVariation(Property& property, int level) {
  return findBy(property.variations, &DiagnosticReportContentVariations::sensitivity_level, level);
}

}  // namespace KELP::Diagnostic
