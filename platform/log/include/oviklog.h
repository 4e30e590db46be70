// liboviklog: one formatted line per call, to the system log and optionally to stderr.
//
// The system log is the journal when it runs (structured entries: MESSAGE, PRIORITY,
// SYSLOG_IDENTIFIER, CODE_FILE, CODE_LINE, CODE_FUNC, OVIK_MODULE, OVIK_LEVEL), else
// syslog; a line the journal refuses goes to syslog instead.
//
// Environment (read once, re-read by OVIK_LOG_reload_env):
//   OVIK_LOG_LEVEL   highest level written (default 2); 0 failure .. 4 trace
//   OVIK_LOG_STDERR  non-empty and not "0": also write each line to stderr
//   OVIK_LOG_SYSLOG  "0": write nothing to the system log
//   OVIK_LOG_JOURNAL "0": plain syslog lines even when the journal runs
// A capture hook, when installed, receives every line whatever the level threshold.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
  OVIK_LOG_LEVEL_FAILURE = 0,
  OVIK_LOG_LEVEL_WARNING = 1,
  OVIK_LOG_LEVEL_NOTABLE = 2,
  OVIK_LOG_LEVEL_DETAIL = 3,
  OVIK_LOG_LEVEL_TRACE = 4,
};

// Writes one line. `source` is the caller's source name, `function` its function name;
// `format` is printf-style. Thread-safe.
void OVIK_LOG_write_newline(int module, int level, const char* source, int line,
                            const char* function, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

// Receives each line after formatting; `message` is valid only during the call.
typedef void (*OVIK_LOG_capture_fn)(void* user, int module, int level, const char* source, int line,
                                    const char* function, const char* message);

// Installs (or, with a null `fn`, removes) the capture hook. Thread-safe; a line being
// delivered when the hook changes may still reach the old hook.
void OVIK_LOG_set_capture(OVIK_LOG_capture_fn fn, void* user);

// Re-reads the environment variables above.
void OVIK_LOG_reload_env(void);

// Where system-log lines go, for tests and embedders: `journal` receives the entry's
// fields as "NAME=value" texts and returns 0 or a negative errno (then the line goes to
// `syslog_line` instead); `syslog_line` receives the priority and the plain line. Null
// restores the real journal / syslog. A journal writer counts as a running journal.
typedef int (*OVIK_LOG_journal_fn)(const char* const* fields, int count);
typedef void (*OVIK_LOG_syslog_fn)(int priority, const char* line);
void OVIK_LOG_set_writers(OVIK_LOG_journal_fn journal, OVIK_LOG_syslog_fn syslog_line);

#ifdef __cplusplus
}
#endif
