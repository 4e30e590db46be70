// Meanings of the library's result codes.
#pragma once

#include <zolo/export.h>

// A short English meaning of result code `code` (0, -1 … -15), or a text saying the code is
// unknown. Never null; static text; any thread.
extern "C" ZM_EXPORT const char* zm_strerror(int code);
