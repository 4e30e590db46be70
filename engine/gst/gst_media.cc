#include "gst_media.h"

#include <gst/base/gstbasesink.h>
#include <gst/video/video.h>

#include "common/log.h"
#include "mixer_media.h"
#include "sources_media.h"

namespace zolo::engine {
namespace {

constexpr const char* kLogSource = "zolo-media-engine";
constexpr GstClockTime kConvertTimeout = 2 * GST_SECOND;

int WriteJpeg(GstElement* sink, int width, int height, const std::string& path) {
  GstSample* sample = gst_base_sink_get_last_sample(GST_BASE_SINK(sink));
  if (sample == nullptr) {
    ZLOG(1, "no frame yet for %s", path.c_str());
    return -1;
  }
  GstCaps* jpeg = gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, width, "height",
                                      G_TYPE_INT, height, nullptr);
  GError* error = nullptr;
  GstSample* converted = gst_video_convert_sample(sample, jpeg, kConvertTimeout, &error);
  gst_caps_unref(jpeg);
  gst_sample_unref(sample);
  if (converted == nullptr) {
    ZLOG(1, "cannot make %s: %s", path.c_str(), error != nullptr ? error->message : "timeout");
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

bool HasFrame(GstElement* sink) {
  GstSample* sample = gst_base_sink_get_last_sample(GST_BASE_SINK(sink));
  if (sample != nullptr) gst_sample_unref(sample);
  return sample != nullptr;
}

struct Work {
  std::function<void()> run;
};

gboolean RunWork(gpointer data) {
  static_cast<Work*>(data)->run();
  return G_SOURCE_REMOVE;
}

void FreeWork(gpointer data) {
  delete static_cast<Work*>(data);
}

}  // namespace

GstMedia::GstMedia(const GstMediaOptions& options) : options_(options), audio_(options.audio) {
  gst_init(nullptr, nullptr);
}

GstMedia::~GstMedia() {
  Stop();
}

unsigned GstMedia::TestColour(int channel) {
  static const unsigned kColours[] = {0xffe02020, 0xff20c020, 0xff2040e0, 0xffe0e020,
                                      0xffe020e0, 0xff20e0e0, 0xffffffff, 0xff808080};
  return kColours[static_cast<unsigned>(channel) % (sizeof kColours / sizeof kColours[0])];
}

GstCaps* GstMedia::RawCaps() const {
  return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                             options_.width, "height", G_TYPE_INT, options_.height, "framerate",
                             GST_TYPE_FRACTION, options_.fps, 1, "pixel-aspect-ratio",
                             GST_TYPE_FRACTION, 1, 1, nullptr);
}

GstElement* GstMedia::AddElement(GstElement* bin, const char* factory, std::string* error) {
  GstElement* element = gst_element_factory_make(factory, nullptr);
  if (element == nullptr) {
    *error = std::string("missing GStreamer element ") + factory;
    return nullptr;
  }
  gst_bin_add(GST_BIN(bin), element);
  return element;
}

void GstMedia::Later(int ms, std::function<void()> work) {
  GSource* source = ms > 0 ? g_timeout_source_new(static_cast<guint>(ms)) : g_idle_source_new();
  g_source_set_callback(source, RunWork, new Work{std::move(work)}, FreeWork);
  g_source_attach(source, context_);
  g_source_unref(source);
}

GSource* GstMedia::Every(int ms, GSourceFunc tick, gpointer data) {
  GSource* source = g_timeout_source_new(static_cast<guint>(ms));
  g_source_set_callback(source, tick, data, nullptr);
  g_source_attach(source, context_);
  return source;
}

void GstMedia::Announce(int channel, bool signal) {
  std::lock_guard<std::mutex> lock(changes_mutex_);
  changes_.push_back(sim::ChannelChange{channel, signal});
}

std::vector<sim::ChannelChange> GstMedia::TakeChannelChanges() {
  std::lock_guard<std::mutex> lock(changes_mutex_);
  return std::move(changes_);
}

bool GstMedia::Start(const std::vector<InputSetup>& inputs, const std::vector<int>& mixers,
                     std::string* error) {
  if (mixers.empty()) {
    *error = "no video mixer to build";
    return false;
  }
  context_ = g_main_context_new();
  loop_ = g_main_loop_new(context_, FALSE);
  pipeline_ = gst_pipeline_new("engine");
  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline_));
  // The bus watch belongs to the control thread's context.
  g_main_context_push_thread_default(context_);
  gst_bus_add_watch(bus, OnBusMessage, this);
  g_main_context_pop_thread_default(context_);
  gst_object_unref(bus);
  program_mixer_ = mixers.front();
  for (int id : mixers) {
    auto mixer = std::make_unique<VideoMixer>(*this, id);
    if (!mixer->Build(error)) return false;
    mixers_[id] = std::move(mixer);
  }
  for (const InputSetup& setup : inputs) {
    auto input = std::make_unique<ChannelInput>(*this, setup);
    if (!input->Build(error)) return false;
    for (auto& [id, mixer] : mixers_)
      if (!mixer->AddInput(setup.channel, setup.source, input->tee(), error)) return false;
    inputs_[setup.channel] = std::move(input);
  }
  if (!audio_.Build(pipeline_, error)) return false;
  // One clock and one base time, given to every element before it plays: a mixer that gets
  // the clock before the pipeline reaches it would otherwise count from time zero.
  GstClock* clock = gst_system_clock_obtain();
  gst_pipeline_use_clock(GST_PIPELINE(pipeline_), clock);
  gst_element_set_start_time(pipeline_, GST_CLOCK_TIME_NONE);
  GstClockTime base = gst_clock_get_time(clock);
  gst_object_unref(clock);
  gst_element_set_base_time(pipeline_, base);
  GstIterator* elements = gst_bin_iterate_recurse(GST_BIN(pipeline_));
  gst_iterator_foreach(
      elements,
      [](const GValue* item, gpointer time) {
        gst_element_set_base_time(GST_ELEMENT(g_value_get_object(item)),
                                  *static_cast<GstClockTime*>(time));
      },
      &base);
  gst_iterator_free(elements);
  // Sources are added only once every element plays: an element still on its way would
  // refuse their first frames and stop them.
  if (gst_element_set_state(pipeline_, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE ||
      gst_element_get_state(pipeline_, nullptr, nullptr, 10 * GST_SECOND) ==
          GST_STATE_CHANGE_FAILURE) {
    *error = "the pipeline does not play";
    return false;
  }
  control_ = std::thread([this] {
    g_main_context_push_thread_default(context_);
    g_main_loop_run(loop_);
    g_main_context_pop_thread_default(context_);
  });
  return true;
}

void GstMedia::Stop() {
  if (pipeline_ == nullptr) return;
  if (control_.joinable()) {
    // The inputs stop watching on the control thread, then the loop ends.
    Later(0, [this] {
      for (auto& [channel, input] : inputs_) input->Shutdown();
      g_main_loop_quit(loop_);
    });
    control_.join();
  }
  gst_element_set_state(pipeline_, GST_STATE_NULL);
  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline_));
  gst_bus_remove_watch(bus);
  gst_object_unref(bus);
  audio_.Reset();
  inputs_.clear();
  mixers_.clear();
  gst_object_unref(pipeline_);
  pipeline_ = nullptr;
  g_main_loop_unref(loop_);
  loop_ = nullptr;
  // Work queued for a loop that no longer runs is dropped with the context.
  g_main_context_unref(context_);
  context_ = nullptr;
}

ChannelInput* GstMedia::InputOf(GstObject* element) const {
  for (const auto& [channel, input] : inputs_)
    if (input->Owns(element)) return input.get();
  return nullptr;
}

gboolean GstMedia::OnBusMessage(GstBus*, GstMessage* message, gpointer self) {
  static_cast<GstMedia*>(self)->HandleMessage(message);
  return G_SOURCE_CONTINUE;
}

// Control thread: an error or warning is the business of the bin it came from only.
void GstMedia::HandleMessage(GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING: {
      GError* error = nullptr;
      gchar* debug = nullptr;
      bool fatal = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
      if (fatal)
        gst_message_parse_error(message, &error, &debug);
      else
        gst_message_parse_warning(message, &error, &debug);
      gchar* path = gst_object_get_path_string(GST_MESSAGE_SRC(message));
      ChannelInput* input = InputOf(GST_MESSAGE_SRC(message));
      if (input != nullptr && fatal) {
        input->Failed(std::string(path) + ": " + error->message);
      } else {
        ZLOG(fatal ? 1 : 2, "%s %s: %s", fatal ? "error" : "warning", path, error->message);
      }
      g_free(path);
      g_free(debug);
      g_error_free(error);
      break;
    }
    case GST_MESSAGE_LATENCY:
      gst_bin_recalculate_latency(GST_BIN(pipeline_));
      break;
    default:
      break;
  }
}

guint64 GstMedia::program_frames() const {
  auto mixer = mixers_.find(program_mixer_);
  return mixer == mixers_.end() ? 0 : mixer->second->frames();
}

gint64 GstMedia::program_layout_shown_us() const {
  auto mixer = mixers_.find(program_mixer_);
  return mixer == mixers_.end() ? 0 : mixer->second->layout_shown_us();
}

int GstMedia::InputSignal(int channel) {
  auto input = inputs_.find(channel);
  return input == inputs_.end() ? -1 : input->second->has_signal() ? 1 : 0;
}

bool GstMedia::HasSignal(int channel) const {
  auto input = inputs_.find(channel);
  return input != inputs_.end() && input->second->has_signal();
}

bool GstMedia::WaitUntilLive(int timeout_ms) const {
  gint64 deadline = g_get_monotonic_time() + timeout_ms * G_GINT64_CONSTANT(1000);
  auto wait = [deadline](const std::function<bool()>& done) {
    while (!done())
      if (g_get_monotonic_time() > deadline)
        return false;
      else
        g_usleep(10000);
    return true;
  };
  for (const auto& [channel, input] : inputs_)
    if (!wait([&input = input] { return HasFrame(input->last_frame()); })) return false;
  for (const auto& [id, mixer] : mixers_)
    if (!wait([&mixer = mixer] { return HasFrame(mixer->last_frame()); })) return false;
  guint64 until = program_frames() + 3;
  if (!wait([this, until] { return program_frames() >= until; })) return false;
  return audio_.WaitUntilLive(static_cast<int>((deadline - g_get_monotonic_time()) / 1000));
}

int GstMedia::Snapshot(Picture what, int id, int width, int height, const std::string& path) {
  if (pipeline_ == nullptr) return -1;
  GstElement* sink = nullptr;
  if (what == Picture::kChannel) {
    auto input = inputs_.find(id);
    if (input == inputs_.end()) return -1;
    sink = input->second->last_frame();
  } else {
    auto mixer = mixers_.find(what == Picture::kMixer ? id : program_mixer_);
    if (mixer == mixers_.end()) return -1;
    sink = mixer->second->last_frame();
  }
  return WriteJpeg(sink, width, height, path);
}

void GstMedia::ShowLayout(int mixer, const std::string& content) {
  auto found = mixers_.find(mixer);
  if (found != mixers_.end()) found->second->ShowLayout(content);
}

int GstMedia::ConnectChannel(int channel, bool connect, const std::string& uri) {
  auto found = inputs_.find(channel);
  if (found == inputs_.end()) return -1;
  ChannelInput* input = found->second.get();
  Later(0, [input, connect, uri] { input->Connect(connect, uri); });
  return 0;
}

}  // namespace zolo::engine
