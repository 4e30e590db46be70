// Callbacks for the media engine's signals, registered by signal name.
#pragma once

#include <zolo/export.h>
#include <zolo_bus.h>

// Receives signal `name` with `data`: the parsed record (a media_sig_* of <zolo/signals.h>,
// valid only during the call) or, when option 0 is set to 0, the raw payload text.
// `user_data` is the pointer given to zm_set_user_data. Runs on the bus's dispatch thread.
typedef void (*zm_signal_callback)(const char* name, void* data, void* user_data);

// Subscribes to signal `name` (one of the engine's 39) and keeps `callback` for it, replacing
// an earlier one. The bus's result; -3 for an unknown name. A null name throws
// std::logic_error. Not concurrently with other calls.
ZM_EXPORT int zm_register_signal(const char* name, zm_signal_callback callback);
// Unsubscribes and forgets the callback. The bus's result; -3 for an unknown name.
ZM_EXPORT int zm_unregister_signal(const char* name);
// The bus's signal handler: finds the callback for `path` ("media/signal/<name>/<serial>"),
// parses `payload` and calls the callback. `length` is not used (payloads are text).
ZM_EXPORT void zm_signal_handler(bus_client* client, void* user_data, const char* path,
                                 void* payload, int length);
