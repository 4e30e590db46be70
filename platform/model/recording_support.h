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

// The number that `sql` (a count query) gives with `values` bound; -1 on a database error.
template <class... Values>
int CountRows(const char* sql, const Values&... values) {
  int count = 0;
  return QueryIntOf(RecordingDatabase(), &count, sql, values...) == 0 ? count : -1;
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
