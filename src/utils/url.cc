#include "zolo/url.h"

#include <glib.h>

namespace UrlParser {

namespace {
std::string Take(gchar* text) {
  std::string result = text ? text : "";
  g_free(text);
  return result;
}
}  // namespace

bool Url::Parse(const std::string& text) {
  *this = Url();
  gchar *scheme_part = nullptr, *user_part = nullptr, *password_part = nullptr,
        *host_part = nullptr, *path_part = nullptr, *query_part = nullptr, *fragment_part = nullptr;
  gint port_number = -1;
  auto flags =
      static_cast<GUriFlags>(G_URI_FLAGS_HAS_PASSWORD | G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS);
  if (!g_uri_split_with_user(text.c_str(), flags, &scheme_part, &user_part, &password_part, nullptr,
                             &host_part, &port_number, &path_part, &query_part, &fragment_part,
                             nullptr)) {
    // A failed split may still have filled some parts.
    for (gchar* part :
         {scheme_part, user_part, password_part, host_part, path_part, query_part, fragment_part})
      g_free(part);
    return false;
  }
  scheme = Take(scheme_part);
  user = Take(user_part);
  password = Take(password_part);
  host = Take(host_part);
  port = port_number >= 0 ? std::to_string(port_number) : "";
  path = Take(path_part);
  if (!path.empty() && path[0] == '/') path.erase(0, 1);
  query = Take(query_part);
  fragment = Take(fragment_part);
  return true;
}

std::string Url::ToString() const {
  std::string text;
  if (!scheme.empty()) text += scheme + ":";
  if (!host.empty()) {
    text += "//";
    if (!user.empty()) text += user + ":" + password + "@";
    // An IPv6 literal keeps the brackets the parser took off.
    bool ipv6 = host.find(':') != std::string::npos && host.front() != '[';
    text += ipv6 ? "[" + host + "]" : host;
    if (!port.empty()) text += ":" + port;
  }
  if (!path.empty()) text += "/" + path;
  if (!query.empty()) text += "?" + query;
  if (!fragment.empty()) text += "#" + fragment;
  return text;
}

}  // namespace UrlParser
