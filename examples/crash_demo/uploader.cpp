#include "contents.h"
#include "openreport.h"
#include "roles.h"
#include "steps.h"

#include <filesystem>
#include <fstream>

namespace CrashDemo {
namespace {

namespace fs = std::filesystem;
using KELP::Diagnostic::DiagnosticReport;

/** Copies the best file of a property, under the property's name. */
void sendFile(const Console& console, const DiagnosticReport& report, const std::string& name,
              const fs::path& outbox) {
  const fs::path stored = require(report.getReportFileBestVariationPath(name), "finding " + name);
  const fs::path sent = outbox / name += stored.extension();
  require(fs::copy_file(stored, sent), "copying " + name);
  console.field(name, Contents::describeFile(sent));
}

/** Sends the best of each property, and says what goes out. */
void send(const Console& console, const DiagnosticReport& report, const fs::path& outbox) {
  std::ofstream values(outbox / "values.txt");
  for (const auto& property : require(report.getReportContents(), "the contents")) {
    const std::string& name = property.stable_id;
    const auto best = report.getReportContentBestVariation(name);
    if (!best) {
      console.field(name, "nothing may go out");
    } else if (property.isFileProperty()) {
      sendFile(console, report, name, outbox);
    } else {
      const std::string value = Contents::valueText(property.property_type, *best);
      values << name << " = " << value << '\n';
      console.field(name, value);
    }
  }
  values.close();
  require(values.good(), "writing the values");
}

}  // namespace

void runUploader(const Console& console, Assignment& assignment) {
  OpenReport report(console, assignment);
  require(report->canUpload(), "being allowed to upload");

  const fs::path outbox = assignment.outbox / assignment.id.toString();
  require(fs::create_directories(outbox), "making " + outbox.string());
  console.say("copies the best of each property to " + outbox.string());
  send(console, *report, outbox);

  require(report->markUploadComplete(), "marking the upload complete");
  console.say("marked the upload complete");
  report.release();
}

}  // namespace CrashDemo
