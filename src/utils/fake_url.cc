// Placeholder URLs: the fixed address per scheme that stands for "no endpoint yet".
#include <glib.h>

#include <map>
#include <stdexcept>

#include "common/log.h"
#include "zolo/utils.h"

namespace {

constexpr const char* kLogSource = "utils";

const std::map<std::string, std::string> kFakeUrls = {
    {"rtsp", "rtsp://0.0.0.0/fake"},   {"rtmp", "rtmp://0.0.0.0/fake"},
    {"rtmps", "rtmps://0.0.0.0/fake"}, {"rtp", "rtp://0.0.0.0"},
    {"udp", "udp://0.0.0.0"},          {"ndi", "ndi://0.0.0.0"},
    {"srt", "srt://0.0.0.0/fake"},
};

// Placeholder of a stream's secondary address field, used with NDI only.
const std::map<std::string, std::string> kFakeSubUrls = {
    {"ndi", "FAKE"},
};

// The scheme of `url`, or "" when it has none.
std::string SchemeOf(const std::string& url) {
  gchar* scheme = g_uri_parse_scheme(url.c_str());
  if (scheme == nullptr) return std::string();
  std::string result(scheme);
  g_free(scheme);
  return result;
}

int Lookup(const std::map<std::string, std::string>& table, const char* scheme, std::string* url,
           const char* function) {
  if (scheme == nullptr || url == nullptr) return -1;
  try {
    *url = table.at(scheme);
    return 0;
  } catch (const std::out_of_range&) {
    ZLOG_AS(function, 0, "Not supported url %s!", scheme);
    return -1;
  }
}

}  // namespace

bool isFakeUrl(std::string url) {
  std::string scheme = SchemeOf(url);
  if (scheme.empty()) return false;
  try {
    const std::string& fake = kFakeUrls.at(scheme);
    // SRT URLs carry their options behind the address.
    if (scheme == "srt") return url.compare(0, fake.size(), fake) == 0;
    return url == fake;
  } catch (const std::out_of_range&) {
    ZLOG(3, "Not supported url %s!", url.c_str());
    return false;
  }
}

bool isFakeSubUrl(std::string url, std::string sub_url) {
  std::string scheme = SchemeOf(url);
  if (scheme.empty()) return false;
  try {
    return sub_url == kFakeSubUrls.at(scheme);
  } catch (const std::out_of_range&) {
    ZLOG(3, "Not supported url %s!", url.c_str());
    return false;
  }
}

int getFakeUrl(const char* scheme, std::string* url) {
  return Lookup(kFakeUrls, scheme, url, __func__);
}

int getFakeSubUrl(const char* scheme, std::string* url) {
  return Lookup(kFakeSubUrls, scheme, url, __func__);
}
