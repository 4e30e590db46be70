// File, path, URI, shell, time, device and placeholder-URL helpers shared by the library.
//
// Path arguments of the file helpers may be plain paths or "file://" URIs. Results follow
// the library's convention: 0 (or a count) for success, -1 or the system call's result
// for failure. Several helpers keep deliberate quirks noted below; callers rely on them.
#pragma once

#include <cjson/cJSON.h>
#include <zolo/export.h>

#include <cstdint>
#include <string>

// --- strings and paths (no file access) ---

// Replaces every `from` in `*s` left to right, never rescanning inserted text; 0.
ZM_EXPORT int ReplaceString(std::string* s, const std::string& from, const std::string& to);
// Replaces the file name (without extension) of `path` by `name` everywhere it occurs in
// the path; 0, or -1 when the last dot or slash is the first character.
ZM_EXPORT int ReplaceFileName(std::string* path, const std::string& name);
// 0 when the GLib regular expression `pattern` matches `text`, -1 otherwise (also for an
// invalid pattern).
ZM_EXPORT int MatchString(const std::string& pattern, const std::string& text);
// `dir` and `name` joined by exactly one "/" (just `name` when `dir` is empty).
ZM_EXPORT std::string ConcateFilePath(const std::string& dir, std::string name);
// A plain path is copied, a "file://" URI loses its scheme; other schemes leave `*path`.
ZM_EXPORT void GetFilepathFromUri(const std::string& uri, std::string* path);
// Inserts `prefix` before the last path component of `uri`.
ZM_EXPORT std::string AppendFileUri(const std::string& uri, const std::string& prefix);
// Text after the last dot at index 1 or later; without such a dot the string less its
// first character; "" for strings shorter than two.
ZM_EXPORT std::string GetFileExt(const std::string& path);
// `path` up to and including that dot, then `ext`; without a dot the first character and
// `ext`.
ZM_EXPORT std::string ReplaceFileExt(const std::string& path, const std::string& ext);
// Directory / base name of `path` (GLib rules); 0 or -1.
ZM_EXPORT int GetDirByFilePath(const std::string& path, std::string* dir);
ZM_EXPORT int GetFileByFilePath(const std::string& path, std::string* file);
// Removes every trailing `c`; 0.
ZM_EXPORT int RemoveTrailingChar(char c, std::string* s);
// Comparator for descending order.
ZM_EXPORT bool IntReverseSort(int a, int b);

// --- files ---

// The path exists (a directory counts).
ZM_EXPORT bool IsFile(const std::string& path);
ZM_EXPORT bool IsDir(const std::string& path);
// Size in bytes (a link's own size), or -1.
ZM_EXPORT int64_t FileSize(const std::string& path);
// 0 when the path does not exist, else remove()'s result.
ZM_EXPORT int Remove(const std::string& path);
// Removes a tree through "rm -rf"; 0 when the path does not exist, else system()'s result.
ZM_EXPORT int RemoveAll(const std::string& path);
// Copies `from` over `to` (created with the source's mode, not truncated); 0 on success.
ZM_EXPORT int Copy(const std::string& from, const std::string& to);
// rename() of the plain strings; its result.
ZM_EXPORT int Rename(const std::string& from, const std::string& to);
// Creates the directory of file `path`; with `depth` >= 1 only when its first `depth`
// components already form an existing directory (a storage's mount point). 0 or -1.
ZM_EXPORT int MakeDirByFilePath(const std::string& path, unsigned mode, int depth);
ZM_EXPORT int MakeDirByFileUri(const std::string& uri, unsigned mode, int depth);
// Runs `cmd` through the shell, appending its standard output to `*output` (may be null).
// The exit status, or -1 (no pipe, killed by a signal).
ZM_EXPORT int ExecShellCmd(const std::string& cmd, std::string* output);

// --- cJSON ---

// Replaces (or adds) number member `key`, which moves to the end of the object; 0.
ZM_EXPORT int cJSON_UpdateObjectItem(cJSON* obj, const char* key, int value);
ZM_EXPORT int cJSON_UpdateObjectItem(cJSON* obj, const char* key, double value);
// Appends shallow copies (no children) of `src`'s items to `dst`; -1 when either is null
// or empty.
ZM_EXPORT int cJSON_AppendTwoArrays(cJSON* dst, cJSON* src);

// --- time ---

// Seconds / microseconds since the epoch.
ZM_EXPORT int64_t GetTimeStamp();
ZM_EXPORT uint64_t GetTimeStampU();
// Local time of `t` as "%Y_%m_%d_%H_%M_%S" and, when `day` is given, "%Y_%m_%d"; 0.
ZM_EXPORT int MakeTimeString(long t, std::string* stamp, std::string* day);
// ISO 8601 text of `t` shifted by `offset_seconds`, with a "+hh:mm" zone suffix.
ZM_EXPORT std::string TransferIso8601(unsigned long t, double offset_seconds);
// Local offset from UTC in seconds.
ZM_EXPORT double GetCurrentTzOffset();

// --- network and device ---

ZM_EXPORT bool IsValidIpAddress(const std::string& address);
ZM_EXPORT bool IsMulticastIpAddress(const std::string& address);
// IPv4 address of interface `ifname`; 0, or -1 with `*ip` unchanged.
ZM_EXPORT int GetIpAddress(const std::string& ifname, std::string* ip);
// "/etc/hostname", "/etc/description" and eth0's MAC address (12 hex digits, upper case
// unless `keep_case`); "" when unreadable.
ZM_EXPORT std::string GetDeviceHostname();
ZM_EXPORT std::string GetDeviceDescription();
ZM_EXPORT std::string GetMacAddressStr(bool keep_case);

// Schedules `fn(data)` on the GLib main loop's idle queue (kept while `fn` returns
// non-zero), logging the time each run took. 0; a null `name` schedules nothing.
ZM_EXPORT int _GMainLoopIdleAdd(int (*fn)(void*), void* data, const char* name);

// --- placeholder URLs ---

// True when `url` is the placeholder of its scheme ("srt" placeholders may carry options).
ZM_EXPORT bool isFakeUrl(std::string url);
// True when `sub_url` is the secondary-address placeholder for `url`'s scheme.
ZM_EXPORT bool isFakeSubUrl(std::string url, std::string sub_url);
// The placeholder of `scheme` into `*url`: 0, or -1 (null argument, unknown scheme).
ZM_EXPORT int getFakeUrl(const char* scheme, std::string* url);
ZM_EXPORT int getFakeSubUrl(const char* scheme, std::string* url);
