#include "barecalls.h"
#include "peers/contents.h"
#include "peers/peers.h"
#include "sampledata.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

/** As large as a store becomes before it is written anew, so that one read takes all of it. */
constexpr std::size_t kReadBuffer = std::size_t{128} << 10;

/**
 * An open report, of which nothing is known but what it was given by this object: what would be
 * read and parsed is only read, and what would be written is as long as the library's own records.
 */
class BareReport : public PeerReport {
 public:
  BareReport(BareCalls::Report report, Access access, std::string& buffer, Durable durable,
             BareCalls::Looks looks)
      : report_(std::move(report)), access_(access), durable_(durable) {
    BareCalls::openReport(report_, buffer, looks);
    if (access_ == Access::Write) {
      lock_ = BareCalls::openFile(report_.lock, O_RDWR);
      BareCalls::checked(::flock(lock_, LOCK_EX | LOCK_NB), "flock");
    }
  }
  ~BareReport() override {
    if (access_ == Access::Write) {
      if (durable_ == Durable::Yes && changed_) {
        BareCalls::sync(report_.store);
      }
      ::close(lock_);
    }
    if (store_ >= 0) {
      ::close(store_);
    }
  }
  BareReport(const BareReport&) = delete;
  BareReport& operator=(const BareReport&) = delete;

  void setDescription(const std::string& text) override {
    static const std::string kChange = recordOf("description", text);
    change(kChange);
  }
  /** What tells that the map in memory is up to date. */
  std::string getDescription() override {
    if (store_ < 0) {
      store_ = BareCalls::openFile(report_.store, O_RDONLY);
    }
    struct stat status {};
    BareCalls::checked(::fstat(store_, &status), "fstat");
    return {};
  }

  void fill(const Contents& contents) override {
    contents_ = contents;
    contentsRecord_ = recordOf("report_contents", writeContents(contents_));
    prepareToDrop();
  }
  void setConsent(int level) override {
    consent_ = level;
    prepareToDrop();
  }
  std::size_t countVariations() override { return Bench::countVariations(contents_); }

  void addVariation(const std::string& /*name*/, int /*level*/, int /*value*/) override {
    change(contentsRecord_);
  }
  int bestVariation(const std::string& /*name*/) override {
    (void)getDescription();
    return kValue;
  }
  void addFile(const std::string& name, int level, const fs::path& source) override {
    const fs::path file = contentFile(report_.directory, name, level);
    copyContentFile(source, file);
    change(contentsRecord_);
    if (added_.insert({name, level}).second) {
      variationOf(contents_, name, level).relative_path = file.string();
      fill(Contents(contents_));
    }
  }
  void applyPolicy() override {
    change(remainingRecord_);
    removeContentFiles(dropped_);
    added_.clear();
    contents_ = remaining_;
  }

 private:
  /** A change is two records: its time, and itself. */
  void change(const std::string& record) {
    static const std::string kTime = recordOf("modified", "1700000000");
    BareCalls::append(report_.store, kTime);
    BareCalls::append(report_.store, record);
    changed_ = true;
  }

  void prepareToDrop() {
    remaining_ = contents_;
    dropped_ = dropVariations(remaining_, consent_);
    remainingRecord_ = recordOf("report_contents", writeContents(remaining_));
  }

  BareCalls::Report report_;
  Access access_;
  Durable durable_;
  bool changed_ = false;
  int lock_ = -1;
  int store_ = -1;
  int consent_ = kHighestLevel;
  Contents contents_;
  Contents remaining_;
  std::set<std::pair<std::string, int>> added_;
  std::vector<std::string> dropped_;
  std::string contentsRecord_;
  std::string remainingRecord_;
};

class Bare : public Peer {
 public:
  Bare(const fs::path& root, Durable durable, BareCalls::Looks looks)
      : root_(root.string()), durable_(durable), looks_(looks) {}

  void create(const ReportUuid& id) override {
    static const std::vector<std::string> kRecords = newReportRecords();
    BareCalls::createReport(placeOf(id), kRecords, durable_);
  }
  std::unique_ptr<PeerReport> open(const ReportUuid& id, Access access) override {
    return std::make_unique<BareReport>(placeOf(id), access, buffer_, durable_, looks_);
  }
  std::size_t list() override { return BareCalls::openAllReports(root_, buffer_, looks_); }
  void remove(const ReportUuid& id) override { BareCalls::removeReport(placeOf(id)); }

 private:
  [[nodiscard]] BareCalls::Report placeOf(const ReportUuid& id) const {
    return BareCalls::Report(root_ + "/" + id.toString());
  }

  std::string root_;
  Durable durable_;
  BareCalls::Looks looks_;
  std::string buffer_ = std::string(kReadBuffer, '\0');
};

}  // namespace

std::unique_ptr<Peer> makeBare(const fs::path& root, Durable durable) {
  return std::make_unique<Bare>(root, durable, BareCalls::Looks::Yes);
}

std::unique_ptr<Peer> makeBareBlind(const fs::path& root) {
  return std::make_unique<Bare>(root, Durable::No, BareCalls::Looks::No);
}

}  // namespace KELP::Bench
