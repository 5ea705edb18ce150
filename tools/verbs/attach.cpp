#include "base/output.h"
#include "base/text.h"
#include "reports/access.h"
#include "verbs/change.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;

struct AttachOptions {
  ChangeOptions change;
  std::string name;
  int level = 0;
  std::string file;
  std::optional<std::string> fileName;
  bool overwrite = false;
  bool create = false;
  std::string mediaType;
};

/** Throws a Failure unless @p file can be copied. */
void requireFile(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) {
    throw Failure(ExitStatus::Failed,
                  "cannot read " + inQuotes(file) + ": " + std::system_category().message(errno));
  }
  ::close(descriptor);
  if (!S_ISREG(status.st_mode)) {
    throw Failure(ExitStatus::Failed, inQuotes(file) + " is not a regular file");
  }
}

/** The name of the file that is replaced is not changed: say so when another was asked for. */
void checkName(const Property& property, const AttachOptions& options) {
  const Variation* const existing = findVariation(property, options.level);
  if (existing == nullptr || !options.overwrite || !options.fileName) {
    return;
  }
  const std::string kept = std::filesystem::path(existing->relative_path).filename();
  if (kept != *options.fileName) {
    warn("the file keeps its name " + inQuotes(kept) + "");
  }
}

DiagnosticReport::Result copy(DiagnosticReport& report, const AttachOptions& options) {
  return report.copyFileToFileProperty(options.name, options.level, options.file,
                                       options.fileName.value_or(""), options.overwrite);
}

ExitStatus attach(const Context& context, const AttachOptions& options) {
  requireText(options.name, "the name");
  if (options.fileName) {
    requireFileName(*options.fileName, "the name of the file");
  }
  if (options.create) {
    requireFileName(options.name, "the name of a property of files");
  }
  requireText(options.mediaType, "the media type");
  requireFile(options.file);
  const auto report = openForChange(context, options.change);
  const bool isNew = options.create && !report->hasReportContentProperty(options.name);
  if (isNew) {
    require(report->createReportFileProperty(options.name, options.mediaType, {}));
  }
  const Property property = requireProperty(*report, options.name);
  requireFileProperty(property);
  checkName(property, options);
  const auto copied = copy(*report, options);
  if (!copied && isNew && !report->removeReportContentProperty(options.name)) {
    warn("the property " + inQuotes(options.name) + " stays, without a file");
  }
  require(copied);
  return ExitStatus::Done;
}

}  // namespace

void addAttach(CLI::App& program, Context& context) {
  const auto verb =
      addVerb<AttachOptions>(program, context, "attach", "Copy a file into a report",
                             "  kelp-diagnostics attach 3f2a log 20 /var/log/player.log --create\n"
                             "  kelp-diagnostics attach 3f2a log 0 short.log --name player.log\n"
                             "  kelp-diagnostics attach 3f2a log 0 shorter.log --overwrite\n"
                             "\n"
                             "A file is replaced in place: when the disk is full just then, a part "
                             "of the new one\nis left of it.\n",
                             attach);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addLevel(*verb.app, verb->level);
  addWord(*verb.app, "FILE", verb->file, "The file to copy")->type_name("FILE")->required();
  addWord(*verb.app, "--name", verb->fileName,
          "The name that the stored file gets, instead of the property's")
      ->type_name("FILENAME");
  verb.app->add_flag("--overwrite", verb->overwrite,
                     "Replace the file of the variation of that level");
  CLI::Option* const create =
      verb.app->add_flag("--create", verb->create, "Add the property if there is none");
  addText(*verb.app, "--media-type", verb->mediaType, "With --create: what the file is")
      ->needs(create);
}

}  // namespace KELP::Tool
