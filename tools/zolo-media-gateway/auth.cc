#include "auth.h"

#include <sys/random.h>

#include <vector>

namespace zolo::gateway {

std::string RandomBase64(size_t bytes) {
  std::vector<guchar> data(bytes);
  size_t filled = 0;
  while (filled < bytes) {
    ssize_t got = getrandom(data.data() + filled, bytes - filled, 0);
    if (got > 0) filled += static_cast<size_t>(got);
  }
  gchar* text = g_base64_encode(data.data(), bytes);
  std::string result = text;
  g_free(text);
  return result;
}

std::string Sha256Base64(const std::string& text) {
  GChecksum* checksum = g_checksum_new(G_CHECKSUM_SHA256);
  g_checksum_update(checksum, reinterpret_cast<const guchar*>(text.data()),
                    static_cast<gssize>(text.size()));
  guint8 digest[32];
  gsize length = sizeof digest;
  g_checksum_get_digest(checksum, digest, &length);
  g_checksum_free(checksum);
  gchar* encoded = g_base64_encode(digest, length);
  std::string result = encoded;
  g_free(encoded);
  return result;
}

std::string HashPasswordLine(const std::string& password) {
  std::string salt = RandomBase64(16);
  return salt + ":" + Sha256Base64(password + salt);
}

std::string AuthenticationAnswer(const std::string& password, const std::string& salt,
                                 const std::string& challenge) {
  return Sha256Base64(Sha256Base64(password + salt) + challenge);
}

std::string SaltOf(const std::string& stored) {
  return stored.substr(0, stored.find(':'));
}

bool CheckAnswer(const std::string& stored, const std::string& challenge,
                 const std::string& answer) {
  size_t colon = stored.find(':');
  if (colon == std::string::npos) return false;
  std::string expected = Sha256Base64(stored.substr(colon + 1) + challenge);
  // Same work whatever the answer: every byte of the expected text is compared.
  unsigned char difference = answer.size() == expected.size() ? 0 : 1;
  for (size_t i = 0; i < expected.size(); ++i)
    difference |= static_cast<unsigned char>(expected[i] ^ (i < answer.size() ? answer[i] : 0));
  return difference == 0;
}

bool FailureTracker::LockedOut(const std::string& address, gint64 now) {
  auto it = entries_.find(address);
  return it != entries_.end() && it->second.locked_until > now;
}

int FailureTracker::DelayMs(const std::string& address, gint64 now) {
  auto it = entries_.find(address);
  if (it == entries_.end() || it->second.failures < free_) return 0;
  if (it->second.locked_until != 0 && it->second.locked_until <= now) {
    entries_.erase(it);  // the lockout is over: a fresh start
    return 0;
  }
  int doublings = std::min(it->second.failures - free_, 8);
  return std::min(delay_ms_ << doublings, 4000);
}

void FailureTracker::Failed(const std::string& address, gint64 now) {
  Prune(now);
  Entry& entry = entries_[address];
  entry.failures++;
  entry.last = now;
  if (entry.failures >= lockout_failures_) entry.locked_until = now + lockout_us_;
}

void FailureTracker::Prune(gint64 now) {
  // Forget addresses that have been quiet for a lockout period; when still too many, the
  // oldest unlocked one goes, so the table stays bounded whoever connects.
  for (auto it = entries_.begin(); it != entries_.end();)
    it = now - it->second.last > lockout_us_ && it->second.locked_until <= now ? entries_.erase(it)
                                                                               : std::next(it);
  if (entries_.size() < kMaxAddresses) return;
  auto oldest = entries_.end();
  for (auto it = entries_.begin(); it != entries_.end(); ++it)
    if (it->second.locked_until <= now &&
        (oldest == entries_.end() || it->second.last < oldest->second.last))
      oldest = it;
  if (oldest != entries_.end())
    entries_.erase(oldest);
  else
    entries_.erase(entries_.begin());
}

}  // namespace zolo::gateway
