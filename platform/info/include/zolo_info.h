// libzolo_info: device information; here the firmware (U-Boot) environment.
#pragma once

#include <string>

// Reads firmware variable `name` from the U-Boot environment described by
// "/etc/fw_env.config" (below the sandbox root; device paths in it are below the root too).
// 0 with `*value` set; -1 for null arguments, a missing or unreadable configuration or
// environment (bad CRC included), -2 when the variable is not set. Thread-safe.
int zi_get_fwprintenv(const char* name, std::string* value);
