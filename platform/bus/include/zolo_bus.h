// libzolo_bus: synchronous JSON method calls to the appliance's services and their signals,
// over D-Bus (the system bus; DBUS_SYSTEM_BUS_ADDRESS redirects it).
//
// Service "x" is the well-known name "zolo.x" at object "/zolo/x": its method m is the
// D-Bus method m of interface "zolo.X" (one string in, one string out), its signal s the
// D-Bus signal s of interface "zolo.X.Signal" with one string. A connected client runs one
// dispatch thread that delivers subscribed signals to the handler with the path
// "<service>/signal/<name>/<serial>"; when the bus itself goes away the thread reconnects
// with backoff and restores every subscription. Method calls run on a small pool of
// connections of their own, so calls from several threads (also from inside a signal
// handler) run at the same time and each ends at its own timeout.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Size of the reply buffer bus_method_call_sync writes into.
#define BUS_REPLY_BUFFER_SIZE 4096

// Results: 0, or one of these.
#define BUS_ERROR (-1)      // not connected, service not on the bus, call failed
#define BUS_EINVAL (-3)     // missing or bad argument
#define BUS_ETIMEDOUT (-5)  // no reply within the timeout

typedef struct bus_client bus_client;

// Receives one signal: `payload` is the zero-terminated text (`length` bytes without the
// terminator), valid only during the call. Runs on the client's dispatch thread.
typedef void (*bus_signal_handler)(bus_client* client, void* user_data, const char* path,
                                   void* payload, int length);

// Process-wide set-up and tear-down; 0.
int bus_init(void);
int bus_cleanup(void);

// A client named `name` (for logs); null for a null name or when out of memory.
bus_client* bus_client_new(const char* name);
// Disconnects if needed and frees the client.
void bus_client_free(bus_client* client);

// Opens the client's connections and starts its dispatch thread. `flags` is reserved (0).
// 0, BUS_ERROR when the bus cannot be reached, BUS_EINVAL for a null client.
int bus_connect(bus_client* client, int flags);
// Stops and joins the dispatch thread and closes the connections; 0 (also when not
// connected), BUS_EINVAL for a null client. Not from inside a signal handler.
int bus_disconnect(bus_client* client);
// The pointer handed to the signal handler; 0, BUS_EINVAL for a null client.
int bus_client_set_user_data(bus_client* client, void* user_data);

// Calls `method` of `service` with `request` (`request_length` bytes; null or empty sends
// "") and waits at most `timeout` seconds (0: 25 s). The whole reply text is handed over in
// `*reply` (zero-terminated, free with free(); null when there was none) with its length in
// `*reply_length`; both may be null when the reply is not wanted. A request that is not
// valid UTF-8 is refused (BUS_ERROR, logged) before anything is sent. A reply arriving after
// the timeout is dropped. 0, BUS_ERROR, BUS_EINVAL or BUS_ETIMEDOUT. Thread-safe.
int bus_method_call(bus_client* client, const char* service, const char* method,
                    const char* request, int request_length, char** reply, size_t* reply_length,
                    unsigned timeout);

// bus_method_call with the reply copied into `reply` (BUS_REPLY_BUFFER_SIZE bytes, always
// zero-terminated, cut to fit with a log line); `*reply_length` is the copied length.
int bus_method_call_sync(bus_client* client, const char* service, const char* method,
                         const char* request, int request_length, char* reply, int* reply_length,
                         unsigned timeout);

// Messages the client has received but not delivered or dropped yet (diagnostics: stays
// small whatever arrives late). 0 for a null client.
size_t bus_client_queued_messages(bus_client* client);

// Delivers signal `name` of `service` to `handler` (a second subscription of the name
// replaces the handler). 0, BUS_ERROR (not connected) or BUS_EINVAL. Thread-safe.
int bus_signal_subscribe(bus_client* client, const char* service, const char* name,
                         bus_signal_handler handler);
// Stops delivering signal `name`. 0, BUS_ERROR (not subscribed) or BUS_EINVAL.
int bus_signal_unsubscribe(bus_client* client, const char* service, const char* name);

#ifdef __cplusplus
}
#endif
