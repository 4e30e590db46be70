#include "zolo_model/database.h"

#include <sqlite3.h>

namespace zolo::model {

namespace {
int OpenFlags(bool create) {
  return SQLite::OPEN_READWRITE | SQLite::OPEN_FULLMUTEX | (create ? SQLite::OPEN_CREATE : 0);
}
}  // namespace

Database::Database(const std::string& path, bool create, int busy_timeout_ms)
    : path_(path),
      busy_timeout_ms_(busy_timeout_ms),
      db_(path, OpenFlags(create), busy_timeout_ms) {
  // A file that is not a database fails here rather than on the first query.
  db_.exec("PRAGMA journal_mode=WAL");
  db_.exec("PRAGMA foreign_keys=ON");
  db_.exec("PRAGMA synchronous=NORMAL");
}

Database::~Database() {
  statements_.clear();
}

SQLite::Statement& Database::Prepared(const std::string& sql) {
  auto it = statements_.find(sql);
  if (it == statements_.end())
    it = statements_.emplace(sql, std::make_unique<SQLite::Statement>(db_, sql)).first;
  SQLite::Statement& statement = *it->second;
  // A statement whose last step failed reports that error again on reset; it is stale news.
  statement.tryReset();
  statement.clearBindings();
  return statement;
}

void Database::ExecScript(const std::string& sql) {
  db_.exec(sql);
}

bool IsRecoverable(const SQLite::Exception& e) {
  int primary = e.getErrorCode() & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

}  // namespace zolo::model
