// Config: typed lookups in one GLib key file (groups in brackets, key=value lines).
//
// Load() must succeed before lookups find anything. Typed getters convert in base 10 with
// the standard conversions and let their std::invalid_argument / std::out_of_range
// through for text that is not a number. Not thread-safe for Load/Release against lookups.
#pragma once

#include <zolo/export.h>

#include <cstdint>
#include <string>

typedef struct _GKeyFile GKeyFile;

class ZM_EXPORT Config {
 public:
  // Stores `path`; a null path throws std::logic_error.
  explicit Config(const char* path);
  virtual ~Config();
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  // 0; -1 for a null path (the old path stays).
  int AssignPath(const char* path);
  const char* GetPath() const;
  // (Re-)reads the file from scratch. 0, or -1 when it cannot be read or parsed.
  int Load();
  // Frees the parsed file.
  void Release();

  // Raw value text into `value`: 0 when found; -1 (value unchanged, logged) otherwise.
  int GetValue(const char* group, const char* key, std::string* value);
  // The value text, or `fallback` when absent; always 0, logs nothing.
  int GetValue(const char* group, const char* key, const char* fallback, std::string* value);

  // Without a default: 0 with `value` written, or -1 with `value` unchanged.
  // With a default: as above, but a missing key writes the default and still returns -1.
  int GetInt32(const char* group, const char* key, int32_t* value);
  int GetInt32(const char* group, const char* key, int32_t fallback, int32_t* value);
  // Only numbers count: non-zero is true ("true" throws std::invalid_argument).
  int GetBool(const char* group, const char* key, bool* value);
  int GetBool(const char* group, const char* key, bool fallback, bool* value);
  int GetUint32(const char* group, const char* key, uint32_t* value);
  int GetUint32(const char* group, const char* key, uint32_t fallback, uint32_t* value);
  int GetInt64(const char* group, const char* key, int64_t* value);
  int GetInt64(const char* group, const char* key, int64_t fallback, int64_t* value);
  int GetUint64(const char* group, const char* key, uint64_t* value);
  int GetUint64(const char* group, const char* key, uint64_t fallback, uint64_t* value);

 private:
  template <class T, class Convert>
  int GetNumber(const char* group, const char* key, T* value, Convert convert);
  template <class T, class Convert>
  int GetNumber(const char* group, const char* key, T fallback, T* value, Convert convert);

  std::string path_;
  GKeyFile* key_file_ = nullptr;
};
