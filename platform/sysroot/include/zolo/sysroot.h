// Sandbox root for the system's fixed absolute paths.
//
// When the environment variable ZOLO_SYSROOT is set and non-empty, every fixed path
// ("/etc/media.conf", "/media", "/var/lib/zolo/...") is looked up below it; unset, the
// path is returned unchanged. The variable is read on every call so that tests may
// switch roots between cases.
#pragma once

#include <string>

namespace zolo {

// The current sandbox root without a trailing slash, or "" when none is set.
std::string Sysroot();

// `path` below the sandbox root. Relative paths and an unset root return `path` as given.
std::string SysrootPath(const std::string& path);

}  // namespace zolo
