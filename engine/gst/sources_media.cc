#include "sources_media.h"

#include <unistd.h>
#include <zolo/sysroot.h>

#include <algorithm>
#include <cstring>

#include "common/log.h"

namespace zolo::engine {
namespace {

constexpr const char* kLogSource = "zolo-media-engine";
// A source that never delivered its first frame is given this long to connect.
constexpr gint64 kFirstFrameUs = 10 * G_USEC_PER_SEC;
constexpr guint kWatchdogMs = 500;

// Folders a "file://" source may play from (below the sandbox root).
constexpr const char* kMediaFolders[] = {"/usr/share/media/", "/media/", "/var/lib/zolo/media/"};

// URI schemes played by a decoding bin, and whether their source keeps time itself.
struct Scheme {
  const char* prefix;
  bool live;
};
constexpr Scheme kSchemes[] = {
    {"rtsp://", true},   {"rtsps://", true}, {"srt://", true},
    {"rtmp://", true},   {"rtmps://", true}, {"http://", false},
    {"https://", false}, {"file://", false}, {"v4l2://", true},
};

bool StartsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// A file source must stay inside the media folders, whatever its dots and links say.
bool AllowedFile(const std::string& uri, std::string* path) {
  char* resolved = realpath(zolo::SysrootPath(uri.substr(7)).c_str(), nullptr);
  if (resolved == nullptr) return false;
  std::string real = resolved;
  free(resolved);
  for (const char* folder : kMediaFolders)
    if (StartsWith(real, zolo::SysrootPath(folder).c_str())) {
      *path = real;
      return true;
    }
  return false;
}

}  // namespace

ChannelInput::ChannelInput(GstMedia& media, const InputSetup& setup)
    : media_(media), setup_(setup) {
  gst_segment_init(&segment_, GST_FORMAT_TIME);
  retry_ms_ = media_.options().retry_first_ms;
}

ChannelInput::~ChannelInput() {
  Shutdown();
  if (slate_pad_ != nullptr) gst_object_unref(slate_pad_);
  if (source_pad_ != nullptr) gst_object_unref(source_pad_);
}

void ChannelInput::Shutdown() {
  if (watchdog_ != nullptr) {
    g_source_destroy(watchdog_);
    g_source_unref(watchdog_);
  }
  watchdog_ = nullptr;
}

bool ChannelInput::Build(std::string* error) {
  GstElement* pipeline = media_.pipeline();
  const GstMediaOptions& o = media_.options();
  // The slate: a live "no signal" picture with the channel's name.
  GstElement* slate = GstMedia::AddElement(pipeline, "videotestsrc", error);
  GstElement* slate_caps = GstMedia::AddElement(pipeline, "capsfilter", error);
  GstElement* text = GstMedia::AddElement(pipeline, "textoverlay", error);
  selector_ = GstMedia::AddElement(pipeline, "input-selector", error);
  tee_ = GstMedia::AddElement(pipeline, "tee", error);
  GstElement* to_last = GstMedia::AddElement(pipeline, "queue", error);
  last_ = GstMedia::AddElement(pipeline, "fakesink", error);
  if (!slate || !slate_caps || !text || !selector_ || !tee_ || !to_last || !last_) return false;
  g_object_set(slate, "is-live", TRUE, nullptr);
  gst_util_set_object_arg(G_OBJECT(slate), "pattern", "solid-color");
  g_object_set(slate, "foreground-color", 0xff202428u, nullptr);
  GstCaps* slow =
      gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                          o.width, "height", G_TYPE_INT, o.height, "framerate", GST_TYPE_FRACTION,
                          1, 1, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
  g_object_set(slate_caps, "caps", slow, nullptr);
  gst_caps_unref(slow);
  std::string words = "no signal\n" + setup_.name;
  g_object_set(text, "text", words.c_str(), "font-desc", "Sans 20", nullptr);
  gst_util_set_object_arg(G_OBJECT(text), "valignment", "center");
  gst_util_set_object_arg(G_OBJECT(text), "halignment", "center");
  GstCaps* raw = media_.RawCaps();
  g_object_set(slate_caps, "caps", raw, nullptr);
  gst_caps_unref(raw);
  // Inactive sources are dropped at once, never held until the active one catches up.
  g_object_set(selector_, "sync-streams", FALSE, nullptr);
  // The latest frame for snapshots; a leaky queue so a snapshot never holds the input.
  g_object_set(to_last, "leaky", 2, "max-size-buffers", 1u, "max-size-bytes", 0u, "max-size-time",
               guint64{0}, nullptr);
  g_object_set(last_, "sync", FALSE, "async", FALSE, "enable-last-sample", TRUE, nullptr);
  if (!gst_element_link_many(slate, slate_caps, text, nullptr) ||
      !gst_element_link_many(selector_, tee_, to_last, last_, nullptr)) {
    *error = "cannot link the slate of channel " + std::to_string(setup_.channel);
    return false;
  }
  slate_pad_ = gst_element_request_pad_simple(selector_, "sink_%u");
  source_pad_ = gst_element_request_pad_simple(selector_, "sink_%u");
  GstPad* slate_src = gst_element_get_static_pad(text, "src");
  gst_pad_add_probe(slate_src, GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM, OnFormatQuery, this, nullptr);
  bool linked = gst_pad_link(slate_src, slate_pad_) == GST_PAD_LINK_OK;
  gst_object_unref(slate_src);
  if (!linked) {
    *error = "cannot link the slate of channel " + std::to_string(setup_.channel);
    return false;
  }
  g_object_set(selector_, "active-pad", slate_pad_, nullptr);
  // The source's pad answers for its latency even while no source is linked to it.
  gst_pad_add_probe(source_pad_, GST_PAD_PROBE_TYPE_QUERY_UPSTREAM, OnLatencyQuery, this, nullptr);
  watchdog_ = media_.Every(kWatchdogMs, OnWatchdog, this);
  // The source itself is started from the control thread once the pipeline plays.
  media_.Later(0, [this] { StartSource(); });
  return true;
}

ChannelInput::Kind ChannelInput::KindOf(std::string* uri) const {
  const std::string& u = setup_.uri;
  *uri = u;
  if (u.empty()) return Kind::kPattern;
  // A capture port is its V4L2 device when this host has it; otherwise a test pattern.
  if (StartsWith(u, "capture://video/")) {
    std::string device = "/dev/video" + u.substr(std::strlen("capture://video/"));
    if (access(device.c_str(), R_OK) != 0) return Kind::kPattern;
    *uri = "v4l2://" + device;
    return Kind::kUri;
  }
  if (StartsWith(u, "v4l2://") && access(u.substr(7).c_str(), R_OK) != 0) return Kind::kPattern;
  for (const Scheme& scheme : kSchemes)
    if (StartsWith(u, scheme.prefix)) return Kind::kUri;
  return Kind::kUnsupported;
}

GstElement* ChannelInput::MakeSourceBin(std::string* error) {
  std::string uri;
  Kind kind = KindOf(&uri);
  if (kind == Kind::kUnsupported) {
    *error = "unsupported source " + setup_.uri;
    return nullptr;
  }
  std::string file;
  if (StartsWith(uri, "file://")) {
    if (!AllowedFile(uri, &file)) {
      *error = "refused source " + setup_.uri + ": not a file of the media folders";
      return nullptr;
    }
    gchar* real_uri = gst_filename_to_uri(file.c_str(), nullptr);
    uri = real_uri;
    g_free(real_uri);
  }
  const GstMediaOptions& o = media_.options();
  GstElement* bin = gst_bin_new(nullptr);
  // A decoding bin changes state asynchronously while it finds its streams; the source bin
  // keeps that to itself, so the pipeline never leaves PLAYING for it.
  g_object_set(bin, "async-handling", TRUE, nullptr);
  // The normalising chain: re-timing, format, size, rate, then a queue of two frames that
  // drops the oldest, so this source can never hold up anything after it.
  GstElement* retime = GstMedia::AddElement(bin, "identity", error);
  GstElement* convert = GstMedia::AddElement(bin, "videoconvert", error);
  GstElement* scale = GstMedia::AddElement(bin, "videoscale", error);
  GstElement* rate = GstMedia::AddElement(bin, "videorate", error);
  GstElement* caps = GstMedia::AddElement(bin, "capsfilter", error);
  GstElement* queue = GstMedia::AddElement(bin, "queue", error);
  if (!retime || !convert || !scale || !rate || !caps || !queue) {
    gst_object_unref(bin);
    return nullptr;
  }
  GstCaps* raw = media_.RawCaps();
  g_object_set(caps, "caps", raw, nullptr);
  gst_caps_unref(raw);
  g_object_set(queue, "leaky", 2, "max-size-buffers", 2u, "max-size-bytes", 0u, "max-size-time",
               guint64{0}, nullptr);
  gst_element_link_many(retime, convert, scale, rate, caps, queue, nullptr);
  live_ = true;
  if (kind == Kind::kPattern) {
    GstElement* pattern = GstMedia::AddElement(bin, "videotestsrc", error);
    GstElement* size = GstMedia::AddElement(bin, "capsfilter", error);
    GstElement* label = GstMedia::AddElement(bin, "textoverlay", error);
    if (!pattern || !size || !label) {
      gst_object_unref(bin);
      return nullptr;
    }
    g_object_set(pattern, "is-live", TRUE, nullptr);
    unsigned colour = GstMedia::TestColour(setup_.channel);
    if (o.test_colours) {
      gst_util_set_object_arg(G_OBJECT(pattern), "pattern", "solid-color");
      g_object_set(pattern, "foreground-color", colour, nullptr);
    } else {
      // A moving ball on a dark tint of the input's own colour, with its name.
      gst_util_set_object_arg(G_OBJECT(pattern), "pattern", "ball");
      g_object_set(pattern, "background-color", 0xff000000 | ((colour >> 2) & 0x3f3f3f), nullptr);
      g_object_set(label, "text", setup_.name.c_str(), "font-desc", "Sans Bold 24", nullptr);
      gst_util_set_object_arg(G_OBJECT(label), "valignment", "center");
      gst_util_set_object_arg(G_OBJECT(label), "halignment", "center");
    }
    g_object_set(size, "caps", raw = media_.RawCaps(), nullptr);
    gst_caps_unref(raw);
    if (o.test_colours) g_object_set(label, "silent", TRUE, nullptr);
    gst_element_link_many(pattern, size, label, retime, nullptr);
  } else {
    for (const Scheme& scheme : kSchemes)
      if (StartsWith(uri, scheme.prefix)) live_ = scheme.live;
    GstElement* decode = GstMedia::AddElement(bin, "uridecodebin", error);
    if (decode == nullptr) {
      gst_object_unref(bin);
      return nullptr;
    }
    g_object_set(decode, "uri", uri.c_str(), nullptr);
    g_signal_connect(decode, "pad-added", G_CALLBACK(OnPadAdded), this);
    // A file plays at its own pace against the clock.
    if (!live_) g_object_set(retime, "sync", TRUE, nullptr);
  }
  GstPad* out = gst_element_get_static_pad(queue, "src");
  GstPad* ghost = gst_ghost_pad_new("src", out);
  gst_object_unref(out);
  gst_element_add_pad(bin, ghost);
  // The selector and the mixers never wait for this source's latency: it is re-timed.
  gst_pad_add_probe(ghost, GST_PAD_PROBE_TYPE_QUERY_UPSTREAM, OnLatencyQuery, this, nullptr);
  gst_pad_add_probe(ghost, GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM, OnFormatQuery, this, nullptr);
  GstPad* in = gst_element_get_static_pad(retime, "sink");
  gst_pad_add_probe(
      in,
      static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
      OnSourceData, this, nullptr);
  gst_object_unref(in);
  normaliser_ = retime;
  return bin;
}

void ChannelInput::OnPadAdded(GstElement*, GstPad* pad, gpointer data) {
  auto* self = static_cast<ChannelInput*>(data);
  GstCaps* caps = gst_pad_get_current_caps(pad);
  if (caps == nullptr) caps = gst_pad_query_caps(pad, nullptr);
  const char* media = gst_structure_get_name(gst_caps_get_structure(caps, 0));
  bool video = g_str_has_prefix(media, "video/");
  gst_caps_unref(caps);
  GstElement* bin = GST_ELEMENT(gst_element_get_parent(self->normaliser_));
  GstPad* sink = nullptr;
  if (video) {
    sink = gst_element_get_static_pad(self->normaliser_, "sink");
  } else {
    // Sound and anything else of the source are not mixed here: a sink that never waits.
    GstElement* drop = gst_element_factory_make("fakesink", nullptr);
    g_object_set(drop, "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(bin), drop);
    gst_element_sync_state_with_parent(drop);
    sink = gst_element_get_static_pad(drop, "sink");
  }
  if (!gst_pad_is_linked(sink)) gst_pad_link(pad, sink);
  gst_object_unref(sink);
  gst_object_unref(bin);
}

// What an input offers is fixed: queries for its format and buffers are answered here and
// never travel on through the selector, the tee and every mixer behind it.
GstPadProbeReturn ChannelInput::OnFormatQuery(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* self = static_cast<ChannelInput*>(data);
  GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
  switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_CAPS: {
      GstCaps* raw = self->media_.RawCaps();
      GstCaps* filter = nullptr;
      gst_query_parse_caps(query, &filter);
      if (filter != nullptr) {
        GstCaps* both = gst_caps_intersect(raw, filter);
        gst_caps_unref(raw);
        raw = both;
      }
      gst_query_set_caps_result(query, raw);
      gst_caps_unref(raw);
      return GST_PAD_PROBE_HANDLED;
    }
    case GST_QUERY_ACCEPT_CAPS: {
      GstCaps* caps = nullptr;
      gst_query_parse_accept_caps(query, &caps);
      GstCaps* raw = self->media_.RawCaps();
      gst_query_set_accept_caps_result(query, gst_caps_can_intersect(caps, raw));
      gst_caps_unref(raw);
      return GST_PAD_PROBE_HANDLED;
    }
    case GST_QUERY_ALLOCATION:
      return GST_PAD_PROBE_HANDLED;  // the input allocates its own buffers
    default:
      return GST_PAD_PROBE_OK;
  }
}

// A re-timed source is late by at most a frame when it reaches the mixers.
GstPadProbeReturn ChannelInput::OnLatencyQuery(GstPad*, GstPadProbeInfo* info, gpointer data) {
  GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) return GST_PAD_PROBE_OK;
  auto* self = static_cast<ChannelInput*>(data);
  gst_query_set_latency(query, TRUE, GST_SECOND / self->media_.options().fps, GST_CLOCK_TIME_NONE);
  return GST_PAD_PROBE_HANDLED;
}

// Streaming thread: puts every buffer on the pipeline's running time, keeping the source's
// own spacing from its first buffer on, and turns its end into a failure of the source.
GstPadProbeReturn ChannelInput::OnSourceData(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* self = static_cast<ChannelInput*>(data);
  if (info->type & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    switch (GST_EVENT_TYPE(event)) {
      case GST_EVENT_SEGMENT: {
        const GstSegment* segment = nullptr;
        gst_event_parse_segment(event, &segment);
        gst_segment_copy_into(segment, &self->segment_);
        self->have_offset_ = false;
        // Downstream sees one plain segment whose running time is the pipeline's.
        GstSegment plain;
        gst_segment_init(&plain, GST_FORMAT_TIME);
        gst_event_unref(event);
        GST_PAD_PROBE_INFO_DATA(info) = gst_event_new_segment(&plain);
        return GST_PAD_PROBE_OK;
      }
      case GST_EVENT_EOS: {
        guint generation = self->generation_;
        self->media_.Later(0, [self, generation] {
          if (generation == self->generation_) self->Failed("the source ended");
        });
        return GST_PAD_PROBE_DROP;
      }
      case GST_EVENT_FLUSH_START:
      case GST_EVENT_FLUSH_STOP:
      case GST_EVENT_GAP:
        return GST_PAD_PROBE_DROP;
      default:
        return GST_PAD_PROBE_OK;
    }
  }
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  GstClockTime pts = GST_BUFFER_PTS(buffer);
  GstClockTime at = pts != GST_CLOCK_TIME_NONE
                        ? gst_segment_to_running_time(&self->segment_, GST_FORMAT_TIME, pts)
                        : GST_CLOCK_TIME_NONE;
  GstElement* pipeline = self->media_.pipeline();
  GstClock* clock = gst_element_get_clock(pipeline);
  if (clock == nullptr) return GST_PAD_PROBE_DROP;
  GstClockTime now = gst_clock_get_time(clock) - gst_element_get_base_time(pipeline);
  gst_object_unref(clock);
  if (at == GST_CLOCK_TIME_NONE) {
    at = now;
  } else {
    if (!self->have_offset_) {
      self->offset_ = GST_CLOCK_DIFF(at, now);
      self->have_offset_ = true;
    }
    at = static_cast<GstClockTime>(static_cast<GstClockTimeDiff>(at) + self->offset_);
    // A source whose clock ran away is caught up again rather than left late or early.
    if (GST_CLOCK_DIFF(now, at) > GST_SECOND || GST_CLOCK_DIFF(at, now) > GST_SECOND) {
      self->offset_ += GST_CLOCK_DIFF(at, now);
      at = now;
    }
  }
  buffer = gst_buffer_make_writable(buffer);
  GST_BUFFER_PTS(buffer) = at;
  GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
  GST_PAD_PROBE_INFO_DATA(info) = buffer;
  self->last_frame_us_.store(g_get_monotonic_time());
  if (!self->signal_.load() && self->probe_generation_ != self->generation_) {
    guint generation = self->generation_;
    self->probe_generation_ = generation;
    self->media_.Later(0, [self, generation] {
      if (generation == self->generation_ && self->source_ != nullptr) self->Show(true);
    });
  }
  return GST_PAD_PROBE_OK;
}

void ChannelInput::StartSource() {
  if (source_ != nullptr || !connected_) return;
  std::string error;
  GstElement* bin = MakeSourceBin(&error);
  if (bin == nullptr) {
    // A source this engine cannot play is said once and left on the slate.
    ZLOG(1, "channel %d (%s): %s", setup_.channel, setup_.name.c_str(), error.c_str());
    return;
  }
  ++generation_;
  gst_bin_add(GST_BIN(media_.pipeline()), bin);
  GstPad* out = gst_element_get_static_pad(bin, "src");
  gst_pad_link(out, source_pad_);
  gst_object_unref(out);
  source_ = bin;
  built_us_ = g_get_monotonic_time();
  last_frame_us_.store(0);
  if (!gst_element_sync_state_with_parent(bin)) Failed("the source does not start");
}

void ChannelInput::RemoveSource() {
  if (source_ == nullptr) return;
  GstElement* bin = source_;
  source_ = nullptr;
  normaliser_ = nullptr;
  ++generation_;
  gst_element_set_locked_state(bin, TRUE);
  gst_element_set_state(bin, GST_STATE_NULL);
  gst_bin_remove(GST_BIN(media_.pipeline()), bin);
}

void ChannelInput::Show(bool source) {
  if (source) retry_ms_ = media_.options().retry_first_ms;
  g_object_set(selector_, "active-pad", source ? source_pad_ : slate_pad_, nullptr);
  if (signal_.exchange(source) != source) media_.Announce(setup_.channel, source);
}

bool ChannelInput::Owns(GstObject* element) const {
  if (source_ == nullptr) return false;
  for (GstObject* at = element; at != nullptr; at = GST_OBJECT_PARENT(at))
    if (at == GST_OBJECT(source_)) return true;
  return false;
}

void ChannelInput::Failed(const std::string& why) {
  if (source_ == nullptr) return;
  ZLOG(1, "channel %d (%s): %s; showing the slate, trying again in %d ms", setup_.channel,
       setup_.name.c_str(), why.c_str(), retry_ms_);
  Show(false);
  RemoveSource();
  int delay = retry_ms_;
  retry_ms_ = std::min(retry_ms_ * 2, media_.options().retry_max_ms);
  guint generation = generation_;
  media_.Later(delay, [this, generation] {
    if (generation == generation_) StartSource();
  });
}

void ChannelInput::Connect(bool connect, const std::string& uri) {
  bool changed = !uri.empty() && uri != setup_.uri;
  if (!uri.empty()) setup_.uri = uri;
  if (connect == connected_ && !changed) return;
  connected_ = connect;
  Show(false);
  RemoveSource();
  retry_ms_ = media_.options().retry_first_ms;
  if (connected_) StartSource();
}

gboolean ChannelInput::OnWatchdog(gpointer data) {
  auto* self = static_cast<ChannelInput*>(data);
  if (self->source_ == nullptr) return G_SOURCE_CONTINUE;
  gint64 now = g_get_monotonic_time();
  gint64 last = self->last_frame_us_.load();
  bool listener = self->setup_.uri.find("mode=listener") != std::string::npos ||
                  (StartsWith(self->setup_.uri, "rtmp://") &&
                   self->setup_.uri.find("0.0.0.0") != std::string::npos);
  if (last == 0) {
    // Waiting for its first frame: a listener waits as long as it takes.
    if (!listener && now - self->built_us_ > kFirstFrameUs) self->Failed("no picture arrived");
  } else if (now - last > gint64{self->media_.options().stall_ms} * 1000) {
    self->Failed("the source stalled");
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace zolo::engine
