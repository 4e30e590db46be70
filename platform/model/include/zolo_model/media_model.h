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

// QueryRowsOf, QueryRowOf and QueryIntOf on the media database.
template <class T, class Read, class... Values>
int QueryRows(std::vector<T*>* out, const std::string& sql, Read read, const Values&... values) {
  return QueryRowsOf(MediaModel::Instance()->database(), out, sql, read, values...);
}

template <class T, class Read, class... Values>
int QueryRow(T** out, const std::string& sql, Read read, const Values&... values) {
  return QueryRowOf(MediaModel::Instance()->database(), out, sql, read, values...);
}

template <class... Values>
int QueryInt(int* value, const std::string& sql, const Values&... values) {
  return QueryIntOf(MediaModel::Instance()->database(), value, sql, values...);
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
