#include "peers/sqlitedatabase.h"

#include "sampledata.h"

namespace KELP::Bench {
namespace {

/** How long a connection waits for those of other processes. */
constexpr int kPatienceMs = 30'000;

}  // namespace

SqliteStatement::SqliteStatement(sqlite3& connection, const char* sql) {
  sqlite3_stmt* prepared = nullptr;
  require(sqlite3_prepare_v2(&connection, sql, -1, &prepared, nullptr) == SQLITE_OK, sql);
  statement_.reset(prepared);
}

void SqliteStatement::run() {
  require(sqlite3_step(statement_.get()) == SQLITE_DONE, sqlite3_sql(statement_.get()));
  end();
}

bool SqliteStatement::row() {
  const int result = sqlite3_step(statement_.get());
  require(result == SQLITE_ROW || result == SQLITE_DONE, sqlite3_sql(statement_.get()));
  if (result == SQLITE_DONE) {
    end();
  }
  return result == SQLITE_ROW;
}

std::string SqliteStatement::text(int column) const {
  const void* const text = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {static_cast<const char*>(text), static_cast<std::size_t>(size)};
}

std::string SqliteStatement::onlyText() {
  require(row(), sqlite3_sql(statement_.get()));
  std::string found = text(0);
  end();
  return found;
}

int SqliteStatement::onlyInteger() {
  require(row(), sqlite3_sql(statement_.get()));
  const int found = sqlite3_column_int(statement_.get(), 0);
  end();
  return found;
}

void SqliteStatement::bind(int index, const std::string& text) {
  require(sqlite3_bind_text(statement_.get(), index, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC) == SQLITE_OK,
          "sqlite3_bind_text");
}

void SqliteStatement::bind(int index, int number) {
  require(sqlite3_bind_int(statement_.get(), index, number) == SQLITE_OK, "sqlite3_bind_int");
}

SqliteDatabase::SqliteDatabase(const std::filesystem::path& file, const std::string& journal,
                               Durable durable) {
  sqlite3* connection = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &connection,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  connection_.reset(connection);
  require(result == SQLITE_OK, "sqlite3_open_v2");
  sqlite3_busy_timeout(connection, kPatienceMs);
  if (!journal.empty()) {
    execute(("PRAGMA journal_mode=" + journal).c_str());
  }
  execute(durable == Durable::Yes ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
}

void SqliteDatabase::execute(const char* sql) {
  require(sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

SqliteStatement& SqliteDatabase::statement(const char* sql) {
  const auto known = statements_.find(sql);
  if (known != statements_.end()) {
    return known->second;
  }
  return statements_.try_emplace(sql, *connection_, sql).first->second;
}

}  // namespace KELP::Bench
