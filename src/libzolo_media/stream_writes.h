// Internal: the one way the stream calls change stored streams.
#pragma once

#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <type_traits>
#include <vector>

#include "libzolo_media/media_call.h"

namespace zolo {

// Runs `query`, applies `change` to each stream found and writes back those it changed
// (`change` returns void, or false to leave a stream untouched). Each written stream is
// announced with "change_media_data" when `announce`; a write the database refuses is not.
// 0; -5 when the query fails; -1 when any write failed (the others are still made).
template <class Query, class Change>
int UpdateStreams(Query query, Change change, bool announce) {
  std::vector<Stream*> streams;
  if (query(&streams) < 0) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  int result = 0;
  try {
    for (Stream* stream : streams) {
      if constexpr (std::is_same_v<decltype(change(stream)), bool>) {
        if (!change(stream)) continue;
      } else {
        change(stream);
      }
      if (Stream::Update(stream) < 0) {
        result = -1;
        continue;
      }
      if (announce) NotifyMediaDataChange(ChangeType::kChanged, DataKind::kStream, stream->id());
    }
  } catch (...) {
    MediaModel::CleanQuery(&streams);
    throw;
  }
  MediaModel::CleanQuery(&streams);
  return result;
}

// True when `text` is valid UTF-8 (the bus carries nothing else).
bool IsValidUtf8(const char* text);

}  // namespace zolo
