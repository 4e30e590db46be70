#include "audio_media.h"

#include <zolo_model/media_model.h>
#include <zolo_model/stream.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace zolo::engine {
namespace {

constexpr int kRate = 48000;
constexpr int kFloorDb = -90;
constexpr double kQuietToneDb = -30;
// A meter that posted nothing for this many intervals has an input that stalled.
constexpr int kStaleIntervals = 5;
// Each input produces 10 ms buffers; its queue holds at most this much and drops the oldest.
constexpr guint kSamplesPerBuffer = kRate / 100;
constexpr guint64 kQueueTime = 200 * GST_MSECOND;
constexpr guint64 kMixerLatency = 50 * GST_MSECOND;

// The audio bin hands its meters' messages to its owner instead of posting them on the
// pipeline's bus: they are many, and the owner is the only one who wants them.
struct AudioBin {
  GstBin bin;
  GstAudio* owner;  // set before the pipeline plays, cleared after it stopped
};

GstBinClass* g_parent_class = nullptr;

void HandleMessage(GstBin* bin, GstMessage* message) {
  GstAudio* owner = reinterpret_cast<AudioBin*>(bin)->owner;
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT && owner != nullptr &&
      owner->OnMessage(message)) {
    gst_message_unref(message);
    return;
  }
  g_parent_class->handle_message(bin, message);
}

GType AudioBinType() {
  static const GType type = [] {
    GTypeInfo info{};
    info.class_size = sizeof(GstBinClass);
    info.class_init = [](gpointer klass, gpointer) {
      g_parent_class = GST_BIN_CLASS(g_type_class_peek_parent(klass));
      GST_BIN_CLASS(klass)->handle_message = HandleMessage;
    };
    info.instance_size = sizeof(AudioBin);
    return g_type_register_static(GST_TYPE_BIN, "ZoloAudioBin", &info, GTypeFlags(0));
  }();
  return type;
}

GstElement* Make(const char* factory, GstElement* bin, std::string* error) {
  GstElement* element = gst_element_factory_make(factory, nullptr);
  if (element == nullptr) {
    *error = std::string("missing GStreamer element ") + factory;
    return nullptr;
  }
  gst_bin_add(GST_BIN(bin), element);
  return element;
}

// The one format every input is brought to and the program mix has.
GstElement* MixFormat(GstElement* bin, std::string* error) {
  GstElement* filter = Make("capsfilter", bin, error);
  if (filter == nullptr) return nullptr;
  GstCaps* caps =
      gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "F32LE", "layout", G_TYPE_STRING,
                          "interleaved", "rate", G_TYPE_INT, kRate, "channels", G_TYPE_INT, 2,
                          "channel-mask", GST_TYPE_BITMASK, static_cast<guint64>(0x3), nullptr);
  g_object_set(filter, "caps", caps, nullptr);
  gst_caps_unref(caps);
  return filter;
}

// A bounded queue that drops the oldest audio: a stalled consumer never holds the input up.
GstElement* LeakyQueue(GstElement* bin, std::string* error) {
  GstElement* queue = Make("queue", bin, error);
  if (queue != nullptr)
    g_object_set(queue, "leaky", 2, "max-size-buffers", 0u, "max-size-bytes", 0u, "max-size-time",
                 kQueueTime, nullptr);
  return queue;
}

// A sink that takes whatever comes at once and never holds the pipeline.
GstElement* Drain(GstElement* bin, std::string* error) {
  GstElement* sink = Make("fakesink", bin, error);
  if (sink != nullptr) g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
  return sink;
}

bool LinkToMixer(GstElement* from, GstElement* mixer) {
  GstPad* pad = gst_element_request_pad_simple(mixer, "sink_%u");
  GstPad* out = gst_element_get_static_pad(from, "src");
  bool linked = pad != nullptr && out != nullptr && gst_pad_link(out, pad) == GST_PAD_LINK_OK;
  if (out != nullptr) gst_object_unref(out);
  if (pad != nullptr) gst_object_unref(pad);
  return linked;
}

// A meter's reading in whole dB, from the floor up to full scale.
int WholeDb(double db) {
  if (!std::isfinite(db) || db <= kFloorDb) return kFloorDb;
  return std::min(0, static_cast<int>(std::lround(db)));
}

}  // namespace

GstAudio::GstAudio(const GstAudioOptions& options) : options_(options) {}

GstAudio::~GstAudio() {
  Reset();
}

std::vector<AudioPort> GstAudio::ConfiguredPorts() {
  std::vector<AudioPort> ports;
  std::vector<Stream*> streams;
  if (Stream::QueryByTypeName("audio", nullptr, true, &streams) == 0)
    for (const Stream* stream : streams)
      ports.push_back(AudioPort{stream->name(), !stream->destination().empty(),
                                std::clamp(stream->ObtainParameter("volume", 100), 0, 100),
                                stream->ObtainParameter("mute", 0) == 1});
  MediaModel::CleanQuery(&streams);
  return ports;
}

double GstAudio::TestToneDb(int index) {
  return -10.0 - 4.0 * index;
}

GstElement* GstAudio::Meter(const std::string& name, std::string* error) {
  GstElement* meter = Make("level", bin_, error);
  if (meter == nullptr) return nullptr;
  g_object_set(meter, "interval",
               static_cast<guint64>(std::max(1, options_.level_interval_ms)) * GST_MSECOND,
               "post-messages", TRUE, nullptr);
  meters_[GST_OBJECT(meter)] = name;
  return meter;
}

GstElement* GstAudio::VolumeAndMeter(const AudioPort& port, GstElement* from, std::string* error) {
  GstElement* volume = Make("volume", bin_, error);
  GstElement* meter = Meter(port.name, error);
  if (volume == nullptr || meter == nullptr) return nullptr;
  g_object_set(volume, "volume", std::clamp(port.volume, 0, 100) / 100.0, "mute", port.muted,
               nullptr);
  volumes_[port.name] = volume;
  if (!gst_element_link_many(from, volume, meter, nullptr)) {
    *error = "cannot link the volume of audio port " + port.name;
    return nullptr;
  }
  return meter;
}

bool GstAudio::AddInput(const AudioPort& port, int index, GstElement* mixer, std::string* error) {
  GstElement* source = Make("audiotestsrc", bin_, error);
  GstElement* convert = Make("audioconvert", bin_, error);
  GstElement* resample = Make("audioresample", bin_, error);
  GstElement* format = MixFormat(bin_, error);
  GstElement* queue = LeakyQueue(bin_, error);
  if (!source || !convert || !resample || !format || !queue) return false;
  // A live tone of its own for every port, so each can be told apart by ear.
  double db = options_.test_tones ? TestToneDb(index) : kQuietToneDb;
  g_object_set(source, "is-live", TRUE, "freq", 330.0 + 110.0 * index, "volume",
               std::pow(10.0, db / 20.0), "samplesperbuffer", static_cast<gint>(kSamplesPerBuffer),
               nullptr);
  if (!gst_element_link_many(source, convert, resample, format, queue, nullptr)) {
    *error = "cannot link the input of audio port " + port.name;
    return false;
  }
  GstElement* meter = VolumeAndMeter(port, queue, error);
  if (meter == nullptr) return false;
  if (!LinkToMixer(meter, mixer)) {
    *error = "cannot link audio port " + port.name + " to the program mix";
    return false;
  }
  return true;
}

bool GstAudio::AddOutput(const AudioPort& port, GstElement* tee, std::string* error) {
  GstElement* queue = LeakyQueue(bin_, error);
  GstElement* sink = Drain(bin_, error);
  if (queue == nullptr || sink == nullptr) return false;
  if (!gst_element_link(tee, queue)) {
    *error = "cannot link audio output " + port.name + " to the program mix";
    return false;
  }
  GstElement* meter = VolumeAndMeter(port, queue, error);
  return meter != nullptr && gst_element_link(meter, sink);
}

bool GstAudio::Build(GstElement* pipeline, std::string* error) {
  Reset();
  bin_ = GST_ELEMENT(g_object_new(AudioBinType(), "name", "audio", nullptr));
  gst_object_ref(bin_);
  gst_bin_add(GST_BIN(pipeline), bin_);
  reinterpret_cast<AudioBin*>(bin_)->owner = this;

  // The program mix runs on a live silence of its own, so it keeps time even when every
  // input has stalled.
  GstElement* mixer = Make("audiomixer", bin_, error);
  GstElement* bed = Make("audiotestsrc", bin_, error);
  GstElement* bed_format = MixFormat(bin_, error);
  GstElement* mix_format = MixFormat(bin_, error);
  GstElement* program = Meter(sim::MediaBackend::kProgramMix, error);
  GstElement* tee = Make("tee", bin_, error);
  GstElement* to_sink = LeakyQueue(bin_, error);
  GstElement* sink = Drain(bin_, error);
  if (!mixer || !bed || !bed_format || !mix_format || !program || !tee || !to_sink || !sink)
    return false;
  // Inputs may come a little late on a busy machine; the mix waits for them this long.
  g_object_set(mixer, "latency", kMixerLatency, nullptr);
  gst_util_set_object_arg(G_OBJECT(mixer), "start-time-selection", "first");
  g_object_set(bed, "is-live", TRUE, "samplesperbuffer", static_cast<gint>(kSamplesPerBuffer),
               nullptr);
  gst_util_set_object_arg(G_OBJECT(bed), "wave", "silence");
  if (!gst_element_link(bed, bed_format) || !LinkToMixer(bed_format, mixer) ||
      !gst_element_link_many(mixer, mix_format, program, tee, to_sink, sink, nullptr)) {
    *error = "cannot link the program mix";
    return false;
  }
  int inputs = 0;
  for (const AudioPort& port : options_.ports)
    if (!(port.output ? AddOutput(port, tee, error) : AddInput(port, inputs++, mixer, error)))
      return false;
  // Joining a pipeline that already plays: catch up with it.
  if (!gst_element_sync_state_with_parent(bin_)) {
    *error = "the audio does not play";
    return false;
  }
  return true;
}

void GstAudio::Reset() {
  if (bin_ == nullptr) return;
  reinterpret_cast<AudioBin*>(bin_)->owner = nullptr;
  gst_object_unref(bin_);
  bin_ = nullptr;
  volumes_.clear();
  meters_.clear();
  std::lock_guard<std::mutex> lock(mutex_);
  levels_.clear();
}

void GstAudio::SetVolume(const std::string& port, int volume) {
  auto element = volumes_.find(port);
  if (element != volumes_.end())
    g_object_set(element->second, "volume", std::clamp(volume, 0, 100) / 100.0, nullptr);
}

void GstAudio::SetMute(const std::string& port, bool mute) {
  auto element = volumes_.find(port);
  if (element != volumes_.end()) g_object_set(element->second, "mute", mute, nullptr);
}

gint64 GstAudio::StaleBefore() const {
  return g_get_monotonic_time() -
         gint64{kStaleIntervals} * std::max(1, options_.level_interval_ms) * 1000;
}

GstAudio::AudioLevel GstAudio::Level(const std::string& port) const {
  gint64 stale = StaleBefore();
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = levels_.find(port);
  if (found == levels_.end() || found->second.when < stale) return AudioLevel{};
  return found->second.level;
}

bool GstAudio::WaitUntilLive(int timeout_ms) const {
  gint64 deadline = g_get_monotonic_time() + timeout_ms * G_GINT64_CONSTANT(1000);
  std::set<std::string> names;
  for (const auto& [meter, name] : meters_) names.insert(name);
  for (;;) {
    gint64 stale = StaleBefore();
    size_t live = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      for (const auto& [name, measured] : levels_) live += measured.when >= stale;
    }
    if (live >= names.size()) return true;
    if (g_get_monotonic_time() > deadline) return false;
    g_usleep(10000);
  }
}

bool GstAudio::OnMessage(GstMessage* message) {
  auto meter = meters_.find(GST_MESSAGE_SRC(message));
  if (meter == meters_.end()) return false;
  const GstStructure* fields = gst_message_get_structure(message);
  const GValue* peaks = fields != nullptr && gst_structure_has_name(fields, "level")
                            ? gst_structure_get_value(fields, "peak")
                            : nullptr;
  // The meters report one peak per channel, in dB below full scale.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  if (peaks == nullptr || !G_VALUE_HOLDS(peaks, g_value_array_get_type())) return true;
  const GValueArray* channels = static_cast<const GValueArray*>(g_value_get_boxed(peaks));
  double db[2] = {-HUGE_VAL, -HUGE_VAL};
  for (guint i = 0; channels != nullptr && i < channels->n_values && i < 2; ++i)
    if (G_VALUE_HOLDS_DOUBLE(&channels->values[i]))
      db[i] = g_value_get_double(&channels->values[i]);
  if (channels != nullptr && channels->n_values == 1) db[1] = db[0];
  G_GNUC_END_IGNORE_DEPRECATIONS
  Measured measured;
  measured.level.left = WholeDb(db[0]);
  measured.level.right = WholeDb(db[1]);
  measured.level.level = std::max(measured.level.left, measured.level.right);
  measured.when = g_get_monotonic_time();
  std::lock_guard<std::mutex> lock(mutex_);
  levels_[meter->second] = measured;
  return true;
}

}  // namespace zolo::engine
