// MediaModel: the facade of the media configuration database.
//
// One process-wide instance owns the connection. Model classes reach it through
// MediaModel::Instance()->database(); a query made while not connected fails with a
// negative result. Paths are used as given (callers apply the sandbox root).
#pragma once

#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "zolo_model/database.h"

class MediaModel {
 public:
  static MediaModel* Instance();

  bool IsConnected() const;
  // Opens `db`; when the file does not exist yet it is created and filled by running the
  // SQL file `initial_sql`. Returns 0, or -1 (missing SQL file, bad SQL, unusable file;
  // a database that failed to fill is removed again).
  int Initialize(const std::string& db, const std::string& initial_sql);
  // Opens an existing database file. Returns 0, or -1 when it is missing or not a database.
  int Connect(const std::string& db);
  // Closes the connection; later queries fail until the next Connect/Initialize.
  void Release();
  // Runs every statement of an SQL file in one transaction. 0, or -1.
  int ExecuteFromFile(const std::string& path);
  // Runs one SQL text in a transaction, retrying while the database is busy (defined by
  // the media library). 0, or -1.
  int Execute(const std::string& sql);

  // The open connection, or null when not connected.
  zolo::model::Database* database();

  // Deletes every object of a query result and empties the vector.
  template <class T>
  static void CleanQuery(std::vector<T*>* objects) {
    if (objects == nullptr) return;
    for (T* object : *objects) delete object;
    objects->clear();
  }
  template <class T>
  static void CleanQuery(std::vector<T*>& objects) {
    CleanQuery(&objects);
  }

 private:
  MediaModel() = default;
  int Open(const std::string& db, bool create, const std::string& initial_sql);

  mutable std::mutex mutex_;
  std::unique_ptr<zolo::model::Database> database_;
};

namespace zolo::model {

// WithDatabase and ChangeOneRowOf on the media database.
template <class Fn>
int WithMediaDatabase(Fn fn) {
  return WithDatabase(MediaModel::Instance()->database(), fn);
}

template <class... Values>
int ChangeOneRow(const char* sql, const Values&... values) {
  return ChangeOneRowOf(MediaModel::Instance()->database(), sql, values...);
}

}  // namespace zolo::model

// Row helpers shared by the model families.
namespace zolo::model {

// Binds `values` to the parameters ?1, ?2, ... of `statement`, leaving out those past the
// last parameter the statement names.
template <class... Values>
void BindInOrder(SQLite::Statement& statement, const Values&... values) {
  const int count = statement.getBindParameterCount();
  int index = 0;
  ((++index <= count ? statement.bind(index, values) : void()), ...);
}

// Runs the changes `sqls` in order in one transaction (all or none), each with `values`
// bound to the parameters it names. Returns the number of rows the first one changed, or
// -2 / -1 as WithMediaDatabase.
template <class... Values>
int ChangeRows(std::initializer_list<const char*> sqls, const Values&... values) {
  return WithMediaDatabase([&](Database& database) {
    SQLite::Transaction transaction(database.raw(), SQLite::TransactionBehavior::IMMEDIATE);
    int first = -1;
    for (const char* sql : sqls) {
      SQLite::Statement& statement = database.Prepared(sql);
      BindInOrder(statement, values...);
      int changed = statement.exec();
      if (first < 0) first = changed;
    }
    transaction.commit();
    return first < 0 ? 0 : first;
  });
}

// Runs a query with `values` bound in order and appends `read(statement)`, a new T, for
// every row to `out`: all rows or none. 0; -3 when `out` is null; -1 / -2 as
// WithMediaDatabase.
template <class T, class Read, class... Values>
int QueryRows(std::vector<T*>* out, const std::string& sql, Read read, const Values&... values) {
  if (out == nullptr) return -3;
  std::vector<std::unique_ptr<T>> rows;
  int result = WithMediaDatabase([&](Database& database) {
    SQLite::Statement& statement = database.Prepared(sql);
    BindInOrder(statement, values...);
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
int QueryRow(T** out, const std::string& sql, Read read, const Values&... values) {
  if (out == nullptr) return -3;
  std::unique_ptr<T> row;
  int result = WithMediaDatabase([&](Database& database) {
    SQLite::Statement& statement = database.Prepared(sql);
    BindInOrder(statement, values...);
    if (!statement.executeStep()) return -5;
    row.reset(read(statement));
    while (statement.executeStep()) {  // finishes the statement: no read stays open
    }
    return 0;
  });
  if (result == 0) *out = row.release();
  return result;
}

// The first column of the first row of a query (or RETURNING change) as an integer in
// `*value` (untouched on failure). 0; -5 when there is no row; -3; -1 / -2.
template <class... Values>
int QueryInt(int* value, const std::string& sql, const Values&... values) {
  if (value == nullptr) return -3;
  int* row = nullptr;
  int result = QueryRow(
      &row, sql,
      [](SQLite::Statement& statement) { return new int(statement.getColumn(0).getInt()); },
      values...);
  if (result == 0) *value = *row;
  delete row;
  return result;
}

// Moves row `id` of `table` (a ranked slot pool with columns id, rank and enabled) to
// position `rank` (1 first) among the rows `o` of its order, those that match `scope` for
// the moved row `m` (e.g. "o.type = m.type"), and renumbers them 1..n; a rank below 1
// takes it out of the order (rank -1). All or nothing. The stored rank goes to `*stored`.
// 0; -5 when there is no such row; -1 / -2 as WithMediaDatabase.
int MoveRank(const std::string& table, const std::string& scope, int id, int rank, int* stored);

// The related object `id` of a model object, read once by `query(T**)` into `cache`; null
// when `id` is below 1 or it cannot be read (the next call tries again).
template <class T, class Query>
T* LoadOnce(int id, std::unique_ptr<T>* cache, Query query) {
  if (id < 1) return nullptr;
  if (!*cache) {
    T* object = nullptr;
    if (query(&object) == 0) cache->reset(object);
  }
  return cache->get();
}

}  // namespace zolo::model
