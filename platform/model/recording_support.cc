#include "recording_support.h"

#include <algorithm>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace zolo::model {

std::string PathInside(const std::string& base, const std::string& relative) {
  if (base.empty() || relative.empty()) return std::string();
  fs::path root = fs::path(base).lexically_normal();
  fs::path path = (root / fs::path(relative).relative_path()).lexically_normal();
  auto mismatch = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
  bool inside = mismatch.first == root.end() && mismatch.second != path.end() &&
                !mismatch.second->empty() && *mismatch.second != "..";
  return inside ? path.string() : std::string();
}

void RemoveInside(const std::string& base, const std::string& relative, bool recursive) {
  std::string path = PathInside(base, relative);
  if (path.empty()) return;
  std::error_code ignored;
  if (recursive)
    fs::remove_all(path, ignored);
  else
    fs::remove(path, ignored);
}

bool WriteFileAtomically(const std::string& path, const std::string& text) {
  std::error_code error;
  fs::create_directories(fs::path(path).parent_path(), error);
  std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out << text;
    out.close();
    if (!out) {
      fs::remove(temporary, error);
      return false;
    }
  }
  fs::rename(temporary, path, error);
  if (error) fs::remove(temporary, error);
  return !error;
}

}  // namespace zolo::model
