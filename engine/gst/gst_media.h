// The engine's media on GStreamer: one live pipeline on the system clock. Every channel is an
// input of its own (its source normalised to one format, over a live "no signal" slate, and
// rebuilt with backoff when it fails), every video mixer a compositor following its layouts,
// and snapshots are taken from the live frames.
//
// Threads: the engine's loop calls the MediaBackend methods; GStreamer's bus messages and the
// rebuild timers run on the media's own control thread; streaming threads only count frames
// and apply a prepared layout between two frames. Nothing here calls the message bus or the
// database: changes the engine announces are queued for TakeChannelChanges.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio_media.h"
#include "zolo_media_sim.h"

namespace zolo::engine {

struct GstMediaOptions {
  int width = 1280;  // every input and every mixer, normalised to this size and rate
  int height = 720;
  int fps = 30;
  bool test_colours = false;  // test-pattern inputs as solid colours, one per channel (tests)
  int retry_first_ms = 500;   // a failed source is rebuilt after this, doubling each time
  int retry_max_ms = 8000;    // up to this
  int stall_ms = 3000;        // a source that delivers nothing this long has failed
  GstAudioOptions audio;      // the audio ports, their tones and meters
};

// One channel's input: `uri` is the source's URL ("capture://…", "v4l2:///dev/videoN",
// "rtsp://…", "srt://…", "rtmp://…", "http(s)://…", "file://…"); "" is a test pattern.
struct InputSetup {
  int channel = 0;
  int source = 0;    // the video source id that layouts name
  std::string name;  // drawn on the test pattern and the slate
  std::string uri;
};

class ChannelInput;
class VideoMixer;

class GstMedia : public sim::MediaBackend {
 public:
  explicit GstMedia(const GstMediaOptions& options);
  ~GstMedia() override;
  GstMedia(const GstMedia&) = delete;
  GstMedia& operator=(const GstMedia&) = delete;

  // Builds the pipeline with `inputs` and a compositor for each of `mixers` (mixer ids; the
  // first is the program) and plays it. False with `error` set when it cannot.
  bool Start(const std::vector<InputSetup>& inputs, const std::vector<int>& mixers,
             std::string* error);
  void Stop();

  int Snapshot(Picture what, int id, int width, int height, const std::string& path) override;
  void ShowLayout(int mixer, const std::string& content) override;
  int ConnectChannel(int channel, bool connect, const std::string& uri) override;
  std::vector<sim::ChannelChange> TakeChannelChanges() override;
  int InputSignal(int channel) override;
  void SetVolume(const std::string& port, int volume) override { audio_.SetVolume(port, volume); }
  void SetMute(const std::string& port, bool mute) override { audio_.SetMute(port, mute); }
  bool MeasuredLevel(const std::string& port, AudioLevel* level) override {
    *level = audio_.Level(port);
    return true;
  }

  // The colour (0xAARRGGBB) a test-pattern input shows with test colours.
  static unsigned TestColour(int channel);
  // Frames the program produced so far.
  guint64 program_frames() const;
  // When the first program frame of the latest layout was mixed (monotonic µs), 0 before.
  gint64 program_layout_shown_us() const;
  // True while channel `channel` shows its source (not the slate).
  bool HasSignal(int channel) const;
  // Waits until every input and mixer has delivered a frame, the program mixed a few more
  // and every audio meter measures; false after `timeout_ms`.
  bool WaitUntilLive(int timeout_ms) const;

  // For the inputs and mixers (control thread).
  const GstMediaOptions& options() const { return options_; }
  GstElement* pipeline() const { return pipeline_; }
  GstCaps* RawCaps() const;  // the one video format of the pipeline (caller unrefs)
  // A new `factory` element added to `bin`; null with `error` set when GStreamer lacks it.
  static GstElement* AddElement(GstElement* bin, const char* factory, std::string* error);
  // Runs `work` on the control thread after `ms` milliseconds (0: soon).
  void Later(int ms, std::function<void()> work);
  // Calls `tick` on the control thread every `ms` milliseconds until it returns FALSE or the
  // returned source is destroyed (caller unrefs it).
  GSource* Every(int ms, GSourceFunc tick, gpointer data);
  // Queues a channel's signal change for the engine's loop.
  void Announce(int channel, bool signal);

 private:
  static gboolean OnBusMessage(GstBus*, GstMessage* message, gpointer self);
  void HandleMessage(GstMessage* message);
  ChannelInput* InputOf(GstObject* element) const;

  GstMediaOptions options_;
  GstElement* pipeline_ = nullptr;
  GMainContext* context_ = nullptr;
  GMainLoop* loop_ = nullptr;
  std::thread control_;
  std::map<int, std::unique_ptr<ChannelInput>> inputs_;  // by channel id
  std::map<int, std::unique_ptr<VideoMixer>> mixers_;    // by mixer id
  int program_mixer_ = 0;
  mutable std::mutex changes_mutex_;
  std::vector<sim::ChannelChange> changes_;
  GstAudio audio_;
};

}  // namespace zolo::engine
