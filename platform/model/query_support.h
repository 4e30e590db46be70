// Small pieces shared by the model's query code.
#pragma once

#include <string>
#include <vector>

#include "zolo_model/media_model.h"

namespace zolo::model {

// QueryRows with `*text` bound to ?1, or `number` when `text` is null (nothing is bound
// when the query takes no parameter).
template <class T, class Read>
int QueryRowsByKey(std::vector<T*>* out, const std::string& sql, Read read, const std::string* text,
                   int number) {
  return text != nullptr ? QueryRows(out, sql, read, *text) : QueryRows(out, sql, read, number);
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
