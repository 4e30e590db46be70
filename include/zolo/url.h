// UrlParser::Url: a URL split into its eight parts and written back in a fixed order.
#pragma once

#include <zolo/export.h>

#include <string>

namespace UrlParser {

class ZM_EXPORT Url {
 public:
  Url() = default;
  // Parses `text` (see Parse); parts it does not have stay empty.
  explicit Url(const std::string& text) { Parse(text); }

  // Splits `text` into scheme, user, password, host, port, path (without its leading "/"),
  // query and fragment, as written (percent-encodings kept). False, with every part
  // empty, when `text` is not a URL or a relative reference.
  bool Parse(const std::string& text);
  // The scheme and ":" when there is one; when there is a host: "//", then user ":"
  // password "@" when there is a user, the host, ":" and the port when there is one; then
  // "/" and the path, "?" and the query, "#" and the fragment, each when present.
  std::string ToString() const;

  std::string scheme;
  std::string host;
  std::string port;
  std::string path;
  std::string query;
  std::string fragment;
  std::string user;
  std::string password;
};

}  // namespace UrlParser
