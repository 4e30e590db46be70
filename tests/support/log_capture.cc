#include "log_capture.h"

#include <oviklog.h>

namespace zolo::test {

LogCapture::LogCapture() {
  OVIK_LOG_set_capture(&LogCapture::Hook, this);
}

LogCapture::~LogCapture() {
  OVIK_LOG_set_capture(nullptr, nullptr);
}

void LogCapture::Hook(void* user, int module, int level, const char* source, int /*line*/,
                      const char* function, const char* message) {
  auto* self = static_cast<LogCapture*>(user);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->lines_.push_back(LogLine{module, level, source, function, message});
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

bool LogCapture::Has(const std::string& message, int level) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& line : lines_)
    if (line.message == message && (level < 0 || line.level == level)) return true;
  return false;
}

bool LogCapture::HasFragment(const std::string& fragment) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& line : lines_)
    if (line.message.find(fragment) != std::string::npos) return true;
  return false;
}

std::string LogCapture::Dump() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string out;
  for (const auto& line : lines_)
    out += "[" + std::to_string(line.level) + "] " + line.source + " " + line.function + ": " +
           line.message + "\n";
  return out;
}

}  // namespace zolo::test
