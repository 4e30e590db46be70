// Collects liboviklog lines while alive, so tests can assert exact messages and levels.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace zolo::test {

struct LogLine {
  int module;
  int level;
  std::string source;
  std::string function;
  std::string message;
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  void Clear();
  // True when a line with exactly this message (and level, when given) was logged.
  bool Has(const std::string& message, int level = -1) const;
  // True when some line's message contains `fragment`.
  bool HasFragment(const std::string& fragment) const;
  // All messages, one per line, for failure output.
  std::string Dump() const;

 private:
  static void Hook(void* user, int module, int level, const char* source, int line,
                   const char* function, const char* message);
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

}  // namespace zolo::test
