#include "gst_media.h"

#include <gst/base/gstbasesink.h>
#include <gst/video/video.h>
#include <zolo/media/mixer_config.h>

#include <cmath>
#include <cstdio>

namespace zolo::engine {
namespace {

constexpr GstClockTime kConvertTimeout = 2 * GST_SECOND;
constexpr int kProgramMixer = 1;  // the main video mixer's id

GstElement* Make(const char* factory, GstElement* bin, std::string* error) {
  GstElement* element = gst_element_factory_make(factory, nullptr);
  if (element == nullptr) {
    *error = std::string("missing GStreamer element ") + factory;
    return nullptr;
  }
  gst_bin_add(GST_BIN(bin), element);
  return element;
}

GstCaps* RawCaps(const GstMediaOptions& o) {
  return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                             o.width, "height", G_TYPE_INT, o.height, "framerate",
                             GST_TYPE_FRACTION, o.fps, 1, "pixel-aspect-ratio", GST_TYPE_FRACTION,
                             1, 1, nullptr);
}

// A queue that holds at most two frames and drops the oldest: a stalled consumer never
// holds up the input behind it.
GstElement* LeakyQueue(GstElement* bin, std::string* error) {
  GstElement* queue = Make("queue", bin, error);
  if (queue != nullptr)
    g_object_set(queue, "leaky", 2, "max-size-buffers", 2u, "max-size-bytes", 0u, "max-size-time",
                 static_cast<guint64>(0), nullptr);
  return queue;
}

// A sink that keeps the latest frame for snapshots and never holds the pipeline.
GstElement* LastFrameSink(GstElement* bin, std::string* error) {
  GstElement* sink = Make("fakesink", bin, error);
  if (sink != nullptr)
    g_object_set(sink, "sync", FALSE, "async", FALSE, "enable-last-sample", TRUE, nullptr);
  return sink;
}

int WriteJpeg(GstElement* sink, int width, int height, const std::string& path) {
  GstSample* sample = gst_base_sink_get_last_sample(GST_BASE_SINK(sink));
  if (sample == nullptr) return -1;
  GstCaps* jpeg = gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, width, "height",
                                      G_TYPE_INT, height, nullptr);
  GError* error = nullptr;
  GstSample* converted = gst_video_convert_sample(sample, jpeg, kConvertTimeout, &error);
  gst_caps_unref(jpeg);
  gst_sample_unref(sample);
  if (converted == nullptr) {
    if (error != nullptr) g_error_free(error);
    return -1;
  }
  GstMapInfo map;
  GstBuffer* buffer = gst_sample_get_buffer(converted);
  int result = -1;
  if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
    result = g_file_set_contents(path.c_str(), reinterpret_cast<const gchar*>(map.data),
                                 static_cast<gssize>(map.size), nullptr)
                 ? 0
                 : -1;
    gst_buffer_unmap(buffer, &map);
  }
  gst_sample_unref(converted);
  return result;
}

}  // namespace

GstMedia::GstMedia(const GstMediaOptions& options) : options_(options), audio_(options.audio) {
  gst_init(nullptr, nullptr);
}

GstMedia::~GstMedia() {
  Stop();
}

unsigned GstMedia::TestColour(int source) {
  static const unsigned kColours[] = {0xffe02020, 0xff20c020, 0xff2040e0, 0xffe0e020,
                                      0xffe020e0, 0xff20e0e0, 0xffffffff, 0xff808080};
  return kColours[static_cast<unsigned>(source) % (sizeof kColours / sizeof kColours[0])];
}

bool GstMedia::AddInput(int source, const std::string& name, std::string* error) {
  GstElement* bin = pipeline_;
  GstElement* src = Make("videotestsrc", bin, error);
  if (src == nullptr) return false;
  g_object_set(src, "is-live", TRUE, nullptr);
  GstElement* first = src;
  if (options_.test_colours) {
    gst_util_set_object_arg(G_OBJECT(src), "pattern", "solid-color");
    g_object_set(src, "foreground-color", TestColour(source), nullptr);
  } else {
    // A moving ball on a dark tint of the input's colour: live, and each input its own.
    gst_util_set_object_arg(G_OBJECT(src), "pattern", "ball");
    g_object_set(src, "background-color", 0xff000000 | ((TestColour(source) >> 2) & 0x3f3f3f),
                 nullptr);
    GstElement* label = Make("textoverlay", bin, error);
    if (label == nullptr) return false;
    g_object_set(label, "text", name.c_str(), "font-desc", "Sans Bold 24", nullptr);
    gst_util_set_object_arg(G_OBJECT(label), "valignment", "center");
    gst_util_set_object_arg(G_OBJECT(label), "halignment", "center");
    if (!gst_element_link(src, label)) return false;
    first = label;
  }
  // Every input is normalised to one format, size and rate before anything else sees it.
  GstElement* convert = Make("videoconvert", bin, error);
  GstElement* scale = Make("videoscale", bin, error);
  GstElement* rate = Make("videorate", bin, error);
  GstElement* caps = Make("capsfilter", bin, error);
  GstElement* tee = Make("tee", bin, error);
  GstElement* to_last = LeakyQueue(bin, error);
  GstElement* last = LastFrameSink(bin, error);
  GstElement* to_mixer = LeakyQueue(bin, error);
  if (!convert || !scale || !rate || !caps || !tee || !to_last || !last || !to_mixer) return false;
  GstCaps* raw = RawCaps(options_);
  g_object_set(caps, "caps", raw, nullptr);
  gst_caps_unref(raw);
  if (!gst_element_link_many(first, convert, scale, rate, caps, tee, nullptr) ||
      !gst_element_link_many(tee, to_last, last, nullptr) || !gst_element_link(tee, to_mixer)) {
    *error = "cannot link the input of source " + std::to_string(source);
    return false;
  }
  GstPad* pad = gst_element_request_pad_simple(compositor_, "sink_%u");
  GstPad* out = gst_element_get_static_pad(to_mixer, "src");
  bool linked = gst_pad_link(out, pad) == GST_PAD_LINK_OK;
  gst_object_unref(out);
  // Hidden until a layout shows it.
  g_object_set(pad, "alpha", 0.0, nullptr);
  inputs_[source] = Input{last, pad};
  if (!linked) *error = "cannot link source " + std::to_string(source) + " to the mixer";
  return linked;
}

bool GstMedia::Start(const std::vector<std::pair<int, std::string>>& sources, std::string* error) {
  pipeline_ = gst_pipeline_new("engine");
  compositor_ = Make("compositor", pipeline_, error);
  GstElement* caps = Make("capsfilter", pipeline_, error);
  GstElement* queue = LeakyQueue(pipeline_, error);
  // The program's latest frame as it leaves the mixer (the mixer is live and keeps time).
  program_ = LastFrameSink(pipeline_, error);
  if (!compositor_ || !caps || !queue || !program_) return false;
  gst_util_set_object_arg(G_OBJECT(compositor_), "background", "black");
  GstCaps* raw = RawCaps(options_);
  g_object_set(caps, "caps", raw, nullptr);
  gst_caps_unref(raw);
  if (!gst_element_link_many(compositor_, caps, queue, program_, nullptr)) {
    *error = "cannot link the program mixer";
    return false;
  }
  GstPad* src = gst_element_get_static_pad(compositor_, "src");
  gst_pad_add_probe(src, GST_PAD_PROBE_TYPE_BUFFER, OnProgramFrame, this, nullptr);
  gst_object_unref(src);
  for (const auto& [id, name] : sources)
    if (!AddInput(id, name, error)) return false;
  if (!audio_.Build(pipeline_, error)) return false;
  if (gst_element_set_state(pipeline_, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    *error = "the pipeline does not play";
    return false;
  }
  return true;
}

void GstMedia::Stop() {
  if (pipeline_ == nullptr) return;
  gst_element_set_state(pipeline_, GST_STATE_NULL);
  audio_.Reset();
  for (auto& [id, input] : inputs_) gst_object_unref(input.mixer_pad);
  inputs_.clear();
  gst_object_unref(pipeline_);
  pipeline_ = compositor_ = program_ = nullptr;
}

guint64 GstMedia::program_frames() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return frames_;
}

bool GstMedia::WaitUntilLive(int timeout_ms) const {
  gint64 deadline = g_get_monotonic_time() + timeout_ms * G_GINT64_CONSTANT(1000);
  auto has_frame = [](GstElement* sink) {
    GstSample* sample = gst_base_sink_get_last_sample(GST_BASE_SINK(sink));
    if (sample != nullptr) gst_sample_unref(sample);
    return sample != nullptr;
  };
  for (const auto& [source, input] : inputs_)
    while (!has_frame(input.last))
      if (g_get_monotonic_time() > deadline)
        return false;
      else
        g_usleep(10000);
  guint64 until = program_frames() + 3;
  while (program_frames() < until)
    if (g_get_monotonic_time() > deadline)
      return false;
    else
      g_usleep(10000);
  return audio_.WaitUntilLive(static_cast<int>((deadline - g_get_monotonic_time()) / 1000));
}

int GstMedia::Snapshot(Picture what, int id, int width, int height, const std::string& path) {
  if (pipeline_ == nullptr) return -1;
  GstElement* sink = program_;
  if (what == Picture::kChannel) {
    auto input = inputs_.find(id);
    if (input == inputs_.end()) return -1;
    sink = input->second.last;
  }
  return WriteJpeg(sink, width, height, path);
}

void GstMedia::ShowLayout(int mixer, const std::string& content) {
  if (mixer != kProgramMixer) return;  // the other mixers are not built yet
  std::vector<zm_video_layout> windows;
  if (zm_parse_layout_string(content.c_str(), &windows) != 0) return;
  std::map<int, Window> next;
  for (const zm_video_layout& w : windows) next[w.id] = Window{w.x, w.y, w.w, w.h, w.z};
  std::lock_guard<std::mutex> lock(mutex_);
  pending_ = std::move(next);
  layout_pending_ = true;
}

GstPadProbeReturn GstMedia::OnProgramFrame(GstPad*, GstPadProbeInfo*, gpointer data) {
  auto* self = static_cast<GstMedia*>(data);
  std::map<int, Window> windows;
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    ++self->frames_;
    if (!self->layout_pending_) return GST_PAD_PROBE_OK;
    self->layout_pending_ = false;
    windows.swap(self->pending_);
  }
  self->ApplyLayout(windows);
  return GST_PAD_PROBE_OK;
}

void GstMedia::ApplyLayout(const std::map<int, Window>& windows) {
  // Called between two frames of the mixer's own thread: the next frame has all of it.
  for (auto& [source, input] : inputs_) {
    auto window = windows.find(source);
    if (window == windows.end()) {
      g_object_set(input.mixer_pad, "alpha", 0.0, nullptr);
      continue;
    }
    const Window& w = window->second;
    g_object_set(input.mixer_pad, "xpos", static_cast<int>(std::lround(w.x * options_.width)),
                 "ypos", static_cast<int>(std::lround(w.y * options_.height)), "width",
                 static_cast<int>(std::lround(w.w * options_.width)), "height",
                 static_cast<int>(std::lround(w.h * options_.height)), "zorder",
                 static_cast<guint>(w.z + 1), "alpha", 1.0, nullptr);
  }
}

}  // namespace zolo::engine
