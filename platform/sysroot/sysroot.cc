#include "zolo/sysroot.h"

#include <cstdlib>

namespace zolo {

std::string Sysroot() {
  const char* root = std::getenv("ZOLO_SYSROOT");
  if (root == nullptr || *root == '\0') return std::string();
  std::string result(root);
  while (result.size() > 1 && result.back() == '/') result.pop_back();
  if (result == "/") return std::string();
  return result;
}

std::string SysrootPath(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  std::string root = Sysroot();
  if (root.empty()) return path;
  return root + path;
}

}  // namespace zolo
