#include "faults/hostile/operations.h"

#include "support/waituntil.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>

namespace KELP::Test {
namespace {

using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticDataObserver;
using Diagnostic::DiagnosticError;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;
using Type = Diagnostic::DiagnosticReportContentPropertyTypes;

constexpr int kLevel = 2;

std::string words(bool value) {
  return value ? "yes" : "no";
}
std::string words(const std::filesystem::path& path) {
  return path.string();
}
std::string words(const std::shared_ptr<Diagnostic::ReportTemporaryFile>& file) {
  return file->getPath()->parent_path().string();
}
template <typename T>
std::string words(const OS::expected<T, DiagnosticError>& result) {
  if (!result) {
    const DiagnosticError& error = result.error();
    return std::to_string(error.code.value()) + " " + error.message;
  }
  return words(*result);
}

/** Opens the report, and with @p locked takes its write lock. */
std::string withReport(const Subject& subject, bool locked,
                       const std::function<std::string(DiagnosticReport&)>& use) {
  const auto report = DiagnosticData(subject.root).openReport(subject.id);
  if (!report) {
    return "not opened";
  }
  if (locked) {
    if (const auto taken = report->acquireWriteLock(false); !taken) {
      return "not locked: " + words(taken);
    }
  }
  return use(*report);
}

/** An operation on a report that needs no lock. */
Operation reading(const char* name, std::function<std::string(DiagnosticReport&)> use) {
  return {name, [use = std::move(use)](const Subject& subject) {
            return withReport(subject, false, use);
          }};
}

/** An operation on a report that holds the write lock. */
Operation changing(const char* name,
                   std::function<std::string(DiagnosticReport&, const Subject&)> use) {
  return {name, [use = std::move(use)](const Subject& subject) {
            return withReport(subject, true,
                              [&](DiagnosticReport& report) { return use(report, subject); });
          }};
}

/** Answers, with a blank between them. To be made with braces, which ask in this order. */
struct All {
  template <typename... Answers>
  explicit All(const Answers&... answers) : text(((words(answers) + " ") + ...)) {
    text.pop_back();
  }
  std::string text;
};

std::string readFields(DiagnosticReport& report) {
  const bool has[] = {
      report.getId().isNull(),
      report.getReporterAppId().has_value(),
      report.getBuildId().has_value(),
      report.getUserId().has_value(),
      report.getDeviceId().has_value(),
      report.getSessionId().has_value(),
      report.getCreatedTime() != 0,
      report.getModifiedTime() != 0,
      report.getDescription().has_value(),
      report.getProcessName().has_value(),
      report.getPID().has_value(),
      report.getLoadedLibraries().has_value(),
      report.isCreationComplete(),
      report.isUserInteractionComplete(),
      report.isDataCollectionComplete(),
      report.isDataPolicyApplied(),
      report.isUploadComplete(),
      report.canCollectData(),
      report.canApplyDataPolicy(),
      report.canUpload(),
  };
  std::string answers;
  for (const bool answer : has) {
    answers += answer ? '1' : '0';
  }
  return answers + " " + std::to_string(report.getCurrentConsentLevel()) + " " +
         std::to_string(report.getMaxConsentLevel());
}

std::string readContents(DiagnosticReport& report) {
  const auto contents = report.getReportContents();
  return All{contents.has_value(),
             report.hasReportContentProperty("log"),
             report.getReportContentProperty("log", Type::FILE).has_value(),
             report.getReportContentBestVariation("log").has_value(),
             report.getReportStringVariationValue("text", kLevel).has_value(),
             report.getReportIntegerBestVariationValue("text").has_value(),
             report.getReportDoubleVariation("text", kLevel).has_value(),
             report.hasReportBooleanProperty("text")}
      .text;
}

std::string takeLocks(DiagnosticReport& report) {
  return All{report.acquireReadLock(false),
             report.acquireWriteLock(false),
             report.touch(),
             report.releaseLock(),
             report.waitForAndAquireReadLock(20),
             report.waitForAndAquireWriteLock(20),
             report.releaseLock()}
      .text;
}

std::string setFields(DiagnosticReport& report) {
  return All{report.setCurrentConsentLevel(5),
             report.setMaxConsentLevel(6),
             report.setDescription("description"),
             report.setProcessName("name"),
             report.setPID(1),
             report.setLoadedLibraries({"/lib/a"}),
             report.markCreationComplete(),
             report.markUserInteractionComplete(),
             report.markDataCollectionComplete(),
             report.markDataPolicyApplied(),
             report.markUploadComplete()}
      .text;
}

std::string changeContents(DiagnosticReport& report) {
  return All{report.createReportStringProperty("new", {"tag"}),
             report.addReportStringVariation("new", 1, "value", false),
             report.addTagToContentProperty("new", "another"),
             report.createReportIntegerProperty("number", {}),
             report.addReportIntegerVariation("number", 1, 7, true),
             report.createReportDoubleProperty("double", {}),
             report.addReportDoubleVariation("double", 1, 7.5, true),
             report.createReportBooleanProperty("switch", {}),
             report.addReportBooleanVariation("switch", 1, true, true),
             report.removeStringVariation("new", 1),
             report.removeReportStringProperty("new")}
      .text;
}

std::string moveTemporary(DiagnosticReport& report) {
  const auto file = report.createReportTemporaryFile();
  if (!file) {
    return words(file);
  }
  std::ofstream(*(*file)->getPath()) << "temporary";
  return words(report.moveReportTemporaryFileToFileProperty("log", 4, *file, "b.txt", false));
}

/** Copies what it is given, of no more than 1 MiB: a stored file may be endless. */
bool copyingFilter(std::ifstream& input, std::ofstream& output) {
  std::string content(1U << 20, '\0');
  input.read(content.data(), static_cast<std::streamsize>(content.size()));
  output.write(content.data(), input.gcount());
  return true;
}

/** Watches the repository until it has told of the other report, and of another that is new. */
std::string observe(const Subject& subject) {
  std::atomic<int> told{0};
  const auto data = std::make_shared<DiagnosticData>(subject.root);
  DiagnosticDataObserver observer(
      data,
      [&](const ReportUuid& id, DiagnosticDataObserver::EventType, void*) {
        told += id == subject.id ? 0 : 1;
      },
      nullptr);
  observer.start();
  const bool existing = waitUntil([&] { return told >= 1; });
  told = 0;
  const auto added = data->createReport(1, 2, 3, "device", "session");
  const bool isNew = added && waitUntil([&] { return told >= 1; });
  observer.stop();
  return All{existing, isNew}.text;
}

std::string create(const Subject& subject) {
  return words(DiagnosticData(subject.root).createReport(subject.id, 1, 2, 3, "d", "s") != nullptr);
}

std::string list(const Subject& subject) {
  std::string ids;
  for (const ReportUuid& id : DiagnosticData(subject.root).getAllReportUuids()) {
    ids += id == subject.id ? "subject " : "other ";
  }
  return ids == "other subject " ? "subject other " : ids;
}

std::string removeFromRepository(const Subject& subject, bool force) {
  return words(DiagnosticData(subject.root).deleteReport(subject.id, force));
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all{
      {"list", list},
      {"count",
       [](const Subject& subject) {
         return std::to_string(DiagnosticData(subject.root).countAllReports());
       }},
      {"create", create},
      reading("open", [](DiagnosticReport&) { return "opened"; }),
      reading("fields", readFields),
      reading("contents", readContents),
      reading("locks", takeLocks),
      changing("set fields", [](auto& report, auto&) { return setFields(report); }),
      changing("change contents", [](auto& report, auto&) { return changeContents(report); }),
      changing("copy",
               [](auto& report, auto& subject) {
                 return words(
                     report.copyFileToFileProperty("log", 3, subject.source, "a.txt", false));
               }),
      changing("overwrite",
               [](auto& report, auto& subject) {
                 return words(
                     report.copyFileToFileProperty("log", kLevel, subject.source, "", true));
               }),
      changing("move", [](auto& report, auto&) { return moveTemporary(report); }),
      reading("path",
              [](auto& report) { return words(report.getReportFileVariationPath("log", kLevel)); }),
      reading("best path",
              [](auto& report) { return words(report.getReportFileBestVariationPath("log")); }),
      reading("filter to temporary",
              [](auto& report) {
                return words(
                    report.filterFileVariationToTemporaryFile("log", kLevel, copyingFilter));
              }),
      changing("filter",
               [](auto& report, auto&) {
                 return words(report.filterFileVariation("log", kLevel, copyingFilter));
               }),
      changing(
          "remove variation",
          [](auto& report, auto&) { return words(report.removeFileVariation("log", kLevel)); }),
      changing("remove property",
               [](auto& report, auto&) { return words(report.removeReportFileProperty("log")); }),
      changing("policy",
               [](auto& report, auto&) {
                 return All{report.setCurrentConsentLevel(0), report.applyPolicyFilters()}.text;
               }),
      reading("temporary", [](auto& report) { return words(report.createReportTemporaryFile()); }),
      reading("purge", [](auto& report) { return words(report.purgeReportTemporaryFiles()); }),
      changing("delete report", [](auto& report, auto&) { return words(report.deleteReport()); }),
      {"observe", observe},
      {"delete", [](const Subject& subject) { return removeFromRepository(subject, false); }},
      {"force delete", [](const Subject& subject) { return removeFromRepository(subject, true); }},
  };
  return all;
}

}  // namespace KELP::Test
