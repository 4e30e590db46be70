// Shared pieces of the recording model: column conversions, paging, and file helpers.
// Every path a row names is relative to a base folder, and nothing outside that folder is
// ever removed or written.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zolo_model/recording_db.h"

namespace zolo::model {

inline Database* RecordingDatabase() {
  return RecordingDb::Instance()->database();
}

// Times and sizes are stored as SQLite's signed 64-bit integers.
inline uint64_t U64(const SQLite::Column& column) {
  return static_cast<uint64_t>(column.getInt64());
}
inline uint32_t U32(const SQLite::Column& column) {
  return static_cast<uint32_t>(column.getInt64());
}
inline int64_t S64(uint64_t value) {
  return static_cast<int64_t>(value);
}

// LIMIT and OFFSET of page `page` of `count` rows; a count of 0 means no limit.
inline int64_t Limit(unsigned count) {
  return count == 0 ? -1 : static_cast<int64_t>(count);
}
inline int64_t Offset(unsigned page, unsigned count) {
  return static_cast<int64_t>(page) * count;
}

// Runs `sql` with `values` bound and makes one object per row with `read`; `then(db, rows)`
// runs on the rows before the lock is released. The rows are appended to `out` only when
// everything succeeded. 0, -1, -3 for a null `out`.
template <class T, class Then, class... Values>
int SelectRows(T* (*read)(SQLite::Statement&), Then then, std::vector<T*>* out, const char* sql,
               const Values&... values) {
  if (out == nullptr) return -3;
  std::vector<std::unique_ptr<T>> rows;
  int result = WithDatabase(RecordingDatabase(), [&](Database& db) {
    SQLite::Statement& query = Bound(db, sql, values...);
    while (query.executeStep()) rows.emplace_back(read(query));
    query.reset();
    then(db, rows);
    return 0;
  });
  if (result < 0) return result;
  out->reserve(out->size() + rows.size());
  for (auto& row : rows) out->push_back(row.release());
  return 0;
}

// The first row of SelectRows as `*out`: 0, -5 when there is none, -1, -3.
template <class T, class Then, class... Values>
int SelectFirstRow(T* (*read)(SQLite::Statement&), Then then, T** out, const char* sql,
                   const Values&... values) {
  if (out == nullptr) return -3;
  std::vector<T*> found;
  int result = SelectRows(read, then, &found, sql, values...);
  if (result < 0) return result;
  if (found.empty()) return -5;
  *out = found.front();
  for (size_t i = 1; i < found.size(); ++i) delete found[i];
  return 0;
}

// A `then` for SelectRows that does nothing more.
struct NothingMore {
  template <class Rows>
  void operator()(Database&, Rows&) const {}
};

// The number that `sql` (a count query) gives with `values` bound; -1 on a database error.
template <class... Values>
int CountRows(const char* sql, const Values&... values) {
  return WithDatabase(RecordingDatabase(), [&](Database& db) {
    SQLite::Statement& query = Bound(db, sql, values...);
    int count = query.executeStep() ? query.getColumn(0).getInt() : 0;
    query.reset();
    return count;
  });
}

// `base` + "/" + `relative`, normalised; "" when it would leave `base` or be `base` itself.
std::string PathInside(const std::string& base, const std::string& relative);
// Removes the file or (with `recursive`) the folder `relative` below `base`. Missing
// paths and paths leaving `base` are ignored.
void RemoveInside(const std::string& base, const std::string& relative, bool recursive);
// Writes `text` to `path` through a temporary file renamed over it, making the folder.
// true on success.
bool WriteFileAtomically(const std::string& path, const std::string& text);

}  // namespace zolo::model
