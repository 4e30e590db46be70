// Password challenge-response and the slow-down and lockout of addresses that keep failing.
//
//   secret = base64(sha256(password + salt)), answer = base64(sha256(secret + challenge))
//
// The configuration keeps "<salt>:<secret>", never the password.
#pragma once

#include <glib.h>

#include <map>
#include <string>

namespace zolo::gateway {

// `bytes` random bytes from the kernel's generator, base64-encoded.
std::string RandomBase64(size_t bytes);
// base64(sha256(text)).
std::string Sha256Base64(const std::string& text);
// The line to store as password_hash for `password`, with a new random salt.
std::string HashPasswordLine(const std::string& password);
// The answer a client computes from the password (for clients and tests).
std::string AuthenticationAnswer(const std::string& password, const std::string& salt,
                                 const std::string& challenge);
// True when `answer` is the right answer to `challenge` for the stored "<salt>:<secret>";
// compares in constant time.
bool CheckAnswer(const std::string& stored, const std::string& challenge,
                 const std::string& answer);
// The salt of a stored "<salt>:<secret>".
std::string SaltOf(const std::string& stored);

// Failed authentications by address. All times are g_get_monotonic_time() microseconds.
class FailureTracker {
 public:
  FailureTracker(int free_failures, int delay_ms, int lockout_failures, int lockout_seconds)
      : free_(free_failures),
        delay_ms_(delay_ms),
        lockout_failures_(lockout_failures),
        lockout_us_(static_cast<gint64>(lockout_seconds) * G_USEC_PER_SEC) {}

  // True while `address` is refused.
  bool LockedOut(const std::string& address, gint64 now);
  // How long to wait before checking an answer from `address` (0 for the first failures).
  int DelayMs(const std::string& address, gint64 now);
  void Failed(const std::string& address, gint64 now);
  void Succeeded(const std::string& address) { entries_.erase(address); }

 private:
  struct Entry {
    int failures = 0;
    gint64 last = 0;
    gint64 locked_until = 0;
  };
  void Prune(gint64 now);
  static constexpr size_t kMaxAddresses = 4096;
  int free_;
  int delay_ms_;
  int lockout_failures_;
  gint64 lockout_us_;
  std::map<std::string, Entry> entries_;
};

}  // namespace zolo::gateway
