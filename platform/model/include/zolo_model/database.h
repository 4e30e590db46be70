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
#include <vector>

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

// Binds `values` to the parameters ?1, ?2, ... of `statement`, leaving out those past the
// last parameter the statement names.
template <class... Values>
void BindInOrder(SQLite::Statement& statement, const Values&... values) {
  const int count = statement.getBindParameterCount();
  int index = 0;
  ((++index <= count ? statement.bind(index, values) : void()), ...);
}

// The prepared statement for `sql` with `values` bound in order.
template <class... Values>
SQLite::Statement& Bound(Database& database, const std::string& sql, const Values&... values) {
  SQLite::Statement& statement = database.Prepared(sql);
  BindInOrder(statement, values...);
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

// Runs a query with `values` bound in order and calls `visit(statement)` for every row, with
// the database locked: listings read each column once, without an object per row. 0; -1 /
// -2 as WithDatabase.
template <class Visit, class... Values>
int VisitRowsOf(Database* database, const std::string& sql, Visit visit, const Values&... values) {
  return WithDatabase(database, [&](Database& db) {
    SQLite::Statement& statement = Bound(db, sql, values...);
    while (statement.executeStep()) visit(statement);
    return 0;
  });
}

// Runs a query with `values` bound in order and appends `read(statement)`, a new T, for
// every row to `out`: all rows or none. 0; -3 when `out` is null; -1 / -2 as WithDatabase.
template <class T, class Read, class... Values>
int QueryRowsOf(Database* database, std::vector<T*>* out, const std::string& sql, Read read,
                const Values&... values) {
  if (out == nullptr) return -3;
  std::vector<std::unique_ptr<T>> rows;
  int result = WithDatabase(database, [&](Database& db) {
    SQLite::Statement& statement = Bound(db, sql, values...);
    while (statement.executeStep()) rows.emplace_back(read(statement));
    return 0;
  });
  if (result != 0) return result;
  out->reserve(out->size() + rows.size());
  for (auto& row : rows) out->push_back(row.release());
  return 0;
}

// The first row of a query, or of a change with RETURNING, as a new T in `*out`
// (untouched on failure). 0; -5 when there is no row; -3 when `out` is null; -1 / -2.
template <class T, class Read, class... Values>
int QueryRowOf(Database* database, T** out, const std::string& sql, Read read,
               const Values&... values) {
  if (out == nullptr) return -3;
  std::unique_ptr<T> row;
  int result = WithDatabase(database, [&](Database& db) {
    SQLite::Statement& statement = Bound(db, sql, values...);
    if (!statement.executeStep()) return -5;
    row.reset(read(statement));
    while (statement.executeStep()) {  // finishes the statement: no read stays open
    }
    return 0;
  });
  if (result == 0) *out = row.release();
  return result;
}

// The first column of the first row as an integer in `*value` (untouched on failure).
// 0; -5 when there is no row; -3; -1 / -2.
template <class... Values>
int QueryIntOf(Database* database, int* value, const std::string& sql, const Values&... values) {
  if (value == nullptr) return -3;
  int* row = nullptr;
  int result = QueryRowOf(
      database, &row, sql,
      [](SQLite::Statement& statement) { return new int(statement.getColumn(0).getInt()); },
      values...);
  if (result == 0) *value = *row;
  delete row;
  return result;
}

}  // namespace zolo::model
