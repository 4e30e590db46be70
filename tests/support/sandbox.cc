#include "sandbox.h"

#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace zolo::test {

Sandbox::Sandbox() {
  std::string pattern = (fs::temp_directory_path() / "zolo-sandbox-XXXXXX").string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = buffer.data();
  if (const char* old = std::getenv("ZOLO_SYSROOT")) {
    previous_ = old;
    had_previous_ = true;
  }
  setenv("ZOLO_SYSROOT", root_.c_str(), 1);
  for (const char* dir : {"/etc", "/media", "/var/lib/zolo/media/images", "/usr/share/media"})
    MakeDir(dir);
}

Sandbox::~Sandbox() {
  if (had_previous_)
    setenv("ZOLO_SYSROOT", previous_.c_str(), 1);
  else
    unsetenv("ZOLO_SYSROOT");
  // A test that mounted below /media and failed before unmounting must not leave a mount
  // behind, nor have remove_all descend into it.
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(root_ + "/media", ec))
    umount2(entry.path().c_str(), MNT_DETACH);
  fs::remove_all(root_, ec);
}

void Sandbox::WriteFile(const std::string& path, const std::string& content) const {
  fs::path full(Path(path));
  fs::create_directories(full.parent_path());
  std::ofstream out(full, std::ios::binary | std::ios::trunc);
  out << content;
}

void Sandbox::MakeDir(const std::string& path) const {
  fs::create_directories(Path(path));
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::string();
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string SourceDir() {
  const char* dir = std::getenv("ZOLO_SOURCE_DIR");
  return dir ? dir : ".";
}

std::string BinaryDir() {
  const char* dir = std::getenv("ZOLO_BINARY_DIR");
  return dir ? dir : ".";
}

}  // namespace zolo::test
