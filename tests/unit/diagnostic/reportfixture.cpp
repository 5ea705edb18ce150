#include "unit/diagnostic/reportfixture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace KELP::Test {

Diagnostic::ReportUuid uuid(const char* text) {
  Diagnostic::ReportUuid id;
  if (!id.parse(text)) {
    throw std::invalid_argument(text);
  }
  return id;
}

ReportTest::ReportTest() {
  // Tests that give up their rights must still be able to reach the reports.
  std::filesystem::permissions(directory_.path(), static_cast<std::filesystem::perms>(0755));
}

ReportTest::ReportPtr ReportTest::create(const Diagnostic::ReportUuid& id) const {
  return repository_.createReport(id, origin_.appId, origin_.buildId, origin_.userId,
                                  origin_.deviceId, origin_.sessionId);
}

ReportTest::ReportPtr ReportTest::open() const {
  return repository_.openReport(id_);
}

ReportTest::Report::Result ReportTest::createOn(Report& report) const {
  return report._create(root_, id_, origin_.appId, origin_.buildId, origin_.userId,
                        origin_.deviceId, origin_.sessionId);
}

std::vector<StoreRecord> ReportTest::recordsSince(std::size_t before) const {
  std::vector<StoreRecord> records = readRecords(metadataFile());
  records.erase(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(before));
  return records;
}

bool ReportTest::lockIsFree() const {
  const int descriptor = ::open(lockFile().c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) {
    throw std::system_error(errno, std::system_category(), lockFile().string());
  }
  const bool free = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
  ::close(descriptor);
  return free;
}

}  // namespace KELP::Test
