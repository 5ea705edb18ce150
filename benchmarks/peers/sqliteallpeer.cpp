#include "peers/contents.h"
#include "peers/peers.h"
#include "sampledata.h"

#include <ctime>
#include <utility>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

/** What is recommended where several processes read and write: who reads does not wait for who
 *  writes, and a durable transaction is one sync. */
constexpr const char* kJournal = "WAL";

constexpr const char* kSchema = R"(
  CREATE TABLE IF NOT EXISTS report(
    report_id TEXT PRIMARY KEY, app_id INTEGER, build_id INTEGER, user_id INTEGER, device_id TEXT,
    session_id TEXT, report_version INTEGER, created INTEGER, modified INTEGER,
    current_consent_level INTEGER, max_consent_level INTEGER, report_creation_complete INTEGER,
    user_interaction_complete INTEGER, data_collection_complete INTEGER,
    data_policy_applied INTEGER, upload_complete INTEGER, description TEXT) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS property(
    report_id TEXT, name TEXT, type INTEGER, media_type TEXT, tags TEXT,
    PRIMARY KEY(report_id, name)) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS variation(
    report_id TEXT, name TEXT, level INTEGER, value INTEGER, path TEXT,
    PRIMARY KEY(report_id, name, level)) WITHOUT ROWID;
)";

constexpr std::size_t kMetadataColumns = 16;

constexpr const char* kFindBest = R"(
  SELECT value FROM variation
  WHERE report_id = ?1 AND name = ?2 AND level BETWEEN 0 AND
    (SELECT min(current_consent_level, max_consent_level) FROM report WHERE report_id = ?1)
  ORDER BY level DESC LIMIT 1
)";

constexpr const char* kDropAbovePermitted = R"(
  DELETE FROM variation
  WHERE report_id = ?1 AND level >
    (SELECT min(current_consent_level, max_consent_level) FROM report WHERE report_id = ?1)
  RETURNING path
)";

int now() {
  return static_cast<int>(std::time(nullptr));
}

/** A report is what the tables say of its identifier. Nothing is held: each change is a transaction
 *  of its own. */
class SqliteAllReport : public PeerReport {
 public:
  SqliteAllReport(SqliteDatabase& database, fs::path directory, const ReportUuid& id)
      : database_(database), directory_(std::move(directory)), id_(id.toString()) {
    SqliteStatement& report =
        database_.statement("SELECT * FROM report WHERE report_id = ?1").with(id_);
    require(report.row(), "opening a report");
    for (std::size_t i = 0; i < kMetadataColumns; ++i) {
      metadata_.push_back(report.text(static_cast<int>(i)));
    }
    report.end();
  }

  void setDescription(const std::string& text) override {
    database_.statement("UPDATE report SET modified = ?2, description = ?3 WHERE report_id = ?1")
        .with(id_, now(), text)
        .run();
  }
  std::string getDescription() override {
    return database_.statement("SELECT description FROM report WHERE report_id = ?1")
        .with(id_)
        .onlyText();
  }

  void fill(const Contents& contents) override {
    database_.inTransaction([&] {
      database_.statement("DELETE FROM variation WHERE report_id = ?1").with(id_).run();
      database_.statement("DELETE FROM property WHERE report_id = ?1").with(id_).run();
      for (const auto& property : contents) {
        const std::string tags = property.tags.empty() ? "" : *property.tags.begin();
        database_.statement("INSERT INTO property VALUES(?1, ?2, ?3, ?4, ?5)")
            .with(id_, property.stable_id, static_cast<int>(property.property_type),
                  property.media_type, tags)
            .run();
        for (const auto& variation : property.variations) {
          setVariation(property.stable_id, variation.sensitivity_level, variation.integer,
                       variation.relative_path);
        }
      }
    });
  }
  void setConsent(int level) override {
    database_.statement("UPDATE report SET current_consent_level = ?2 WHERE report_id = ?1")
        .with(id_, level)
        .run();
  }
  std::size_t countVariations() override {
    return static_cast<std::size_t>(
        database_.statement("SELECT count(*) FROM variation WHERE report_id = ?1")
            .with(id_)
            .onlyInteger());
  }

  void addVariation(const std::string& name, int level, int value) override {
    changeVariation(name, level, value, "");
  }
  int bestVariation(const std::string& name) override {
    return database_.statement(kFindBest).with(id_, name).onlyInteger();
  }
  void addFile(const std::string& name, int level, const fs::path& source) override {
    const fs::path file = contentFile(directory_, name, level);
    copyContentFile(source, file);
    changeVariation(name, level, 0, file.string());
  }
  void applyPolicy() override {
    std::vector<std::string> dropped;
    database_.inTransaction([&] {
      SqliteStatement& removed = database_.statement(kDropAbovePermitted).with(id_);
      while (removed.row()) {
        if (std::string path = removed.text(0); !path.empty()) {
          dropped.push_back(std::move(path));
        }
      }
      touch();
    });
    removeContentFiles(dropped);
  }

 private:
  void touch() {
    database_.statement("UPDATE report SET modified = ?2 WHERE report_id = ?1")
        .with(id_, now())
        .run();
  }
  void setVariation(const std::string& name, int level, int value, const std::string& path) {
    database_.statement("INSERT OR REPLACE INTO variation VALUES(?1, ?2, ?3, ?4, ?5)")
        .with(id_, name, level, value, path)
        .run();
  }
  void changeVariation(const std::string& name, int level, int value, const std::string& path) {
    database_.inTransaction([&] {
      touch();
      setVariation(name, level, value, path);
    });
  }

  SqliteDatabase& database_;
  fs::path directory_;
  std::string id_;
  std::vector<std::string> metadata_;
};

class SqliteAll : public Peer {
 public:
  SqliteAll(const fs::path& root, Durable durable)
      : root_(root), database_(root / "reports.db", kJournal, durable) {
    database_.execute(kSchema);
  }

  void create(const ReportUuid& id) override {
    // The other metadata, in the order of the columns; which are as many and as long each time.
    const auto& values = newReportMetadata();
    const std::string name = id.toString();
    const auto value = [&](std::size_t i) -> const std::string& { return values[i].second; };
    database_
        .statement(
            "INSERT INTO report VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, "
            "?13, ?14, ?15, ?16, NULL)")
        .with(name, value(1), value(2), value(3), value(4), value(5), value(6), value(7), value(8),
              value(9), value(10), value(11), value(12), value(13), value(14), value(15))
        .run();
  }
  std::unique_ptr<PeerReport> open(const ReportUuid& id, Access /*access*/) override {
    return std::make_unique<SqliteAllReport>(database_, root_ / id.toString(), id);
  }
  std::size_t list() override {
    std::vector<ReportUuid> ids;
    SqliteStatement& found = database_.statement("SELECT report_id FROM report").with();
    while (found.row()) {
      require(ids.emplace_back().parse(found.text(0).c_str()), "reading an identifier");
    }
    return ids.size();
  }
  void remove(const ReportUuid& id) override {
    const std::string name = id.toString();
    database_.inTransaction([&] {
      for (const char* const sql : {"DELETE FROM variation WHERE report_id = ?1",
                                    "DELETE FROM property WHERE report_id = ?1",
                                    "DELETE FROM report WHERE report_id = ?1"}) {
        database_.statement(sql).with(name).run();
      }
    });
    fs::remove_all(root_ / name);
  }

 private:
  fs::path root_;
  SqliteDatabase database_;
};

}  // namespace

std::unique_ptr<Peer> makeSqliteAll(const fs::path& root, Durable durable) {
  return std::make_unique<SqliteAll>(root, durable);
}

}  // namespace KELP::Bench
