// Small pieces shared by the model's query code.
#pragma once

#include <string>
#include <vector>

#include "zolo_model/media_model.h"

namespace zolo::model {

// Binds `text` to ?1 or, when there is none and the statement takes a parameter, `number`.
inline void BindKey(SQLite::Statement& query, const std::string* text, int number) {
  if (text != nullptr)
    query.bind(1, *text);
  else if (query.getBindParameterCount() > 0)
    query.bind(1, number);
}

// Moves the first of `found` to `*out` and deletes the rest: `result` when it is not 0,
// -5 when nothing was found, 0 otherwise.
template <class T>
int TakeFirst(std::vector<T*>* found, int result, T** out) {
  if (result == 0 && found->empty()) result = -5;
  if (result == 0) {
    *out = found->front();
    found->erase(found->begin());
  }
  MediaModel::CleanQuery(found);
  return result;
}

}  // namespace zolo::model
