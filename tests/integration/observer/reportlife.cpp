#include "integration/observer/reportlife.h"

#include <diagnostic/reporttemporaryfile.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace KELP::Test {
namespace {

using Report = Diagnostic::DiagnosticReport;
using Type = Diagnostic::DiagnosticReportContentPropertyTypes;

/** Most changes stamp the time of the change first, and then write the value. */
constexpr int kStampAndValue = 2;

constexpr const char* kFile = "log";

/** Changes enough to write the report's metadata several times over its greatest size. */
Report::Result describeAtLength(Report& report) {
  for (int number = 0; number < kLongDescriptions; ++number) {
    if (auto described =
            report.setDescription(std::to_string(number) + std::string(kLongDescription, '.'));
        !described) {
      return described;
    }
  }
  return true;
}

/** A temporary file with something in it. */
std::shared_ptr<Diagnostic::ReportTemporaryFile> temporaryFile(Report& report) {
  auto file = report.createReportTemporaryFile();
  if (!file) {
    throw std::runtime_error(file.error().message);
  }
  std::ofstream(file.value()->getPath().value()) << "a secret\n";
  return file.value();
}

bool withoutSecrets(std::ifstream& /*in*/, std::ofstream& out) {
  out << "nothing\n";
  return true;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LifeStep& step) {
  return out << step.name;
}

const std::vector<LifeStep>& reportLife() {
  static const std::vector<LifeStep> life{
      {"touch", 1, [](Report& r) { return r.touch(); }},
      {"setDescription", kStampAndValue, [](Report& r) { return r.setDescription("it broke"); }},
      {"setDescriptionAgain", kStampAndValue,
       [](Report& r) { return r.setDescription("it broke"); }},
      {"setPID", kStampAndValue, [](Report& r) { return r.setPID(4711); }},
      {"setProcessName", kStampAndValue, [](Report& r) { return r.setProcessName("player"); }},
      {"setLoadedLibraries", kStampAndValue,
       [](Report& r) {
         return r.setLoadedLibraries({"liba.so", "libb.so"});
       }},
      {"setMaxConsentLevel", kStampAndValue, [](Report& r) { return r.setMaxConsentLevel(40); }},
      {"setCurrentConsentLevel", kStampAndValue,
       [](Report& r) { return r.setCurrentConsentLevel(10); }},
      {"createReportContentProperty", kStampAndValue,
       [](Report& r) { return r.createReportContentProperty("any", Type::STRING, "", {}); }},
      {"createReportFileProperty", kStampAndValue,
       [](Report& r) { return r.createReportFileProperty(kFile, "text/plain", {"log"}); }},
      {"createReportStringProperty", kStampAndValue,
       [](Report& r) { return r.createReportStringProperty("string", {}); }},
      {"createReportIntegerProperty", kStampAndValue,
       [](Report& r) { return r.createReportIntegerProperty("integer", {}); }},
      {"createReportDoubleProperty", kStampAndValue,
       [](Report& r) { return r.createReportDoubleProperty("double", {}); }},
      {"createReportBooleanProperty", kStampAndValue,
       [](Report& r) { return r.createReportBooleanProperty("boolean", {}); }},
      {"addTagsToContentProperty", kStampAndValue,
       [](Report& r) {
         return r.addTagsToContentProperty("any", {"one", "two"});
       }},
      {"addTagToContentProperty", kStampAndValue,
       [](Report& r) { return r.addTagToContentProperty("any", "three"); }},
      {"addReportStringVariation", kStampAndValue,
       [](Report& r) { return r.addReportStringVariation("string", 5, "text", false); }},
      {"addReportIntegerVariation", kStampAndValue,
       [](Report& r) { return r.addReportIntegerVariation("integer", 5, -1, false); }},
      {"addReportDoubleVariation", kStampAndValue,
       [](Report& r) { return r.addReportDoubleVariation("double", 5, 0.5, false); }},
      {"addReportBooleanVariation", kStampAndValue,
       [](Report& r) { return r.addReportBooleanVariation("boolean", 50, true, false); }},
      {"createReportTemporaryFile", 0,
       [](Report& r) { return temporaryFile(r) ? Report::Result(true) : Report::Result(false); }},
      {"copyFileToFileProperty", kStampAndValue,
       [](Report& r) {
         return r.copyFileToFileProperty(kFile, 5, "/proc/self/exe", "program", false);
       }},
      {"moveReportTemporaryFileToFileProperty", kStampAndValue,
       [](Report& r) {
         return r.moveReportTemporaryFileToFileProperty(kFile, 50, temporaryFile(r), "", false);
       }},
      {"filterFileVariation", kStampAndValue,
       [](Report& r) { return r.filterFileVariation(kFile, 50, withoutSecrets); }},
      {"removeStringVariation", kStampAndValue,
       [](Report& r) { return r.removeStringVariation("string", 5); }},
      {"removeFileVariation", kStampAndValue,
       [](Report& r) { return r.removeFileVariation(kFile, 5); }},
      {"removeReportContentProperty", kStampAndValue,
       [](Report& r) { return r.removeReportContentProperty("any"); }},
      {"purgeReportTemporaryFiles", 0, [](Report& r) { return r.purgeReportTemporaryFiles(); }},
      {"markCreationComplete", kStampAndValue, [](Report& r) { return r.markCreationComplete(); }},
      {"markUserInteractionComplete", kStampAndValue,
       [](Report& r) { return r.markUserInteractionComplete(); }},
      {"markDataCollectionComplete", kStampAndValue,
       [](Report& r) { return r.markDataCollectionComplete(); }},
      {"applyPolicyFilters", kStampAndValue, [](Report& r) { return r.applyPolicyFilters(); }},
      {"markDataPolicyApplied", kStampAndValue,
       [](Report& r) { return r.markDataPolicyApplied(); }},
      {"markUploadComplete", kStampAndValue, [](Report& r) { return r.markUploadComplete(); }},
      {kDescribeAtLength, kLongDescriptions * kStampAndValue, describeAtLength},
  };
  return life;
}

const LifeStep& lifeStep(const std::string& name) {
  const auto& life = reportLife();
  const auto found = std::ranges::find(life, name, &LifeStep::name);
  if (found == life.end()) {
    throw std::invalid_argument(name);
  }
  return *found;
}

}  // namespace KELP::Test
