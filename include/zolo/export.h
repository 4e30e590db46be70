// Marks the declarations that libzolo_media exports; everything else is hidden.
#pragma once

#if defined(__GNUC__)
#define ZM_EXPORT __attribute__((visibility("default")))
#else
#define ZM_EXPORT
#endif
