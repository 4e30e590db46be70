// The engine's audio on GStreamer: a live input per audio input port (a quiet tone of its own
// on a machine without capture hardware), each normalised to 48 kHz stereo behind a leaky
// queue, with its volume and meter, into the program mix; a volume and a meter per output
// port on the program mix. Meters post their levels from streaming threads; they are kept
// here under a lock for the engine's loop to read.
#pragma once

#include <gst/gst.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "zolo_media_sim.h"

namespace zolo::engine {

struct AudioPort {
  std::string name;
  bool output = false;  // an output plays the program mix
  int volume = 100;     // 0..100
  bool muted = false;
};

struct GstAudioOptions {
  std::vector<AudioPort> ports;  // usually GstAudio::ConfiguredPorts()
  int level_interval_ms = 100;   // how often the meters measure
  bool test_tones = false;       // input n plays a tone at TestToneDb(n) (tests)
};

class GstAudio {
 public:
  using AudioLevel = sim::MediaBackend::AudioLevel;

  explicit GstAudio(const GstAudioOptions& options);
  ~GstAudio();
  GstAudio(const GstAudio&) = delete;
  GstAudio& operator=(const GstAudio&) = delete;

  // The audio ports of the media database with their stored volume and mute: its "audio"
  // streams, outputs being those with a destination. Needs the model connected.
  static std::vector<AudioPort> ConfiguredPorts();
  // The peak level in dBFS of the tone input `index` (counting inputs only, in port order)
  // plays with test tones.
  static double TestToneDb(int index);

  // Builds every input, the program mix and the outputs into `pipeline`, which is not
  // playing yet. False with `error` set when an element is missing or does not link.
  bool Build(GstElement* pipeline, std::string* error);
  // Lets go of the elements; call once the pipeline is stopped.
  void Reset();

  // Port `port` plays at `volume` (0..100, linear: 50 is 6 dB down) from the next buffer on.
  void SetVolume(const std::string& port, int volume);
  void SetMute(const std::string& port, bool mute);
  // The latest level of `port` or of the program mix; the floor when the port is unknown
  // or its meter went quiet (its input stalled).
  AudioLevel Level(const std::string& port) const;
  // Waits until every meter has measured lately; false after `timeout_ms`.
  bool WaitUntilLive(int timeout_ms) const;

  // Called with every element message of the audio bin, on the thread that posts it; true
  // when it was a meter's and is consumed.
  bool OnMessage(GstMessage* message);

 private:
  gint64 StaleBefore() const;
  struct Measured {
    AudioLevel level;
    gint64 when = 0;  // monotonic microseconds
  };
  bool AddInput(const AudioPort& port, int index, GstElement* mixer, std::string* error);
  bool AddOutput(const AudioPort& port, GstElement* tee, std::string* error);
  // A volume and a meter after `from`, both for `port`; the meter, or null.
  GstElement* VolumeAndMeter(const AudioPort& port, GstElement* from, std::string* error);
  GstElement* Meter(const std::string& name, std::string* error);

  GstAudioOptions options_;
  GstElement* bin_ = nullptr;  // owned by the pipeline; a reference of ours too
  std::map<std::string, GstElement*> volumes_;
  // Which meter measures what; filled before the pipeline plays, read by streaming threads.
  std::map<const GstObject*, std::string> meters_;
  mutable std::mutex mutex_;
  std::map<std::string, Measured> levels_;
};

}  // namespace zolo::engine
