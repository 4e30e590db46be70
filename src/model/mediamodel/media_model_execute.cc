// MediaModel::Execute: one SQL text in a transaction, retried while the database is busy.
#include <sqlite3.h>
#include <unistd.h>
#include <zolo/export.h>
#include <zolo_model/media_model.h>

#include "common/log.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr int kAttempts = 402;
constexpr useconds_t kRetryPause = 10000;

// Makes a busy database fail at once for the life of the object, so that the retry loop
// below (not SQLite's busy handler) decides how long to wait.
class NoBusyWait {
 public:
  NoBusyWait(SQLite::Database& db, int restore_ms) : db_(db), restore_ms_(restore_ms) {
    sqlite3_busy_timeout(db_.getHandle(), 0);
  }
  ~NoBusyWait() { sqlite3_busy_timeout(db_.getHandle(), restore_ms_); }
  NoBusyWait(const NoBusyWait&) = delete;
  NoBusyWait& operator=(const NoBusyWait&) = delete;

 private:
  SQLite::Database& db_;
  int restore_ms_;
};

}  // namespace

// Exported from the media library, which owns the retry policy of its SQL.
ZM_EXPORT int MediaModel::Execute(const std::string& sql) {
  zolo::model::Database* database = this->database();
  if (database == nullptr) {
    ZLOG(0, "MediaModel::Execute: Exception occurs! (%s)", "database not connected");
    return -1;
  }
  // The connection is locked per attempt only, so other threads' queries run during the
  // pauses between attempts.
  for (int left = kAttempts;;) {
    try {
      auto lock = database->Lock();
      NoBusyWait no_wait(database->raw(), database->busy_timeout_ms());
      SQLite::Transaction transaction(database->raw());
      database->ExecScript(sql);
      transaction.commit();
      return 0;
    } catch (const SQLite::Exception& e) {
      if (!zolo::model::IsRecoverable(e)) {
        ZLOG(0, "MediaModel::Execute: Exception occurs! (%s)", e.what());
        return -1;
      }
      if (--left == 0) {
        ZLOG(1, "MediaModel::Execute: Retry limit exceeded! (%s)", e.what());
        return -1;
      }
      usleep(kRetryPause);
    } catch (const std::exception& e) {
      ZLOG(0, "MediaModel::Execute: Exception occurs! (%s)", e.what());
      return -1;
    }
  }
}
