#include "oviklog.h"

// Entries carry the caller's location, not this file's.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <errno.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

struct Settings {
  int threshold = OVIK_LOG_LEVEL_NOTABLE;
  bool to_stderr = false;
  bool to_syslog = true;
  bool journal = true;  // use the journal when it runs
};

std::mutex g_mutex;  // guards settings, the capture hook and the stderr write
Settings g_settings;
bool g_loaded = false;
OVIK_LOG_capture_fn g_capture = nullptr;
void* g_capture_user = nullptr;
OVIK_LOG_journal_fn g_journal_writer = nullptr;
OVIK_LOG_syslog_fn g_syslog_writer = nullptr;

void LoadSettingsLocked() {
  Settings s;
  if (const char* level = std::getenv("OVIK_LOG_LEVEL"); level != nullptr && *level != '\0')
    s.threshold = std::atoi(level);
  if (const char* err = std::getenv("OVIK_LOG_STDERR"); err != nullptr)
    s.to_stderr = *err != '\0' && std::strcmp(err, "0") != 0;
  if (const char* sys = std::getenv("OVIK_LOG_SYSLOG"); sys != nullptr)
    s.to_syslog = std::strcmp(sys, "0") != 0;
  if (const char* journal = std::getenv("OVIK_LOG_JOURNAL"); journal != nullptr)
    s.journal = std::strcmp(journal, "0") != 0;
  g_settings = s;
  g_loaded = true;
}

int SyslogPriority(int level) {
  static constexpr int kPriority[] = {LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO, LOG_DEBUG};
  if (level < 0) return LOG_ERR;
  if (level > 4) return LOG_DEBUG;
  return kPriority[level];
}

std::string Format(const char* format, va_list args) {
  char stack[512];
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(stack, sizeof stack, format, copy);
  va_end(copy);
  if (n < 0) return std::string();
  if (static_cast<size_t>(n) < sizeof stack) return std::string(stack, static_cast<size_t>(n));
  std::vector<char> heap(static_cast<size_t>(n) + 1);
  std::vsnprintf(heap.data(), heap.size(), format, args);
  return std::string(heap.data(), static_cast<size_t>(n));
}

bool JournalRuns() {
  return g_journal_writer != nullptr || access("/run/systemd/journal/socket", W_OK) == 0;
}

int SendToJournal(const char* const* fields, int count) {
  std::vector<iovec> vector(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i)
    vector[static_cast<size_t>(i)] = iovec{const_cast<char*>(fields[i]), std::strlen(fields[i])};
  return sd_journal_sendv(vector.data(), count);
}

// One structured journal entry; false when the journal refused it.
bool WriteJournal(int module, int level, const char* source, int line, const char* function,
                  const std::string& message) {
  const std::string fields[] = {
      "MESSAGE=" + message,
      "PRIORITY=" + std::to_string(SyslogPriority(level)),
      std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
      std::string("CODE_FILE=") + source,
      "CODE_LINE=" + std::to_string(line),
      std::string("CODE_FUNC=") + function,
      "OVIK_MODULE=" + std::to_string(module),
      "OVIK_LEVEL=" + std::to_string(level),
  };
  const char* texts[sizeof fields / sizeof fields[0]];
  for (size_t i = 0; i < sizeof fields / sizeof fields[0]; ++i) texts[i] = fields[i].c_str();
  int count = static_cast<int>(sizeof texts / sizeof texts[0]);
  return (g_journal_writer ? g_journal_writer(texts, count) : SendToJournal(texts, count)) >= 0;
}

void WriteSyslog(int module, int level, const char* source, int line, const char* function,
                 const std::string& message) {
  if (g_syslog_writer != nullptr) {
    char text[4096];
    std::snprintf(text, sizeof text, "[%d] %s:%d %s: %s", module, source, line, function,
                  message.c_str());
    g_syslog_writer(SyslogPriority(level), text);
    return;
  }
  syslog(SyslogPriority(level), "[%d] %s:%d %s: %s", module, source, line, function,
         message.c_str());
}

}  // namespace

extern "C" void OVIK_LOG_write_newline(int module, int level, const char* source, int line,
                                       const char* function, const char* format, ...) {
  if (format == nullptr) return;
  if (source == nullptr) source = "";
  if (function == nullptr) function = "";
  va_list args;
  va_start(args, format);
  std::string message = Format(format, args);
  va_end(args);

  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_loaded) LoadSettingsLocked();
  if (g_capture != nullptr)
    g_capture(g_capture_user, module, level, source, line, function, message.c_str());
  if (level > g_settings.threshold) return;
  if (g_settings.to_syslog && !(g_settings.journal && JournalRuns() &&
                                WriteJournal(module, level, source, line, function, message)))
    WriteSyslog(module, level, source, line, function, message);
  if (g_settings.to_stderr)
    std::fprintf(stderr, "[%d:%d] %s:%d %s: %s\n", module, level, source, line, function,
                 message.c_str());
}

extern "C" void OVIK_LOG_set_capture(OVIK_LOG_capture_fn fn, void* user) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_capture = fn;
  g_capture_user = user;
}

extern "C" void OVIK_LOG_reload_env(void) {
  std::lock_guard<std::mutex> lock(g_mutex);
  LoadSettingsLocked();
}

extern "C" void OVIK_LOG_set_writers(OVIK_LOG_journal_fn journal, OVIK_LOG_syslog_fn syslog_line) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_journal_writer = journal;
  g_syslog_writer = syslog_line;
}
