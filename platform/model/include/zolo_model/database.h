// One SQLite connection shared by the model classes of a database file.
//
// The connection runs in WAL mode with foreign keys on and a busy timeout, so several
// threads (serialised by the connection lock) and several processes can use the file.
// Statements are prepared once per SQL text and reused.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace zolo::model {

class Database {
 public:
  // Opens `path`; with `create` the file is created when missing. Throws SQLite::Exception.
  Database(const std::string& path, bool create, int busy_timeout_ms = 2000);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Locks the connection for the calling thread (recursive). Hold it across every use of
  // Prepared() statements and across a transaction.
  std::unique_lock<std::recursive_mutex> Lock() { return std::unique_lock(mutex_); }

  // The cached statement for `sql`, reset and with its bindings cleared. The caller holds
  // Lock(); the same SQL text must not be used again while a previous use is still
  // stepping (nested use of one text would clobber it).
  SQLite::Statement& Prepared(const std::string& sql);

  // Runs one or more SQL statements with no bound parameters (scripts, DDL).
  void ExecScript(const std::string& sql);

  SQLite::Database& raw() { return db_; }
  int busy_timeout_ms() const { return busy_timeout_ms_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int busy_timeout_ms_;
  SQLite::Database db_;
  std::recursive_mutex mutex_;
  std::unordered_map<std::string, std::unique_ptr<SQLite::Statement>> statements_;
};

// True for the errors worth retrying: the database is busy or a table is locked.
bool IsRecoverable(const SQLite::Exception& e);

// Runs `fn(*database)` with `database` locked and returns its result; -2 when a change broke
// a constraint (a unique name taken, a missing reference); -1 when `database` is null or
// another database error occurred.
template <class Fn>
int WithDatabase(Database* database, Fn fn) {
  if (database == nullptr) return -1;
  try {
    auto lock = database->Lock();
    return fn(*database);
  } catch (const SQLite::Exception& e) {
    return (e.getErrorCode() & 0xff) == SQLITE_CONSTRAINT ? -2 : -1;
  } catch (const std::exception&) {
    return -1;
  }
}

// The prepared statement for `sql` with `values` bound to ?1, ?2... in order.
template <class... Values>
SQLite::Statement& Bound(Database& database, const char* sql, const Values&... values) {
  SQLite::Statement& statement = database.Prepared(sql);
  int index = 0;
  (statement.bind(++index, values), ...);
  return statement;
}

// Runs a change meant for exactly one row with `values` bound in order: 0 when one row
// changed, -5 when none did, -1 on a database error.
template <class... Values>
int ChangeOneRowOf(Database* database, const char* sql, const Values&... values) {
  return WithDatabase(database,
                      [&](Database& db) { return Bound(db, sql, values...).exec() == 1 ? 0 : -5; });
}

// Runs an INSERT with `values` bound in order and stores the new row's id in `*id`. 0; -2
// when a constraint refused the row; -1 on a database error.
template <class... Values>
int InsertRowOf(Database* database, int* id, const char* sql, const Values&... values) {
  return WithDatabase(database, [&](Database& db) {
    Bound(db, sql, values...).exec();
    *id = static_cast<int>(db.raw().getLastInsertRowid());
    return 0;
  });
}

}  // namespace zolo::model
