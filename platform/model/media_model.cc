#include "zolo_model/media_model.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

bool ReadText(const std::string& path, std::string* text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream ss;
  ss << in.rdbuf();
  *text = ss.str();
  return true;
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

MediaModel* MediaModel::Instance() {
  static MediaModel instance;
  return &instance;
}

bool MediaModel::IsConnected() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return database_ != nullptr;
}

zolo::model::Database* MediaModel::database() {
  std::lock_guard<std::mutex> lock(mutex_);
  return database_.get();
}

int MediaModel::Open(const std::string& db, bool create, const std::string& initial_sql) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (database_) return 0;
  bool fresh = create && !Exists(db);
  std::string script;
  if (fresh && !ReadText(initial_sql, &script)) return -1;
  if (!create && !Exists(db)) return -1;
  try {
    auto database = std::make_unique<zolo::model::Database>(db, create);
    if (fresh) {
      auto guard = database->Lock();
      SQLite::Transaction transaction(database->raw());
      database->ExecScript(script);
      transaction.commit();
    }
    // Rejects files that are not databases of ours before any caller relies on them.
    database->raw().exec("SELECT count(*) FROM sqlite_master");
    database_ = std::move(database);
    return 0;
  } catch (const std::exception&) {
    if (fresh) {
      ::unlink(db.c_str());
      ::unlink((db + "-wal").c_str());
      ::unlink((db + "-shm").c_str());
    }
    return -1;
  }
}

int MediaModel::Initialize(const std::string& db, const std::string& initial_sql) {
  return Open(db, true, initial_sql);
}

int MediaModel::Connect(const std::string& db) {
  return Open(db, false, std::string());
}

void MediaModel::Release() {
  std::lock_guard<std::mutex> lock(mutex_);
  database_.reset();
}

int MediaModel::ExecuteFromFile(const std::string& path) {
  std::string script;
  if (!ReadText(path, &script)) return -1;
  zolo::model::Database* database = this->database();
  if (database == nullptr) return -1;
  try {
    auto guard = database->Lock();
    SQLite::Transaction transaction(database->raw());
    database->ExecScript(script);
    transaction.commit();
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

namespace zolo::model {

int MoveRank(const std::string& table, const std::string& scope, int id, int rank, int* stored) {
  // The row leaves the order, the others are renumbered 1..n leaving a gap at `rank`, and
  // the row takes the gap (or the end when `rank` is past it).
  const std::string others = " FROM " + table + " o, " + table + " m WHERE m.id = ?2 AND (" +
                             scope + ") AND o.rank > 0 AND o.enabled = 1 AND o.id <> ?2";
  const std::string leave = "UPDATE " + table + " SET rank = -1 WHERE id = ?2";
  const std::string renumber = "UPDATE " + table +
                               " SET rank = r.n + (?1 >= 1 AND r.n >= ?1) FROM (SELECT o.id, "
                               "row_number() OVER (ORDER BY o.rank, o.id) AS n" +
                               others + ") AS r WHERE " + table + ".id = r.id";
  const std::string place = "UPDATE " + table + " SET rank = MIN(?1, (SELECT count(*)" + others +
                            ") + 1) WHERE id = ?2 AND ?1 >= 1";
  int moved = ChangeRows({leave.c_str(), renumber.c_str(), place.c_str()}, rank, id);
  if (moved <= 0) return moved == 0 ? -5 : moved;
  return QueryInt(stored, "SELECT rank FROM " + table + " WHERE id = ?", id);
}

}  // namespace zolo::model
