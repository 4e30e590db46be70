// Meanings of result codes, and the library's version.
#include <zolo/media/errors.h>
#include <zolo/version.h>

namespace {

// Indexed by -code. -7 … -15 are the engine's own refusals, named by the engine code each
// comes from.
constexpr const char* kMeanings[] = {
    "success",
    "general failure (bus, database or unknown engine code)",
    "request refused",
    "missing or bad argument, or unknown name",
    "the media engine is not in a state that allows this",
    "object or setting not found",
    "the bus gave no answer in time",
    "refused by the media engine (engine code -1011 or -1012)",
    "refused by the media engine (engine code -1013)",
    "refused by the media engine (engine code -1014)",
    "refused by the media engine (engine code -1006)",
    "refused by the media engine (engine code -1009)",
    "refused by the media engine (engine code -1015)",
    "refused by the media engine (engine code -1016)",
    "refused by the media engine (engine code -1017)",
    "refused by the media engine (engine code -1018)",
};
constexpr int kKnown = sizeof kMeanings / sizeof kMeanings[0];

}  // namespace

const char* zm_strerror(int code) {
  if (code > 0 || code <= -kKnown) return "unknown result code";
  return kMeanings[-code];
}

const char* zm_version(void) {
  return ZM_VERSION_STRING;
}
