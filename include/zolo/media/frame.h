// Library lifecycle, engine commands, settings and options.
//
// Call zm_init once before anything else and zm_release at the end; neither may run
// concurrently with other calls. Every other function runs on the caller's thread.
#pragma once

#include <zolo/export.h>

#include <string>

// Loads "/etc/media.conf", connects (with `initialize_db`: creates) the media database,
// reads the firmware variable "movie_resource", brings up storage and connects to the bus.
// 0, or -1 when a step fails. A second call logs and returns 0.
ZM_EXPORT int zm_init(bool initialize_db);
// Disconnects from the bus and releases the database and storage objects; always 0.
ZM_EXPORT int zm_release();
// Pointer handed to every signal callback. 0; -1 without a bus client or when refused.
ZM_EXPORT int zm_set_user_data(void* user_data);

// Runs the SQL file at `path` on the media database in one transaction. 0 or -1.
// A null path throws std::logic_error.
ZM_EXPORT int zm_execute_db_patch(const char* path);
// Runs one SQL text, retrying while the database is busy. 0 or -1. Null throws.
ZM_EXPORT int zm_execute_db_command(const char* sql);

// Reads the media setting `name` into `value`. 0, or negative when it does not exist.
// A null name throws std::logic_error.
ZM_EXPORT int zm_get_setting(const char* name, std::string* value);
// Stores the media setting `name` (engine must be idle: -4 otherwise; -5 unknown name;
// -1 when saving fails) and tells the engine about the settings it acts on at once.
ZM_EXPORT int zm_set_setting(const char* name, const std::string& value);
// Sets a library option. Option 0 (default 1): signal callbacks receive parsed records
// (non-zero) or the raw payload text (0). 0; -3 when the option cannot be stored.
ZM_EXPORT int zm_set_opt(int option, int value);

// Engine commands "start", "stop", "restart": 0 or the mapped engine/bus result.
ZM_EXPORT int zm_start();
ZM_EXPORT int zm_stop();
ZM_EXPORT int zm_restart();
// The engine's state id (1 idle, 3 recording, 4 paused, 0 and 2 not ready) or a negative
// result code; `name` (may be null) receives the state's name.
ZM_EXPORT int zm_get_state(std::string* name);
