#include "os/log.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <sys/inotify.h>
#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kRootEvents = IN_CREATE;
constexpr std::uint32_t kReportEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE |
                                        IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

bool has(const inotify_event& event, std::uint32_t mask) {
  return (event.mask & mask) != 0;
}

const char* nameOf(const inotify_event& event) {
  return event.len == 0 ? "" : event.name;
}

/** The names under @p root; none when it cannot be read. */
std::vector<std::string> entriesOf(const fs::path& root) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(root, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().native());
  }
  return names;
}

/** Calls what it was made with at its end, however the block is left. */
template <typename Action>
class Finally {
 public:
  explicit Finally(Action action) : action_(std::move(action)) {}
  ~Finally() { action_(); }
  Finally(const Finally&) = delete;
  Finally& operator=(const Finally&) = delete;

 private:
  Action action_;
};

}  // namespace

/**
 * Holds the observer's mutex. When the last one of a thread has released it, the file observers
 * that were given up meanwhile end: each end waits for a thread that may be waiting for the mutex.
 */
class DiagnosticDataObserver::Lock {
 public:
  explicit Lock(DiagnosticDataObserver& observer) : observer_(observer), lock_(observer.mutex_) {
    ++observer_.lockDepth_;
  }
  ~Lock() {
    if (--observer_.lockDepth_ == 0) {
      const auto ending = std::exchange(observer_.endingFileObservers_, {});
      lock_.unlock();  // From here on the observer itself may be gone.
    }
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  DiagnosticDataObserver& observer_;
  std::unique_lock<std::recursive_mutex> lock_;
};

DiagnosticDataObserver::DiagnosticDataObserver(std::shared_ptr<DiagnosticData> data,
                                               Callback callback, void* userData)
    : data_(std::move(data)),
      userData_(userData),
      callback_(std::move(callback)),
      root_(data_->getRootPath().native()) {}

DiagnosticDataObserver::~DiagnosticDataObserver() {
  clearObservers();
}

void DiagnosticDataObserver::start() {
  if (isStarted()) {  // Asked without the mutex, so as not to wait for a callback that is running.
    return;
  }
  const Lock lock(*this);
  if (isStarted()) {
    return;
  }
  const std::uint64_t session = ++session_;
  try {
    fileObserver_ = std::make_unique<OS::FileObserver>();
    watchRoot();
    for (const ReportUuid& uuid : data_->getAllReportUuids()) {
      handlePossibleNewReport(uuid, EventType::REPORT_EXISTING);
      if (session_ != session) {
        return;
      }
    }
  } catch (...) {
    if (session_ == session) {
      clearObservers();
    }
    throw;
  }
}

void DiagnosticDataObserver::stop() {
  clearObservers();
}

void DiagnosticDataObserver::clearObservers() {
  const Lock lock(*this);
  if (!isStarted()) {
    return;
  }
  ++session_;
  if (rootWatch_ >= 1) {
    fileObserver_->rmWatch(rootWatch_);
  }
  for (const auto& [id, wd] : reportWatches_) {
    OS::log(ANDROID_LOG_DEBUG, "Removing subfile watcher %d", wd);
    fileObserver_->rmWatch(wd);
  }
  reportWatches_.clear();
  endingFileObservers_.push_back(std::move(fileObserver_));
  rootWatch_ = 0;
  knownReports_.clear();
  metadataBeingWritten_.clear();
}

void DiagnosticDataObserver::rootFileObserverCallback(inotify_event* event, void* /*userData*/) {
  const Lock lock(*this);
  if (has(*event, IN_Q_OVERFLOW)) {
    lookAgain();
  }
  if (ReportUuid uuid; has(*event, IN_CREATE) && uuid.parse(nameOf(*event))) {
    handlePossibleNewReport(uuid, EventType::REPORT_ADDED);
  }
}

void DiagnosticDataObserver::reportFileObserverCallback(ReportUuid uuid, inotify_event* event,
                                                        void* /*userData*/) {
  const Lock lock(*this);
  if (!isStarted()) {
    return;
  }
  const std::string id = uuid.toString();
  const bool isMetadata =
      std::string_view(nameOf(*event)) == DiagnosticReport::kReportMetadataFilename;

  if (has(*event, IN_DELETE_SELF | IN_MOVE_SELF) || (has(*event, IN_DELETE) && isMetadata)) {
    announceRemoval(uuid);
    return;
  }
  if (!isMetadata) {
    return;
  }
  if (has(*event, IN_MODIFY)) {
    metadataBeingWritten_.insert(id);
  }
  const bool isWritten = has(*event, IN_CREATE | IN_MOVED_TO) ||
                         (has(*event, IN_CLOSE_WRITE) && metadataBeingWritten_.contains(id));
  if (isWritten) {
    metadataBeingWritten_.erase(id);
    announceIfValid(uuid);
  }
}

void DiagnosticDataObserver::handlePossibleNewReport(const ReportUuid& uuid, EventType type) {
  const Lock lock(*this);
  const std::string id = uuid.toString();
  if (!isStarted() || reportWatches_.contains(id)) {
    return;
  }
  watchReport(uuid);
  if (isValidReport(uuid)) {
    knownReports_.insert(id);
    callback_(uuid, type, userData_);
  }
}

bool DiagnosticDataObserver::isValidReport(const ReportUuid& uuid) {
  const Lock lock(*this);
  // Where the file is found, there is also its directory. This is most of what an event costs.
  const std::string metadata = pathOf(uuid) + "/" + DiagnosticReport::kReportMetadataFilename;
  struct stat status {};
  return ::stat(metadata.c_str(), &status) == 0;
}

bool DiagnosticDataObserver::isStarted() const {
  return session_ % 2 != 0;
}

std::string DiagnosticDataObserver::pathOf(const ReportUuid& uuid) const {
  return root_.empty() ? uuid.toString() : root_ + "/" + uuid.toString();
}

/** A handler that does nothing when the observer was stopped since, even if it was started again.
 */
template <typename Handler>
OS::FileObserver::Callback DiagnosticDataObserver::inThisSession(Handler handler) {
  return [this, session = session_.load(), handler](inotify_event* event, void* userData) {
    const Lock lock(*this);
    if (session_ == session) {
      handler(event, userData);
    }
  };
}

void DiagnosticDataObserver::watchRoot() {
  rootWatch_ = fileObserver_->addWatch(root_, kRootEvents,
                                       inThisSession([this](inotify_event* event, void* userData) {
                                         rootFileObserverCallback(event, userData);
                                       }),
                                       nullptr);
  if (const int error = errno; rootWatch_ < 1 && (error == ENOENT || error == ENOTDIR)) {
    OS::logError("Unable to watch %s: %s", root_.c_str(),
                 std::system_category().message(error).c_str());
  }
}

/** Watches what is now the directory of @p uuid, in place of what was. */
void DiagnosticDataObserver::watchReport(const ReportUuid& uuid) {
  const int wd =
      fileObserver_->addWatch(pathOf(uuid), kReportEvents,
                              inThisSession([this, uuid](inotify_event* event, void* userData) {
                                reportFileObserverCallback(uuid, event, userData);
                              }),
                              nullptr);
  const auto [entry, isNew] = reportWatches_.try_emplace(uuid.toString(), wd);
  if (!isNew && wd >= 1 && wd != entry->second) {
    fileObserver_->rmWatch(std::exchange(entry->second, wd));
  }
}

/** Announces that the metadata of @p uuid was written. @return whether it is there. */
bool DiagnosticDataObserver::announceIfValid(const ReportUuid& uuid) {
  if (!isValidReport(uuid)) {
    return false;
  }
  const bool isNew = knownReports_.insert(uuid.toString()).second;
  callback_(uuid, isNew ? EventType::REPORT_ADDED : EventType::REPORT_UPDATED, userData_);
  return true;
}

/** Announces that @p uuid is gone, if it was known. Its watch ends, also when the client throws. */
void DiagnosticDataObserver::announceRemoval(const ReportUuid& uuid) {
  const std::string id = uuid.toString();
  if (knownReports_.erase(id) == 0) {
    return;
  }
  const Finally unwatch([&, session = session_.load()] {
    if (const auto watch = reportWatches_.find(id);
        session_ == session && watch != reportWatches_.end()) {
      fileObserver_->rmWatch(watch->second);
      reportWatches_.erase(watch);
    }
  });
  callback_(uuid, EventType::REPORT_REMOVED, userData_);
}

/** Makes up for events that are lost: compares what is known with what is there, to the end, also
 *  when the client throws. */
void DiagnosticDataObserver::lookAgain() {
  if (!isStarted()) {
    return;
  }
  metadataBeingWritten_.clear();
  std::vector<std::string> names(knownReports_.begin(), knownReports_.end());
  const std::vector<std::string> entries = entriesOf(root_);
  names.insert(names.end(), entries.begin(), entries.end());

  std::unordered_set<ReportUuid> seen;
  std::exception_ptr thrown;
  const std::uint64_t session = session_;
  for (auto name = names.begin(); name != names.end() && session_ == session; ++name) {
    try {
      if (ReportUuid uuid; uuid.parse(name->c_str()) && seen.insert(uuid).second) {
        lookAgainAt(uuid);
      }
    } catch (...) {
      thrown = std::current_exception();
    }
  }
  if (thrown) {
    std::rethrow_exception(thrown);
  }
}

/** The directory of @p uuid may be another than before, under the same name. */
void DiagnosticDataObserver::lookAgainAt(const ReportUuid& uuid) {
  watchReport(uuid);
  if (!announceIfValid(uuid)) {
    announceRemoval(uuid);
  }
}

}  // namespace KELP::Diagnostic
