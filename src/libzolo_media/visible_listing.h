// Listings of every visible row of a kind, read in one pass over the rows.
#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

namespace zolo {

// Appends one record per visible row through `visit_all` (the model's row visitor, which
// appends); on a failure nothing is appended and the answer is -5. The records are large, so
// the vector is reserved up front by the size the same listing had last time: regrowing it
// costs more than the query, and so did a COUNT before every listing.
template <class Record, class VisitAll>
int AppendVisible(std::vector<Record>* out, std::atomic<size_t>* last_size, VisitAll visit_all) {
  size_t before = out->size();
  out->reserve(before + last_size->load(std::memory_order_relaxed));
  if (visit_all() != 0) {
    out->resize(before);
    return -5;
  }
  last_size->store(out->size() - before, std::memory_order_relaxed);
  return 0;
}

}  // namespace zolo
