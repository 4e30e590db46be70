// CodecParameterPreset: a named set of video and audio codec parameters (table
// "codec_parameter_preset"), with the names of its codecs.
#pragma once

#include <string>

class CodecParameterPreset {
 public:
  // The preset `id` as a new object the caller deletes. 0; -5 not found; -1 database error.
  static int QueryById(int id, CodecParameterPreset** out);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  // Codec names ("H.264", "AAC"...); empty when the preset has no such codec.
  const std::string& video_codec_name() const { return video_codec_name_; }
  const std::string& audio_codec_name() const { return audio_codec_name_; }
  // The codec parameters as JSON text.
  const std::string& video_codec_parameter() const { return video_codec_parameter_; }
  const std::string& audio_codec_parameter() const { return audio_codec_parameter_; }
  bool builtin() const { return builtin_; }

 private:
  friend class Stream;  // builds presets from its joined query
  CodecParameterPreset() = default;
  int id_ = 0;
  std::string name_;
  std::string video_codec_name_;
  std::string audio_codec_name_;
  std::string video_codec_parameter_;
  std::string audio_codec_parameter_;
  bool builtin_ = false;
};
