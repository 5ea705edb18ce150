#include "barecalls.h"
#include "peers/contents.h"
#include "peers/peers.h"
#include "sampledata.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

/** The file's own: DELETE, as SQLite chooses. With WAL, two more files come and go with each
 * opening, and closing ends with a checkpoint. Measured with both, creating and opening cost half
 * as much like this, and a durable change a fraction; setters of a report that stays open cost four
 * times as much. */
constexpr const char* kJournal = "";

/** A descriptor of a report's lock file, which is unlocked at the end. */
class ReportLock {
 public:
  ReportLock(const std::string& file, Access access)
      : descriptor_(BareCalls::openFile(file, O_RDWR)) {
    BareCalls::checked(::flock(descriptor_, LOCK_SH | LOCK_NB), "flock");
    BareCalls::checked(::flock(descriptor_, access == Access::Write ? LOCK_EX | LOCK_NB : LOCK_UN),
                       "flock");
  }
  ~ReportLock() { ::close(descriptor_); }
  ReportLock(const ReportLock&) = delete;
  ReportLock& operator=(const ReportLock&) = delete;

 private:
  int descriptor_;
};

class KeyValueTable {
 public:
  KeyValueTable(const std::string& file, Durable durable) : database_(file, kJournal, durable) {}

  void make(const ReportUuid& id) {
    database_.inTransaction([&] {
      database_.execute("CREATE TABLE entry(key TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID");
      for (const auto& [key, value] : newReportMetadata()) {
        set(key, key == "report_id" ? id.toString() : value);
      }
    });
  }

  /** A change, and its time. */
  void change(const std::string& key, const std::string& value) {
    database_.inTransaction([&] {
      set("modified", std::to_string(std::time(nullptr)));
      set(key, value);
    });
  }

  std::string get(const std::string& key) {
    return database_.statement("SELECT value FROM entry WHERE key = ?1").with(key).onlyText();
  }

 private:
  void set(const std::string& key, const std::string& value) {
    database_.statement("INSERT OR REPLACE INTO entry VALUES(?1, ?2)").with(key, value).run();
  }

  SqliteDatabase database_;
};

class SqliteEachReport : public PeerReport {
 public:
  SqliteEachReport(const BareCalls::Report& report, const ReportUuid& id, Access access,
                   Durable durable)
      : directory_(report.directory), lock_(report.lock, access), table_(report.store, durable) {
    require(table_.get("report_id") == id.toString(), "opening a report");
  }

  void setDescription(const std::string& text) override { table_.change("description", text); }
  std::string getDescription() override { return table_.get("description"); }

  void fill(const Contents& contents) override { write(contents); }
  void setConsent(int level) override {
    table_.change("current_consent_level", std::to_string(level));
  }
  std::size_t countVariations() override { return Bench::countVariations(read()); }

  void addVariation(const std::string& name, int level, int value) override {
    Contents contents = read();
    variationOf(contents, name, level).integer = value;
    write(contents);
  }
  int bestVariation(const std::string& name) override {
    return bestValue(read(), name, permitted());
  }
  void addFile(const std::string& name, int level, const fs::path& source) override {
    Contents contents = read();
    const fs::path file = contentFile(directory_, name, level);
    copyContentFile(source, file);
    variationOf(contents, name, level).relative_path = file.string();
    write(contents);
  }
  void applyPolicy() override {
    Contents contents = read();
    const std::vector<std::string> dropped = dropVariations(contents, permitted());
    write(contents);
    removeContentFiles(dropped);
  }

 private:
  int permitted() {
    return std::min(std::stoi(table_.get("current_consent_level")),
                    std::stoi(table_.get("max_consent_level")));
  }
  Contents read() { return readContents(table_.get("report_contents")); }
  void write(const Contents& contents) {
    table_.change("report_contents", writeContents(contents));
  }

  std::string directory_;
  ReportLock lock_;
  KeyValueTable table_;
};

class SqliteEach : public Peer {
 public:
  SqliteEach(fs::path root, Durable durable) : root_(std::move(root)), durable_(durable) {}

  void create(const ReportUuid& id) override {
    const BareCalls::Report report = placeOf(id);
    BareCalls::checked(::mkdir(report.directory.c_str(), 0777), "mkdir");
    const int lock = BareCalls::openFile(report.lock, O_RDWR | O_CREAT | O_EXCL);
    BareCalls::checked(::flock(lock, LOCK_EX), "flock");
    KeyValueTable(report.store, durable_).make(id);
    if (durable_ == Durable::Yes) {
      // SQLite has synced its file, and the directory in which the journal was.
      BareCalls::sync(root_.string());
    }
    ::close(lock);
  }
  std::unique_ptr<PeerReport> open(const ReportUuid& id, Access access) override {
    return std::make_unique<SqliteEachReport>(placeOf(id), id, access, durable_);
  }
  std::size_t list() override {
    std::size_t count = 0;
    BareCalls::forEachEntry(root_.string(), [&](const char* name) {
      ReportUuid id;
      require(id.parse(name), "reading an identifier");
      (void)open(id, Access::Read);
      ++count;
    });
    return count;
  }
  void remove(const ReportUuid& id) override { BareCalls::removeReport(placeOf(id)); }

 private:
  [[nodiscard]] BareCalls::Report placeOf(const ReportUuid& id) const {
    return BareCalls::Report(root_ / id.toString());
  }

  fs::path root_;
  Durable durable_;
};

}  // namespace

std::unique_ptr<Peer> makeSqliteEach(const fs::path& root, Durable durable) {
  return std::make_unique<SqliteEach>(root, durable);
}

}  // namespace KELP::Bench
