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
