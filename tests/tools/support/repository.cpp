#include "tools/support/repository.h"

#include "unit/os/storefile.h"

#include <os/keyvaluestore.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace KELP::Test {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

TemporaryInMemory::TemporaryInMemory() : before_(fs::temp_directory_path()) {
  constexpr const char* kInMemory = "/dev/shm";
  if (::access(kInMemory, W_OK | X_OK) == 0) {
    ::setenv("TMPDIR", kInMemory, 1);
  }
}

TemporaryInMemory::~TemporaryInMemory() {
  ::setenv("TMPDIR", before_.c_str(), 1);
}

Repository::Repository() : root_(directory_ / "reports"), data_(root_) {
  fs::create_directory(root_);
}

std::vector<std::string> Repository::arguments(const std::vector<std::string>& more) const {
  std::vector<std::string> all{"-C", root_.native()};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

std::unique_ptr<DiagnosticReport> Repository::create() const {
  ReportUuid id;
  id.randomize();
  return create(id.toString());
}

std::unique_ptr<DiagnosticReport> Repository::create(const std::string& id) const {
  ReportUuid uuid;
  if (!uuid.parse(id.c_str())) {
    throw std::invalid_argument(id);
  }
  auto report = data_.createReport(uuid, 7, 2, 3, "device", "session");
  if (!report || !report->acquireWriteLock(false)) {
    throw std::runtime_error("no report was made");
  }
  return report;
}

std::vector<std::string> Repository::createMany(std::size_t count) const {
  constexpr long kNewest = 1'700'000'000;
  std::string model;
  {
    const auto report = create();
    report->setProcessName("model");
    model = readFile(directoryOf(*report) / DiagnosticReport::kReportMetadataFilename);
    report->deleteReport();
  }
  std::vector<std::string> ids;
  for (std::size_t at = 0; at < count; ++at) {
    ReportUuid id;
    id.randomize();
    ids.push_back(id.toString());
    const long created = kNewest - static_cast<long>(at);
    const fs::path directory = root_ / ids.back();
    fs::create_directory(directory);
    writeFile(directory / DiagnosticReport::kReportLockFilename, "");
    writeFile(directory / DiagnosticReport::kReportMetadataFilename,
              model + storeRecord({"created", std::to_string(created)}) +
                  storeRecord({"report_id", ids.back()}));
  }
  return ids;
}

fs::path Repository::directoryOf(const DiagnosticReport& report) const {
  return root_ / report.getId().toString();
}

void Repository::writeKey(const std::string& id, const std::string& key,
                          const std::string& value) const {
  OS::KeyValueStore store(root_ / id / DiagnosticReport::kReportMetadataFilename, "",
                          {OS::KVStoreOpenOption::Shared});
  if (!store.set(key, value)) {
    throw std::runtime_error("the key was not written");
  }
}

std::map<std::string, std::string> Repository::snapshot() const {
  std::map<std::string, std::string> all;
  for (const auto& entry : fs::recursive_directory_iterator(root_)) {
    struct stat status {};
    ::lstat(entry.path().c_str(), &status);
    all[entry.path().native()] =
        std::to_string(status.st_mode) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
        std::to_string(status.st_mtim.tv_nsec) + " " +
        (!entry.is_symlink() && entry.is_regular_file() ? readFile(entry.path()) : "");
  }
  return all;
}

}  // namespace KELP::Test
