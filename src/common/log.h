// Internal logging helper: every line of the library goes through liboviklog with
// module 40 and the source name of the file that logs (declare `kLogSource` in it).
#pragma once

#include <oviklog.h>

namespace zolo {
inline constexpr int kLogModule = 40;
}  // namespace zolo

// ZLOG(level, format, ...) logs from the enclosing function.
#define ZLOG(level, ...) \
  OVIK_LOG_write_newline(::zolo::kLogModule, (level), kLogSource, __LINE__, __func__, __VA_ARGS__)

// ZLOG_AS(function, level, format, ...) logs under an explicit function name, for helpers
// that report on behalf of the exported function that called them.
#define ZLOG_AS(function, level, ...) \
  OVIK_LOG_write_newline(::zolo::kLogModule, (level), kLogSource, __LINE__, (function), __VA_ARGS__)
