#include "output.h"

#include <zolo/media.h>

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <iterator>

namespace zmctl {

namespace {

bool LooksLikeInteger(const std::string& text) {
  if (text.empty() || text.size() > 18) return false;
  size_t start = text[0] == '-' ? 1 : 0;
  if (start == text.size()) return false;
  if (text.size() - start > 1 && text[start] == '0') return false;
  return std::all_of(text.begin() + static_cast<long>(start), text.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

cJSON* Value(const std::string& text) {
  if (LooksLikeInteger(text)) return cJSON_CreateNumber(std::strtod(text.c_str(), nullptr));
  return cJSON_CreateString(text.c_str());
}

}  // namespace

void Output::Table(const Row& headers, const std::vector<Row>& rows) const {
  if (json_) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& row : rows) {
      cJSON* object = cJSON_CreateObject();
      for (size_t i = 0; i < headers.size() && i < row.size(); ++i)
        cJSON_AddItemToObject(object, headers[i].c_str(), Value(row[i]));
      cJSON_AddItemToArray(array, object);
    }
    PrintJson(zolo::JsonHolder(array));
    return;
  }
  std::vector<size_t> widths(headers.size());
  for (size_t i = 0; i < headers.size(); ++i) widths[i] = headers[i].size();
  for (const auto& row : rows)
    for (size_t i = 0; i < headers.size() && i < row.size(); ++i)
      widths[i] = std::max(widths[i], row[i].size());
  auto print_row = [&](const Row& row) {
    std::string line;
    for (size_t i = 0; i < headers.size(); ++i) {
      std::string cell = i < row.size() ? row[i] : "";
      line += cell;
      if (i + 1 < headers.size()) line += std::string(widths[i] - cell.size() + 2, ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    std::cout << line << '\n';
  };
  print_row(headers);
  for (const auto& row : rows) print_row(row);
}

void Output::Record(const std::vector<std::pair<std::string, std::string>>& fields) const {
  if (json_) {
    cJSON* object = cJSON_CreateObject();
    for (const auto& [name, value] : fields)
      cJSON_AddItemToObject(object, name.c_str(), Value(value));
    PrintJson(zolo::JsonHolder(object));
    return;
  }
  size_t width = 0;
  for (const auto& field : fields) width = std::max(width, field.first.size());
  for (const auto& [name, value] : fields)
    std::cout << name << ':' << std::string(width - name.size() + 1, ' ') << value << '\n';
}

void Output::PrintJson(zolo::JsonHolder json) {
  char* text = cJSON_Print(json.get());
  if (text != nullptr) std::printf("%s\n", text);
  cJSON_free(text);
}

void Output::Message(const std::string& message) const {
  if (json_) {
    cJSON* object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "result", message.c_str());
    PrintJson(zolo::JsonHolder(object));
    return;
  }
  std::cout << message << '\n';
}

std::string HumanSize(uint64_t bytes) {
  static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(kUnits)) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string LocalTime(int64_t seconds) {
  if (seconds <= 0) return "-";
  time_t time = static_cast<time_t>(seconds);
  struct tm local;
  if (localtime_r(&time, &local) == nullptr) return "-";
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

int Fail(const std::string& what, int code) {
  std::cerr << "zmctl: " << what << " failed: " << code << " (" << zm_strerror(code) << ")\n";
  return 1;
}

}  // namespace zmctl
