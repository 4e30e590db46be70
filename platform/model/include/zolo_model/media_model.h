// MediaModel: the facade of the media configuration database.
//
// One process-wide instance owns the connection. Model classes reach it through
// MediaModel::Instance()->database(); a query made while not connected fails with a
// negative result. Paths are used as given (callers apply the sandbox root).
#pragma once

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

// Runs `fn(database)` with the media database locked and returns its result; -2 when a
// change broke a constraint (a unique name taken, a missing reference); -1 when the model is
// not connected or another database error occurred.
template <class Fn>
int WithMediaDatabase(Fn fn) {
  Database* database = MediaModel::Instance()->database();
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

// Runs a change meant for exactly one row with `values` bound in order: 0 when one row
// changed, -5 when none did, -1 on a database error.
template <class... Values>
int ChangeOneRow(const char* sql, const Values&... values) {
  return WithMediaDatabase([&](Database& database) {
    SQLite::Statement& statement = database.Prepared(sql);
    int index = 0;
    (statement.bind(++index, values), ...);
    return statement.exec() == 1 ? 0 : -5;
  });
}

}  // namespace zolo::model
