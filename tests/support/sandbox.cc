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
  InstallMixerFiles();
}

void Sandbox::InstallMixerFiles() const {
  static const char* const kPictures[] = {
      "/var/lib/zolo/media/assets/background/black.png",
      "/var/lib/zolo/media/assets/background/grey.png",
      "/var/lib/zolo/media/assets/background/blue.png",
      "/var/lib/zolo/media/assets/foreground/intermission_1.png",
      "/var/lib/zolo/media/assets/foreground/intermission_2.png",
      "/var/lib/zolo/media/assets/foreground/intermission_3.png",
      "/var/lib/zolo/media/assets/overlay/logo.png",
      "/usr/share/media/overlay/recording_indicator.png",
      "/usr/share/media/overlay/clock.png"};
  for (const char* picture : kPictures) WriteFile(picture, TinyPng());
  WriteFile("/var/lib/zolo/media/assets/overlay/logo.svg",
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"64\" height=\"64\">"
            "<circle cx=\"32\" cy=\"32\" r=\"30\" fill=\"#e03030\"/></svg>\n");
  MakeDir("/var/lib/zolo/media/images/layout");
  fs::path renderer(BinaryDir() + "/tools/gen_layout_image/gen_layout_image");
  std::error_code ec;
  if (fs::exists(renderer, ec))
    fs::create_symlink(fs::absolute(renderer, ec), Path("/usr/share/media/gen_layout_image"), ec);
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

const std::string& TinyPng() {
  static const std::string png(
      "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52\x00\x00\x00\x01"
      "\x00\x00\x00\x01\x08\x06\x00\x00\x00\x1f\x15\xc4\x89\x00\x00\x00\x0d\x49\x44\x41"
      "\x54\x78\x9c\x63\x50\x50\x50\xf8\x0f\x00\x02\x24\x01\x60\xfb\xa0\x5a\x8a\x00\x00"
      "\x00\x00\x49\x45\x4e\x44\xae\x42\x60\x82",
      70);
  return png;
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
