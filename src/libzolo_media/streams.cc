// Stream records and the read-only stream queries.
#include <zolo/media/streams.h>
#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <cstdio>
#include <cstring>

namespace {

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::snprintf(field, N, "%s", text.c_str());
}

// Runs a stream query and converts what it found; the model objects are freed either way.
template <class Query>
int Convert(std::vector<zm_stream>* out, Query query) {
  if (out == nullptr) return -3;
  std::vector<Stream*> streams;
  int result = query(&streams);
  if (result < 0) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  zm_convert_stream_data(streams, out);
  MediaModel::CleanQuery(&streams);
  return 0;
}

}  // namespace

void zm_convert_stream_data(Stream* stream, std::vector<zm_stream>* out) {
  if (stream == nullptr || out == nullptr) return;
  zm_stream& record = out->emplace_back();  // value-initialised: all zero
  record.id = stream->id();
  CopyText(record.name, stream->name());
  CopyText(record.type, Stream::TypeToString(Stream::StringToType(stream->type())));
  if (Channel* channel = stream->channel()) {
    record.channel_id = channel->id();
    CopyText(record.channel_name, channel->name());
    record.video_source_id = channel->video_source_id();
    record.audio_source_id = channel->audio_source_id();
  }
  record.enable = stream->enable() ? 1 : 0;
  record.enable_option1 = stream->enable_option(1) ? 1 : 0;
  record.enable_option2 = stream->enable_option(2) ? 1 : 0;
  record.enable_option3 = stream->enable_option(3) ? 1 : 0;
  record.suspend = stream->suspend() ? 1 : 0;
  if (CodecParameterPreset* preset = stream->codec_parameter_preset()) {
    record.codec_preset_id = preset->id();
    CopyText(record.codec_preset_name, preset->name());
  }
  CopyText(record.destination, stream->destination());
  CopyText(record.aux_text, stream->aux_text());
  if (stream->IsAuthenticationExisted("encryption")) {
    record.encryption = stream->ObtainAuthentication("encryption", -1);
    record.key_length = stream->ObtainAuthentication("key_length", -1);
    std::string passphrase;
    stream->ObtainStrAuthentication("passphrase", &passphrase);
    CopyText(record.passphrase, passphrase);
  } else {
    record.encryption = -1;
  }
  auto number = [stream](const char* key) {
    return stream->IsParameterExisted(key) ? stream->ObtainParameter(key, -1) : -1;
  };
  record.latency = number("latency");
  record.source_port = number("source_port");
  record.audio_shift = stream->ObtainParameter("audio_shift", -1);
  CopyText(record.container, stream->container());
  record.multicast = number("multicast");
  record.ttl = number("ttl");
  std::string text;
  if (stream->ObtainStrParameter("netmask", &text) == 0) CopyText(record.netmask, text);
  if (stream->ObtainStrParameter("netprefix", &text) == 0) CopyText(record.netprefix, text);
  if (stream->ObtainStrParameter("ndi_group_name", &text) == 0)
    CopyText(record.ndi_group_name, text);
  if (stream->ObtainStrParameter("ndi_discovery_server", &text) == 0)
    CopyText(record.ndi_discovery_server, text);
  if (stream->IsParameterExisted("ndi_stream_bandwidth"))
    record.ndi_stream_bandwidth = stream->ObtainParameter("ndi_stream_bandwidth", -1);
}

void zm_convert_stream_data(const std::vector<Stream*>& streams, std::vector<zm_stream>* out) {
  if (out != nullptr) out->reserve(out->size() + streams.size());
  for (Stream* stream : streams) zm_convert_stream_data(stream, out);
}

int zm_get_stream(const char* type, const char* name, std::vector<zm_stream>* out) {
  if (type == nullptr) return -3;
  return Convert(out, [&](std::vector<Stream*>* streams) {
    return Stream::QueryByTypeName(type, name, true, streams);
  });
}

int zm_get_stream(int id, std::vector<zm_stream>* out) {
  if (id < 1) return -3;
  return Convert(out, [&](std::vector<Stream*>* streams) {
    Stream* stream = nullptr;
    int result = Stream::QueryById(id, true, &stream);
    if (result == 0) streams->push_back(stream);
    return result;
  });
}

int zm_get_stream_by_pattern(const char* pattern, std::vector<zm_stream>* out) {
  if (pattern == nullptr) return -3;
  return Convert(out, [&](std::vector<Stream*>* streams) {
    return Stream::QueryByPattern(pattern, true, streams);
  });
}

int zm_get_schedule_stream(std::vector<zm_stream>* out) {
  return Convert(out, [](std::vector<Stream*>* streams) {
    return Stream::QueryByPattern("%sched%", streams);
  });
}

int zm_get_webrtc_stream(std::vector<zm_stream>* out) {
  return Convert(out, [](std::vector<Stream*>* streams) {
    return Stream::QueryByDestPattern("webrtc://%", true, streams);
  });
}

int zm_get_stream_channel_id(const char* type, const char* name) {
  if (type == nullptr && name == nullptr) return -3;
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName(type, name, &streams) < 0) return -5;
  int id = 0;
  if (!streams.empty() && streams.front()->channel() != nullptr)
    id = streams.front()->channel()->id();
  MediaModel::CleanQuery(&streams);
  return id;
}

int zm_get_stream_codec_param(const char* type, const char* name, std::string* out) {
  if (type == nullptr || name == nullptr || out == nullptr) return -3;
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName(type, name, true, &streams) < 0 || streams.empty()) {
    MediaModel::CleanQuery(&streams);
    return -5;
  }
  CodecParameterPreset* attached = streams.front()->codec_parameter_preset();
  int preset_id = attached ? attached->id() : 0;
  MediaModel::CleanQuery(&streams);
  CodecParameterPreset* preset = nullptr;
  if (CodecParameterPreset::QueryById(preset_id, &preset) < 0) return -5;
  *out = preset->video_codec_parameter();
  delete preset;
  return 0;
}
