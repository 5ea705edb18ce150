#include "check/finders.h"

#include "base/text.h"
#include "check/contentfiles.h"
#include "check/temporaries.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <string>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

Finding found(FindingKind kind, const Subject& subject, fs::path path, std::string detail) {
  return {kind, subject.report.name, std::move(path), std::move(detail)};
}

void findHalfMade(const Subject& subject, Findings& findings) {
  const auto add = [&](const std::string& what, Remedy remedy = Remedy::None) {
    findings.push_back(found(FindingKind::HalfMade, subject, subject.directory(), what));
    findings.back().remedy = remedy;
  };
  if (certainEntriesOf(subject.directory()).empty()) {
    add("the directory is empty", Remedy::RemoveEmptyReport);
    return;
  }
  if (!subject.lock) {
    add("\"lock\" is missing");
  }
  if (!subject.store) {
    add("\"metadata.db\" is missing");
  }
  if (!subject.report.metadata.missing.empty()) {
    add("the metadata lack " + joined(subject.report.metadata.missing));
  }
}

void findDamagedStore(const Subject& subject, Findings& findings) {
  if (subject.store && subject.store->isFile() && !subject.report.hasStore) {
    findings.push_back(found(FindingKind::DamagedStore, subject, subject.storePath(),
                             "\"metadata.db\" cannot be read"));
  }
}

/** Why what stands in the place of a file is left; empty when its kind says it. */
std::string objectionToRemoving(const Entry& entry) {
  const bool isFull = entry.isDirectory() && !certainEntriesOf(entry.path).empty();
  return isFull ? "it may hold data; even remove --force does not remove what is in it" : "";
}

void findWrongFile(const Subject& subject, Findings& findings) {
  struct Part {
    const char* name;
    bool isDirectory;
  };
  constexpr Part kParts[] = {
      {DiagnosticReport::kReportLockFilename, false},
      {DiagnosticReport::kReportMetadataFilename, false},
      {DiagnosticReport::kReportTmpDirectoryName, true},
      {DiagnosticReport::kReportContentFilesDirectoryName, true},
  };
  for (const auto& [name, isDirectory] : kParts) {
    const auto entry = certainEntryAt(subject.directory() / name);
    if (entry && (isDirectory ? !entry->isDirectory() : !entry->isFile())) {
      findings.push_back(found(FindingKind::WrongFile, subject, entry->path,
                               inQuotes(name) + " is " + entry->typeText()));
      findings.back().objection = objectionToRemoving(*entry);
    }
  }
}

void findMismatch(const Subject& subject, Findings& findings) {
  const auto& id = subject.report.metadata.reportId;
  if (id && *id != subject.report.id) {
    findings.push_back(found(FindingKind::MismatchedIdentifier, subject, subject.storePath(),
                             "the metadata are those of " + id->toString()));
  }
}

void findUnreadableMetadata(const Subject& subject, Findings& findings) {
  std::vector<std::string> keys = subject.report.metadata.unreadable;
  std::erase(keys, Metadata::kContentsKey);  // Of which there is a kind of its own.
  if (!keys.empty()) {
    findings.push_back(found(FindingKind::UnreadableMetadata, subject, subject.storePath(),
                             "what is stored is no value: " + joined(keys)));
  }
}

void findUnreadableContents(const Subject& subject, Findings& findings) {
  if (subject.report.metadata.hasUnreadableContents()) {
    findings.push_back(found(FindingKind::UnreadableContents, subject, subject.storePath(),
                             "the list of contents cannot be read"));
  }
}

void findMissingFiles(const Subject& subject, Findings& findings) {
  for (const RecordedFile& record : recordedFiles(subject)) {
    if (!record.complaint.empty()) {
      findings.push_back(found(FindingKind::MissingFile, subject, record.path,
                               inQuotes(record.property) + " at level " +
                                   std::to_string(record.level) + ": " + record.complaint));
    }
  }
}

void findOrphans(const Subject& subject, Findings& findings) {
  // Without a list that could be read, nobody knows what it names.
  if (!subject.hasReadableContents()) {
    return;
  }
  for (const Orphan& orphan : orphansOf(subject)) {
    const std::string name = inQuotes(orphan.path.lexically_relative(subject.directory()).native());
    findings.push_back(found(FindingKind::OrphanFile, subject, orphan.path,
                             orphan.isEmptyDirectory
                                 ? name + " is an empty directory of no property"
                                 : name + " is named by no record"));
    findings.back().remedy =
        orphan.isEmptyDirectory ? Remedy::RemoveEmptyDirectories : Remedy::None;
  }
}

void findTemporaries(const Subject& subject, Findings& findings) {
  for (const Temporary& temporary : temporariesOf(subject)) {
    const fs::path name = temporary.path.lexically_relative(subject.directory());
    findings.push_back(found(FindingKind::LeftoverTemporary, subject, temporary.path,
                             inQuotes(name.native()) + " is left over"));
    findings.back().objection = temporary.objection;
    findings.back().remedy = temporary.objection.empty() ? Remedy::RemoveTree : Remedy::None;
  }
}

constexpr void (*kFinders[])(const Subject&, Findings&) = {
    findHalfMade,           findDamagedStore,       findWrongFile,    findMismatch,
    findUnreadableMetadata, findUnreadableContents, findMissingFiles, findOrphans,
    findTemporaries,
};

/** Why an entry of the root is no report; empty when it is one. */
std::string objectionTo(const Entry& entry) {
  const std::string name = entry.path.filename();
  ReportUuid id;
  const std::string type = entry.typeText();
  if (!id.parse(name.c_str())) {
    return type + " that is no report";
  }
  if (id.toString() != name) {
    return type + " with an identifier in upper case";
  }
  if (id.isNull()) {
    return type + " with the null identifier";
  }
  return entry.isDirectory() ? "" : type + " in the place of a report";
}

}  // namespace

Findings findInReport(const Subject& subject) {
  Findings findings;
  for (const auto find : kFinders) {
    find(subject, findings);
  }
  return findings;
}

std::optional<Finding> findNoReport(const Entry& entry) {
  const std::string objection = objectionTo(entry);
  if (objection.empty()) {
    return std::nullopt;
  }
  return Finding{FindingKind::NoReport,
                 {},
                 entry.path,
                 inQuotes(entry.path.filename().native()) + " is " + objection};
}

}  // namespace KELP::Tool
