// The engine's media on GStreamer: one live pipeline on the system clock with an input per
// video source (a moving test pattern with the source's name, or a solid colour for tests),
// the program mixer as a compositor, and snapshots of the live frames.
#pragma once

#include <gst/gst.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "audio_media.h"
#include "zolo_media_sim.h"

namespace zolo::engine {

struct GstMediaOptions {
  int width = 1280;  // every input and the program, normalised to this size and rate
  int height = 720;
  int fps = 30;
  bool test_colours = false;  // inputs as solid colours, one per source (tests)
  GstAudioOptions audio;      // the audio ports, their tones and meters
};

class GstMedia : public sim::MediaBackend {
 public:
  explicit GstMedia(const GstMediaOptions& options);
  ~GstMedia() override;
  GstMedia(const GstMedia&) = delete;
  GstMedia& operator=(const GstMedia&) = delete;

  // Builds the pipeline with an input for each of `sources` (video source ids) and plays it.
  // False with `error` set when it cannot.
  bool Start(const std::vector<std::pair<int, std::string>>& sources, std::string* error);
  void Stop();

  int Snapshot(Picture what, int id, int width, int height, const std::string& path) override;
  void ShowLayout(int mixer, const std::string& content) override;
  void SetVolume(const std::string& port, int volume) override { audio_.SetVolume(port, volume); }
  void SetMute(const std::string& port, bool mute) override { audio_.SetMute(port, mute); }
  bool MeasuredLevel(const std::string& port, AudioLevel* level) override {
    *level = audio_.Level(port);
    return true;
  }

  // The colour (0xAARRGGBB) an input shows with test colours.
  static unsigned TestColour(int source);
  // Frames the program produced so far.
  guint64 program_frames() const;
  // Waits until every input has delivered a frame and the program mixed a few more, and
  // every audio meter measures; false after `timeout_ms`.
  bool WaitUntilLive(int timeout_ms) const;

 private:
  struct Window {
    double x, y, w, h;
    int z;
  };
  struct Input {
    GstElement* last = nullptr;   // keeps the latest frame for snapshots
    GstPad* mixer_pad = nullptr;  // the compositor's pad of this input
  };
  bool AddInput(int source, const std::string& name, std::string* error);
  // Applies a pending layout; called from the compositor's streaming thread between frames,
  // so every window of a layout changes on the same frame.
  static GstPadProbeReturn OnProgramFrame(GstPad*, GstPadProbeInfo*, gpointer self);
  void ApplyLayout(const std::map<int, Window>& windows);

  GstMediaOptions options_;
  GstElement* pipeline_ = nullptr;
  GstElement* compositor_ = nullptr;
  GstElement* program_ = nullptr;  // the program's last frame
  std::map<int, Input> inputs_;
  mutable std::mutex mutex_;
  bool layout_pending_ = false;
  std::map<int, Window> pending_;
  guint64 frames_ = 0;
  GstAudio audio_;
};

}  // namespace zolo::engine
