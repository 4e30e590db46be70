// Naming rules: which channel a user source feeds, which device sources fill a channel's
// slot, and the front-panel names of the built-in capture inputs.
#include "libzolo_media/source_naming.h"

#include <glib.h>
#include <zolo/media/sources.h>
#include <zolo/utils.h>
#include <zolo_model/channel.h>
#include <zolo_model/source.h>

#include <cctype>
#include <map>
#include <memory>

#include "common/log.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr const char* kMapFunction = "_zm_get_source_id_by_user_source_id";

// Categories and the one type the rules know (the model's numbering).
constexpr int kVideoType = 0;
constexpr int kCaptureCategory = 0;
constexpr int kNetworkCategory = 1;
constexpr int kListenerCategory = 3;
constexpr int kUsbCategory = 5;

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The capture chip's sub-address of each front-panel input. The first input sits on
// another chip function and revision than the other four: that is the hardware's addressing.
const std::map<std::string, std::string>& BuiltinInputs() {
  static const std::map<std::string, std::string> inputs = {
      {"SC0710:RAW 01.00 0401f717", "HDMI1"}, {"SC0710:RAW 00.00 0404f71d", "HDMI2"},
      {"SC0710:RAW 00.01 0404f71d", "HDMI3"}, {"SC0710:RAW 00.02 0404f71d", "HDMI4"},
      {"SC0710:RAW 00.03 0404f71d", "SDI1"},
  };
  return inputs;
}

}  // namespace

int _zm_get_channel_name_by_user_source(int number, const UserSource* source, std::string* name) {
  if (source == nullptr || name == nullptr) return -3;
  if (MediaSource::StringToType(source->type()) != kVideoType) return -2;
  const std::string digits = std::to_string(number);
  switch (MediaSource::StringToCategory(source->category())) {
    case kCaptureCategory:
      *name = "Video-Capture" + digits;
      return 0;
    case kUsbCategory:
      *name = "Video-Usb" + digits;
      return 0;
    case kNetworkCategory:
    case kListenerCategory:
      break;
    default:
      return -2;
  }
  const std::string& url = source->url();
  std::unique_ptr<char, decltype(&g_free)> scheme(g_uri_parse_scheme(url.c_str()), &g_free);
  if (scheme == nullptr) {
    ZLOG_AS(kMapFunction, 0, "NULL schema for user source %d", source->id());
    return -2;
  }
  std::string head = scheme.get();
  if (head == "srt") {
    // Listener is looked for first: a URL naming both modes counts as listener.
    if (url.find("mode=listener") != std::string::npos) {
      head += "-listener";
    } else if (url.find("mode=caller") != std::string::npos) {
      head += "-caller";
    } else {
      ZLOG_AS(kMapFunction, 0, "Not supported srt mode %s", url.c_str());
      return -2;
    }
  }
  *name = Upper(head + digits);
  return 0;
}

int _zm_get_source_id_by_user_source_id(int number, UserSource* source) {
  if (source == nullptr) return -3;
  std::string name;
  int result = _zm_get_channel_name_by_user_source(number, source, &name);
  if (result < 0) return result;
  Channel* found = nullptr;
  if (Channel::QueryByName(name, &found) < 0 || found == nullptr) {
    ZLOG(0, "channel %s is not found", name.c_str());
    return -2;
  }
  std::unique_ptr<Channel> channel(found);
  if (channel->video_source_id() <= 0) {
    ZLOG(3, "source not found!");
    return -5;
  }
  return channel->video_source_id();
}

std::string _zm_channel_slot_pattern(int channel_id) {
  return "[A-Za-z]+" + std::to_string(channel_id) + ".*";
}

bool _zm_fits_channel_slot(const std::string& name, int channel_id) {
  return MatchString(_zm_channel_slot_pattern(channel_id), name) == 0;
}

int _zm_taken_name_pattern(const std::string& taken, int independent, std::string* pattern) {
  if (pattern == nullptr) return -1;
  size_t underscore = taken.find('_');
  if (underscore == std::string::npos) {
    size_t digit = taken.find_first_of("0123456789");
    if (digit == std::string::npos) return -1;
    std::string slot = taken.substr(digit);
    *pattern =
        independent == 0 ? "[A-Za-z]+[0-9]_" + slot : taken.substr(0, digit) + "[0-9]_" + slot;
    return 0;
  }
  std::string slot = taken.substr(underscore + 1);
  if (independent == 0) {
    *pattern = "[A-Za-z]+" + slot + ".*|[A-Za-z]+[0-9]_" + slot;
  } else {
    // The head without the engine digit before the underscore; a leading underscore keeps
    // the whole name as the head.
    std::string head = underscore == 0 ? taken : taken.substr(0, underscore - 1);
    *pattern = head + "[0-9]_" + slot;
  }
  return 0;
}

int _zm_taken_name_claims(const std::string& candidate, const std::string& taken, int independent) {
  std::string pattern;
  if (_zm_taken_name_pattern(taken, independent, &pattern) < 0) return -1;
  return MatchString(pattern, candidate) == 0 ? 1 : 0;
}

int zm_get_builtin_input_name(const char* sub_address, std::string* name) {
  if (sub_address == nullptr || name == nullptr) return -3;
  auto it = BuiltinInputs().find(sub_address);
  if (it == BuiltinInputs().end()) return -5;
  *name = it->second;
  return 0;
}
