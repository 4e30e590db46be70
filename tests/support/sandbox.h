// A temporary sandbox root: a fresh directory that ZOLO_SYSROOT points at while the
// object lives, removed with everything below it afterwards.
#pragma once

#include <string>

namespace zolo::test {

class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  const std::string& root() const { return root_; }
  // `path` (absolute, as the system names it) below the root.
  std::string Path(const std::string& path) const { return root_ + path; }
  // Writes `content` to the system path `path` below the root, making its directories.
  void WriteFile(const std::string& path, const std::string& content) const;
  void MakeDir(const std::string& path) const;
  // Puts the default mixer asset files and, when it was built, the layout renderer where
  // the library looks for them. Done by the constructor.
  void InstallMixerFiles() const;

 private:
  std::string root_;
  std::string previous_;
  bool had_previous_ = false;
};

// Reads a whole file; "" when it cannot be read.
std::string ReadFile(const std::string& path);
// Source tree and build tree of the project, from the test environment.
std::string SourceDir();
std::string BinaryDir();
// A valid 1 x 1 PNG picture.
const std::string& TinyPng();

}  // namespace zolo::test
