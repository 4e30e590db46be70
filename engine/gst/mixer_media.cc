#include "mixer_media.h"

#include <zolo/media/mixer_config.h>

#include <algorithm>
#include <cmath>

namespace zolo::engine {
namespace {

int Round(double value) {
  return static_cast<int>(std::lround(value));
}

}  // namespace

VideoMixer::VideoMixer(GstMedia& media, int id) : media_(media), id_(id) {}

VideoMixer::~VideoMixer() {
  for (Branch& branch : branches_) gst_object_unref(branch.pad);
}

bool VideoMixer::Build(std::string* error) {
  GstElement* pipeline = media_.pipeline();
  compositor_ = GstMedia::AddElement(pipeline, "compositor", error);
  GstElement* caps = GstMedia::AddElement(pipeline, "capsfilter", error);
  GstElement* queue = GstMedia::AddElement(pipeline, "queue", error);
  last_ = GstMedia::AddElement(pipeline, "fakesink", error);
  if (!compositor_ || !caps || !queue || !last_) return false;
  // The mixer keeps time on its own: a late or missing input never holds a frame back.
  g_object_set(compositor_, "ignore-inactive-pads", TRUE, nullptr);
  gst_util_set_object_arg(G_OBJECT(compositor_), "background", "black");
  GstCaps* raw = media_.RawCaps();
  g_object_set(caps, "caps", raw, nullptr);
  gst_caps_unref(raw);
  g_object_set(queue, "leaky", 2, "max-size-buffers", 1u, "max-size-bytes", 0u, "max-size-time",
               guint64{0}, nullptr);
  g_object_set(last_, "sync", FALSE, "async", FALSE, "enable-last-sample", TRUE, nullptr);
  if (!gst_element_link_many(compositor_, caps, queue, last_, nullptr)) {
    *error = "cannot link mixer " + std::to_string(id_);
    return false;
  }
  // A new layout is applied once the mixer has picked the frames it is about to mix, so the
  // very next frame shows it whole.
  g_object_set(compositor_, "emit-signals", TRUE, nullptr);
  g_signal_connect(compositor_, "samples-selected", G_CALLBACK(OnSamplesSelected), this);
  GstPad* src = gst_element_get_static_pad(compositor_, "src");
  gst_pad_add_probe(src, GST_PAD_PROBE_TYPE_BUFFER, OnFrame, this, nullptr);
  gst_object_unref(src);
  return true;
}

bool VideoMixer::AddInput(int channel, int source, GstElement* tee, std::string* error) {
  GstElement* pipeline = media_.pipeline();
  GstElement* queue = GstMedia::AddElement(pipeline, "queue", error);
  GstElement* crop = GstMedia::AddElement(pipeline, "videocrop", error);
  if (queue == nullptr || crop == nullptr) return false;
  g_object_set(queue, "leaky", 2, "max-size-buffers", 2u, "max-size-bytes", 0u, "max-size-time",
               guint64{0}, nullptr);
  GstPad* pad = gst_element_request_pad_simple(compositor_, "sink_%u");
  GstPad* out = gst_element_get_static_pad(crop, "src");
  bool linked =
      gst_element_link_many(tee, queue, crop, nullptr) && gst_pad_link(out, pad) == GST_PAD_LINK_OK;
  gst_object_unref(out);
  // Hidden until a layout shows it.
  g_object_set(pad, "alpha", 0.0, nullptr);
  branches_.push_back(Branch{source, crop, pad});
  if (!linked)
    *error = "cannot link channel " + std::to_string(channel) + " to mixer " + std::to_string(id_);
  return linked;
}

guint64 VideoMixer::frames() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return frames_;
}

void VideoMixer::ShowLayout(const std::string& content) {
  std::vector<zm_video_layout> windows;
  if (zm_parse_layout_string(content.c_str(), &windows) != 0) return;
  const GstMediaOptions& o = media_.options();
  const double width = o.width, height = o.height;
  std::map<int, Placement> next;
  for (const zm_video_layout& w : windows) {
    // The window in pixels; every input has the mixer's own size.
    double wx = w.x * width, wy = w.y * height, ww = w.w * width, wh = w.h * height;
    if (ww < 1 || wh < 1) continue;
    Placement p;
    p.shown = true;
    p.zorder = static_cast<guint>(std::max(0, w.z) + 1);
    if (w.crop == 1) {
      // Fill: the input covers the window, what lies outside is cropped away.
      double scale = std::max(ww / width, wh / height);
      int keep_w = std::min(o.width, Round(ww / scale)),
          keep_h = std::min(o.height, Round(wh / scale));
      p.crop_left = (o.width - keep_w) / 2;
      p.crop_right = o.width - keep_w - p.crop_left;
      p.crop_top = (o.height - keep_h) / 2;
      p.crop_bottom = o.height - keep_h - p.crop_top;
      p.x = Round(wx), p.y = Round(wy), p.width = Round(ww), p.height = Round(wh);
    } else {
      // Fit: the whole input inside the window, centred, its shape kept.
      double scale = std::min(ww / width, wh / height);
      p.width = Round(width * scale), p.height = Round(height * scale);
      p.x = Round(wx + (ww - p.width) / 2), p.y = Round(wy + (wh - p.height) / 2);
    }
    next[w.id] = p;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  next_ = std::move(next);
  pending_ = true;
}

void VideoMixer::OnSamplesSelected(GstElement*, GstSegment*, guint64, guint64, guint64,
                                   GstStructure*, gpointer data) {
  auto* self = static_cast<VideoMixer*>(data);
  std::map<int, Placement> placements;
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (!self->pending_) return;
    self->pending_ = false;
    self->applying_ = true;
    placements.swap(self->next_);
  }
  self->Apply(placements);
}

GstPadProbeReturn VideoMixer::OnFrame(GstPad*, GstPadProbeInfo*, gpointer data) {
  auto* self = static_cast<VideoMixer*>(data);
  std::lock_guard<std::mutex> lock(self->mutex_);
  ++self->frames_;
  if (self->applying_) {
    self->applying_ = false;
    self->layout_shown_us_ = g_get_monotonic_time();
  }
  return GST_PAD_PROBE_OK;
}

gint64 VideoMixer::layout_shown_us() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return layout_shown_us_;
}

// Called in the compositor's own thread before it mixes a frame: that frame has all of it.
void VideoMixer::Apply(const std::map<int, Placement>& placements) {
  for (Branch& branch : branches_) {
    auto found = placements.find(branch.source);
    if (found == placements.end()) {
      g_object_set(branch.pad, "alpha", 0.0, nullptr);
      continue;
    }
    const Placement& p = found->second;
    g_object_set(branch.crop, "left", p.crop_left, "right", p.crop_right, "top", p.crop_top,
                 "bottom", p.crop_bottom, nullptr);
    g_object_set(branch.pad, "xpos", p.x, "ypos", p.y, "width", p.width, "height", p.height,
                 "zorder", p.zorder, "alpha", 1.0, nullptr);
  }
}

}  // namespace zolo::engine
