#include "peers/contents.h"
#include "peers/peers.h"
#include "sampledata.h"

#include <diagnostic/diagnosticdata.h>
#include <os/keyvaluestore.h>

#include <optional>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

class LibraryReport : public PeerReport {
 public:
  explicit LibraryReport(std::unique_ptr<Diagnostic::DiagnosticReport> report)
      : report_(std::move(report)) {}

  void setDescription(const std::string& text) override {
    require(report_->setDescription(text).has_value(), "setDescription");
  }
  std::string getDescription() override {
    auto description = report_->getDescription();
    require(description.has_value(), "getDescription");
    return *std::move(description);
  }

  void fill(const Contents& contents) override {
    require(openStore(*report_->getReportDirPath() / "metadata.db")
                ->set("report_contents", writeContents(contents)),
            "filling a report");
  }
  void setConsent(int level) override {
    require(report_->setCurrentConsentLevel(level).has_value(), "setCurrentConsentLevel");
  }
  std::size_t countVariations() override {
    const auto contents = report_->getReportContents();
    require(contents.has_value(), "getReportContents");
    return Bench::countVariations(*contents);
  }

  void addVariation(const std::string& name, int level, int value) override {
    require(report_->addReportIntegerVariation(name, level, value, true).has_value(),
            "addReportIntegerVariation");
  }
  int bestVariation(const std::string& name) override {
    const auto best = report_->getReportIntegerBestVariationValue(name);
    require(best.has_value(), "getReportIntegerBestVariationValue");
    return *best;
  }
  void addFile(const std::string& name, int level, const fs::path& source) override {
    require(report_->copyFileToFileProperty(name, level, source, "", true).has_value(),
            "copyFileToFileProperty");
  }
  void applyPolicy() override {
    require(report_->applyPolicyFilters().has_value(), "applyPolicyFilters");
  }

 private:
  std::unique_ptr<Diagnostic::DiagnosticReport> report_;
};

class Library : public Peer {
 public:
  explicit Library(const fs::path& root) : repository_(root) {}

  void create(const ReportUuid& id) override { (void)createReport(repository_, id); }
  std::unique_ptr<PeerReport> open(const ReportUuid& id, Access access) override {
    auto report = repository_.openReport(id);
    require(report != nullptr, "openReport");
    if (access == Access::Write) {
      require(report->acquireWriteLock(false).has_value(), "acquireWriteLock");
    }
    return std::make_unique<LibraryReport>(std::move(report));
  }
  std::size_t list() override { return repository_.getAllReportUuids().size(); }
  void remove(const ReportUuid& id) override {
    require(repository_.deleteReport(id, false).has_value(), "deleteReport");
  }

 private:
  Diagnostic::DiagnosticData repository_;
};

}  // namespace

std::unique_ptr<Peer> makeLibrary(const fs::path& root) {
  return std::make_unique<Library>(root);
}

}  // namespace KELP::Bench
