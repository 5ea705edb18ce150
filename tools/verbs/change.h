#pragma once

#include "reports/contents.h"
#include "verbs/argument.h"
#include "verbs/verb.h"

#include <diagnostic/diagnosticreport.h>

#include <memory>
#include <string>

/** What the verbs that change a report have in common. */
namespace KELP::Tool {

/** Which report, and how long to wait for it. */
struct ChangeOptions {
  std::string id;
  long waitMs = 0;
};

/** Adds the argument ID and the option --wait. */
void addChange(CLI::App& verb, ChangeOptions& options);

/** Opens the report with its write lock, as openForChange() of reports/access.h does. */
[[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> openForChange(
    const Context& context, const ChangeOptions& options);

/** Adds the argument NAME, of a content property. */
void addName(CLI::App& verb, std::string& name);
/** Adds the argument LEVEL, of a variation. */
void addLevel(CLI::App& verb, int& level);

/** Throws a Failure of usage unless @p text, which is @p what, can be stored as it is among the
 *  contents: in UTF-8, and without NUL. */
void requireText(const std::string& text, const std::string& what);

/** Throws a Failure of usage unless @p text, which is @p what, can be the name of a file or a
 * directory: the stored files of a property are below a directory of its name. */
void requireFileName(const std::string& text, const std::string& what);

/** Throws a Failure unless the files of @p property, if it has any, are below a directory of its
 * own. The library takes "../x" for a name as well. */
void requireOwnDirectory(const Property& property);

/** The property of that name. Throws a Failure (NotFound) when there is none. */
[[nodiscard]] Property requireProperty(const Diagnostic::DiagnosticReport& report,
                                       const std::string& name);

/** Throws a Failure of usage unless @p property is one of files, and as requireOwnDirectory(). */
void requireFileProperty(const Property& property);

/** Its variation of that level. Throws a Failure (NotFound) when there is none. */
[[nodiscard]] const Variation& requireVariation(const Property& property, int level);

}  // namespace KELP::Tool
