// Internal: how an engine reply becomes the library's result code.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>

namespace zolo {

// Engine replies are read whole up to this size; a larger one is refused.
inline constexpr size_t kMaxReplySize = 16u << 20;

// The library code of engine (or bus) code `code` through the result-code table: 0 stays
// 0, codes absent from the table become -1.
int MapResultCode(int code);

// Reads a reply of `length` bytes: its numeric "code" (-1 when missing, not a number, or
// the text is not JSON), mapped. With `parsed`, the parsed reply (or null) is handed over.
int ReadEngineReply(const char* text, size_t length, cJSON** parsed);

}  // namespace zolo
