// Feeds arbitrary text to the URL parser (and writes it back) and the placeholder checks.
#include <zolo/url.h>
#include <zolo/utils.h>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  UrlParser::Url url;
  if (url.Parse(text)) {
    UrlParser::Url again;
    again.Parse(url.ToString());
  }
  size_t half = size / 2;
  isFakeUrl(text);
  isFakeSubUrl(text.substr(0, half), text.substr(half));
  std::string out;
  getFakeUrl(text.c_str(), &out);
  getFakeSubUrl(text.c_str(), &out);
  return 0;
}
