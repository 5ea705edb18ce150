#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

// The store's work done by an embedded database: one table of keys and values, a rollback journal,
// no sync. That is the least that it can be asked for; the store's own promises go further.

namespace KELP::Bench {
namespace {

/** One database. Statements are prepared when they are first needed, and kept. */
class Database {
 public:
  explicit Database(const std::filesystem::path& file) {
    sqlite3* connection = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &connection,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    connection_.reset(connection);
    require(result == SQLITE_OK, "sqlite3_open_v2");
    execute("PRAGMA synchronous=OFF");
  }

  void createTable() {
    execute("CREATE TABLE entry(key TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID");
  }

  void set(const std::string& key, const std::string& value) {
    prepareOnce(set_, "INSERT OR REPLACE INTO entry VALUES(?1, ?2)");
    bindText(*set_, 1, key);
    bindText(*set_, 2, value);
    require(sqlite3_step(set_.get()) == SQLITE_DONE, "sqlite3_step");
    sqlite3_reset(set_.get());
  }

  std::string get(const std::string& key) {
    prepareOnce(get_, "SELECT value FROM entry WHERE key = ?1");
    bindText(*get_, 1, key);
    require(sqlite3_step(get_.get()) == SQLITE_ROW, "sqlite3_step");
    std::string value(static_cast<const char*>(sqlite3_column_blob(get_.get(), 0)),
                      static_cast<std::size_t>(sqlite3_column_bytes(get_.get(), 0)));
    sqlite3_reset(get_.get());
    return value;
  }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  static void bindText(sqlite3_stmt& statement, int index, const std::string& text) {
    require(sqlite3_bind_text(&statement, index, text.data(), static_cast<int>(text.size()),
                              SQLITE_STATIC) == SQLITE_OK,
            "sqlite3_bind_text");
  }

  void execute(const char* sql) {
    require(sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
  }

  void prepareOnce(Statement& statement, const char* sql) {
    if (!statement) {
      sqlite3_stmt* prepared = nullptr;
      require(sqlite3_prepare_v2(connection_.get(), sql, -1, &prepared, nullptr) == SQLITE_OK, sql);
      statement.reset(prepared);
    }
  }

  std::unique_ptr<sqlite3, Close> connection_;
  Statement set_;
  Statement get_;
};

void fill(Database& database) {
  database.createTable();
  for (const auto& [key, value] : newReportMetadata()) {
    database.set(key, value);
  }
}

void sqliteSet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  Database database(directory / "database");
  fill(database);
  const std::string value(static_cast<std::size_t>(state.range(0)), 'v');
  for (auto _ : state) {
    database.set("modified", value);
  }
}

void sqliteGet(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  Database database(directory / "database");
  fill(database);
  const std::string key = "session_id";
  for (auto _ : state) {
    auto value = database.get(key);
    benchmark::DoNotOptimize(value);
  }
}

// Only the first read opens the file, so it is a part of opening.
void sqliteOpen(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const auto file = directory / "database";
  {
    Database database(file);
    fill(database);
  }
  for (auto _ : state) {
    auto value = Database(file).get("report_id");
    benchmark::DoNotOptimize(value);
  }
}

BENCHMARK(sqliteSet)->Name("store_set/sqlite")->Arg(10)->Arg(1024);
BENCHMARK(sqliteGet)->Name("store_get/sqlite");
BENCHMARK(sqliteOpen)->Name("store_open/sqlite");

}  // namespace
}  // namespace KELP::Bench
