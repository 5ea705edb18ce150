#pragma once

#include "peers/peer.h"

#include <filesystem>
#include <string>
#include <vector>

// What the peers of the library do with a report's contents, as it does itself.

namespace KELP::Bench {

/** The contents as the library's text, and back. */
[[nodiscard]] std::string writeContents(const Contents& contents);
[[nodiscard]] Contents readContents(const std::string& text);

/** @return the variation, which is added when it is not there. The property must be. */
[[nodiscard]] Diagnostic::DiagnosticReportContentVariations& variationOf(Contents& contents,
                                                                         const std::string& name,
                                                                         int level);

/** The value with the highest level up to @p permitted. */
[[nodiscard]] int bestValue(const Contents& contents, const std::string& name, int permitted);

/** Removes the variations above @p permitted. @return the paths of their files, which stay. */
[[nodiscard]] std::vector<std::string> dropVariations(Contents& contents, int permitted);

[[nodiscard]] std::size_t countVariations(const Contents& contents);

/** Where a report's directory keeps the file of a variation. */
[[nodiscard]] std::filesystem::path contentFile(const std::filesystem::path& report,
                                                const std::string& name, int level);

/** Copies @p source to @p file, over what is there; with the directories, if they are missing. */
void copyContentFile(const std::filesystem::path& source, const std::filesystem::path& file);

void removeContentFiles(const std::vector<std::string>& files);

}  // namespace KELP::Bench
