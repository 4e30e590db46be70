// Source and channel records and the read-only queries over them.
#include <zolo/media/sources.h>
#include <zolo/utils.h>
#include <zolo_model/channel.h>
#include <zolo_model/channel_sources.h>
#include <zolo_model/media_model.h>
#include <zolo_model/source.h>
#include <zolo_model/stream.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "common/log.h"
#include "libzolo_media/media_call.h"
#include "libzolo_media/source_naming.h"
#include "libzolo_media/visible_listing.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr const char* kMacMarker = "<MAC_ADDR>";
constexpr int kNetworkCategory = 1;
constexpr int kNetworkStreamType = 2;

// Copies `text` into a zeroed field as "%s" formatting would, cut to the field's size.
template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::memcpy(field, text.c_str(), strnlen(text.c_str(), N - 1));
}

// `url` with every MAC marker replaced by eth0's address (`keep_case`: lower case), less
// its first `drop` characters. Without the marker the address is not read; when it is too
// short to drop that much, the URL stays as stored.
std::string WithMac(const std::string& url, bool keep_case, size_t drop) {
  if (url.find(kMacMarker) == std::string::npos) return url;
  std::string mac = GetMacAddressStr(keep_case);
  if (mac.size() < drop) return url;
  std::string result = url;
  ReplaceString(&result, kMacMarker, mac.substr(drop));
  return result;
}

// Whether `stream` can serve as its channel's preview (the first such stream in id order
// does): an enabled network stream whose name starts with "preview" (case and position
// matter), with its first option set and its second clear.
bool IsPreviewStream(const Stream& stream) {
  return Stream::StringToType(stream.type()) == kNetworkStreamType && stream.enable() &&
         stream.enable_option(1) && !stream.enable_option(2) &&
         stream.name().compare(0, 7, "preview") == 0;
}

// Fills one record from `channel`; `preview` is the URL of its preview stream (empty when
// it has none).
void ConvertChannel(const Channel& channel, const std::string& preview,
                    std::vector<zm_channel>* out) {
  zm_channel& record = out->emplace_back();  // value-initialised: all zero
  record.id = channel.id();
  CopyText(record.name, channel.name());
  record.ordinal = channel.ordinal().empty()
                       ? 0
                       : static_cast<int>(std::strtol(channel.ordinal().c_str(), nullptr, 10));
  record.attribute = channel.attribute();
  if (const ChannelSource* source = channel.video_source()) {
    record.video_source_id = source->id();
    CopyText(record.video_source_name, source->name());
  }
  if (const ChannelSource* source = channel.audio_source()) {
    record.audio_source_id = source->id();
    CopyText(record.audio_source_name, source->name());
  }
  if (const UserSource* source = channel.video_user_source()) {
    record.video_user_source_id = source->id();
    CopyText(record.video_user_source_name, source->name());
  }
  if (const UserSource* source = channel.audio_user_source()) {
    record.audio_user_source_id = source->id();
    CopyText(record.audio_user_source_name, source->name());
  }
  if (!preview.empty()) {
    CopyText(record.preview_url, WithMac(preview, true, 0));
  } else if (const ChannelSource* source = channel.video_source();
             source != nullptr &&
             MediaSource::StringToCategory(source->category()) == kNetworkCategory) {
    CopyText(record.preview_url, WithMac(source->url(), true, 8));
  }
}

template <class Kind>
int GetSources(int id, std::vector<zm_source>* out) {
  if (out == nullptr) return -3;
  if (id == 0) {
    static std::atomic<size_t> last_size{0};
    return zolo::AppendVisible(out, &last_size, [out] {
      return Kind::VisitVisible(
          [out](const Kind& source) { zm_convert_source_data(&source, out); });
    });
  }
  Kind* source = nullptr;
  if (Kind::QueryById(id, &source) < 0 || source == nullptr) {
    delete source;
    return -5;
  }
  zm_convert_source_data(source, out);
  delete source;
  return 0;
}

}  // namespace

void zm_convert_source_data(const MediaSource* source, std::vector<zm_source>* out) {
  if (source == nullptr || out == nullptr) return;
  zm_source& record = out->emplace_back();  // value-initialised: all zero
  record.id = source->id();
  CopyText(record.name, source->name());
  CopyText(record.type, source->type());
  CopyText(record.category, source->category());
  CopyText(record.url, WithMac(source->url(), false, 8));
  CopyText(record.sub_address, source->sub_address());
  CopyText(record.authentication, source->authentication());
  record.fixed = source->fixed() ? 1 : 0;
  record.available = source->available() ? 1 : 0;
  record.enabled_flag = source->enabled() ? 1 : 0;
  record.int_attr1 = source->int_attr1();
  record.int_attr2 = source->int_attr2();
  CopyText(record.extra, source->extra());
  CopyText(record.resolution, source->ObtainStrParameter("resolution"));
  CopyText(record.codec, source->ObtainStrParameter("codec"));
  record.frame_rate = source->ObtainParameter("frame_rate", -1);
  record.rotate = source->ObtainParameter("rotate", -1);
  // Without an "encryption" entry the key length stays 0: callers tell a source without
  // authentication from one whose authentication lacks a key length (-1).
  if (source->IsAuthenticationExisted("encryption")) {
    record.encryption = source->ObtainAuthentication("encryption", -1);
    record.key_length = source->ObtainAuthentication("key_length", -1);
    CopyText(record.passphrase, source->ObtainStrAuthentication("passphrase"));
  } else {
    record.encryption = -1;
  }
  record.source_port = source->ObtainParameter("source_port", -1);
  // -2000 lies outside any real delay: an unset delay stays distinct from -1.
  record.audio_delay = source->ObtainParameter("audio_delay", -2000);
  CopyText(record.preview_dest, source->ObtainStrParameter("preview_dest"));
  CopyText(record.extra2, source->extra2());
  record.latency = source->ObtainParameter("latency", -1);
}

int zm_get_source(int id, std::vector<zm_source>* out) {
  return GetSources<ChannelSource>(id, out);
}

int zm_get_user_source(int id, std::vector<zm_source>* out) {
  return GetSources<UserSource>(id, out);
}

int zm_get_channel(int id, std::vector<zm_channel>* out) {
  if (out == nullptr) return -1;
  std::map<int, std::string> previews;  // channel id -> URL of its preview stream
  if (id == 0) {
    // One query for every channel's candidates instead of one per channel; the streams come
    // in id order, as each channel's own list would.
    Stream::VisitByPattern("preview%", [&previews](const Stream& stream) {
      if (stream.channel_id() != 0 && IsPreviewStream(stream))
        previews.emplace(stream.channel_id(), stream.destination());
    });
    // The channels with their sources in one pass; on a failure nothing is appended.
    size_t before = out->size();
    int result = Channel::VisitVisible([&](const Channel& channel) {
      auto preview = previews.find(channel.id());
      ConvertChannel(channel, preview == previews.end() ? std::string() : preview->second, out);
    });
    if (result == 0) return 0;
    out->resize(before);
    return -5;
  }
  Channel* found = nullptr;
  if (Channel::QueryById(id, &found) < 0 || found == nullptr) {
    delete found;
    return -5;
  }
  std::unique_ptr<Channel> channel(found);
  std::string preview;
  for (const Stream* stream : channel->streams(false)) {
    if (IsPreviewStream(*stream)) {
      preview = stream->destination();
      break;
    }
  }
  ConvertChannel(*channel, preview, out);
  return 0;
}

int zm_get_channel_count() {
  std::vector<Channel*> channels;
  int count = Channel::QueryVisible(&channels) < 0 ? 0 : static_cast<int>(channels.size());
  MediaModel::CleanQuery(&channels);
  return count;
}

int zm_get_channel_available_user_sources(int id, std::vector<zm_channel_sources>* out) {
  if (out == nullptr) return -3;
  std::vector<ChannelSources*> lists;
  int result;
  if (id == 0) {
    result = ChannelSources::QueryAll(&lists);
  } else {
    ChannelSources* one = nullptr;
    result = ChannelSources::QueryByChannel(id, &one);
    if (result == 0) lists.push_back(one);
  }
  if (result < 0) {
    MediaModel::CleanQuery(&lists);
    return -5;
  }
  for (const ChannelSources* list : lists) {
    zm_channel_sources record;
    record.channel_id = list->channel();
    // Both lists are kept under the same key.
    if (list->ObtainChannelSources("video_sources", &record.sources) < 0)
      ZLOG(3, "get channel sources %d sources failed", record.channel_id);
    if (list->ObtainUserSources("video_sources", &record.user_sources) < 0)
      ZLOG(3, "get channel sources %d user sources failed", record.channel_id);
    out->push_back(std::move(record));
  }
  MediaModel::CleanQuery(&lists);
  return 0;
}

int zm_get_channel_available_sources(int id, std::vector<zm_source>* out) {
  if (out == nullptr) return -3;
  std::vector<ChannelSource*> sources;
  if (ChannelSource::QueryVisible(&sources) < 0) {
    MediaModel::CleanQuery(&sources);
    return -5;
  }
  Channel* found = nullptr;
  if (Channel::QueryById(id, &found) < 0) {
    MediaModel::CleanQuery(&sources);
    return -5;
  }
  std::unique_ptr<Channel> channel(found);
  int32_t independent = 0;
  zolo::MediaConfig().GetInt32("Engine", "capture_source_independent", 0, &independent);

  const ChannelSource* own = channel->video_source();
  const int category = own ? MediaSource::StringToCategory(own->category()) : -1;
  const std::string own_url = own ? own->url() : std::string();

  // Sources of the same kind that channels use, each claiming its slot. A hidden channel
  // still holds its sources: what counts is whether the source is visible.
  std::vector<Channel*> channels;
  if (Channel::QueryAll(&channels) < 0) {
    MediaModel::CleanQuery(&channels);
    MediaModel::CleanQuery(&sources);
    return -5;
  }
  std::set<int> bound;
  for (const Channel* c : channels) {
    bound.insert(c->video_source_id());
    bound.insert(c->audio_source_id());
  }
  MediaModel::CleanQuery(&channels);
  std::vector<std::string> taken;
  for (const ChannelSource* source : sources)
    if (MediaSource::StringToCategory(source->category()) == category &&
        bound.count(source->id()) > 0 && source->url() != own_url)
      taken.push_back(source->name());

  std::vector<const ChannelSource*> offered;
  int result = 0;
  for (const ChannelSource* source : sources) {
    if (MediaSource::StringToCategory(source->category()) != category) continue;
    if (!_zm_fits_channel_slot(source->name(), id)) continue;
    bool claimed = false;
    for (const std::string& name : taken) {
      int claims = _zm_taken_name_claims(source->name(), name, independent);
      if (claims < 0) result = -1;
      if (claims != 0) {
        claimed = true;
        break;
      }
    }
    if (result < 0) break;
    if (!claimed && source->url() == own_url && source->available()) offered.push_back(source);
  }
  if (result == 0)
    for (const ChannelSource* source : offered) zm_convert_source_data(source, out);
  MediaModel::CleanQuery(&sources);
  return result;
}
