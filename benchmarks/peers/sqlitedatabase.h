#pragma once

#include "durable.h"

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>

namespace KELP::Bench {

/** A prepared statement. */
class SqliteStatement {
 public:
  SqliteStatement(sqlite3& connection, const char* sql);

  /** Begins anew with @p values for its parameters, which must live until run() or row() is done.
   */
  template <typename... Values>
  SqliteStatement& with(const Values&... values) {
    sqlite3_reset(statement_.get());
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }

  /** Executes it, and lets go of what it has locked. */
  void run();
  /** Goes to the next row. @return whether there is one; if not, nothing is locked any more. */
  bool row();
  /** The first column of the one row that there must be. Lets go of what it has locked. */
  std::string onlyText();
  int onlyInteger();
  /** Lets go of what it has locked. */
  void end() { sqlite3_reset(statement_.get()); }

  [[nodiscard]] std::string text(int column) const;

 private:
  void bind(int index, const std::string& text);
  void bind(int index, int number);

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/** A connection to a database. Its statements are prepared when they are first used, and kept. */
class SqliteDatabase {
 public:
  /**
   * @param journal the mode to set, such as "WAL"; empty for that of the file, which is DELETE at
   * first.
   * @param durable whether each transaction is synced (synchronous=FULL), or none is (OFF).
   */
  SqliteDatabase(const std::filesystem::path& file, const std::string& journal, Durable durable);

  void execute(const char* sql);
  /** @param sql a literal: its address names the statement. */
  SqliteStatement& statement(const char* sql);

  /** Calls @p changes inside one transaction. */
  template <typename Changes>
  void inTransaction(Changes changes) {
    statement("BEGIN IMMEDIATE").with().run();
    changes();
    statement("COMMIT").with().run();
  }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
  };
  std::unique_ptr<sqlite3, Close> connection_;
  std::unordered_map<const char*, SqliteStatement> statements_;
};

}  // namespace KELP::Bench
