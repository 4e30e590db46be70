// A simulated media engine on the bus: owns "zolo.media", answers the service methods with
// the engine's state machine, records every request and emits signals. Tests run it
// in-process; the zolo-media-sim daemon runs it on its own.
#pragma once

#include <signal.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zolo::sim {

// Engine states: 1 idle, 3 recording, 4 paused; 0 and 2 not ready.
enum State { kStarting = 0, kIdle = 1, kStopped = 2, kRecording = 3, kPaused = 4 };

struct Request {
  std::string method;
  std::string payload;
};

// How the simulator answers one method instead of its normal reply.
struct Forced {
  enum Kind { kCode, kNoCode, kEmpty, kNoReply } kind = kCode;
  int code = 0;       // kCode: the reply is {"code": code}
  int delay_ms = 0;   // any kind but kNoReply: the reply is sent this much later
  std::string reply;  // kNoCode: this text is the reply (default {"result":"ok"})
};

// A channel's input gained or lost its picture.
struct ChannelChange {
  int channel = 0;
  bool signal = false;
};

// The media work behind the engine's methods: what the simulator fakes and a real engine
// does with live pictures. The methods' replies, rows, files and signals stay in the method
// handlers; they call this for the pictures. Called on the engine's loop thread.
class MediaBackend {
 public:
  enum class Picture { kChannel, kMixer, kProgram };
  virtual ~MediaBackend() = default;
  // A JPEG of `width` x `height` at `path` (its folder exists): the live frame of channel
  // `id`, of the mixer with id `id`, or of the program (`id` then only tells pictures apart).
  // 0, or -1 when there is no such picture or the file cannot be written. The simulator
  // writes colour bars shifted by `id`.
  virtual int Snapshot(Picture what, int id, int width, int height, const std::string& path);
  // The mixer with id `mixer` shows the layout `content` (the library's layout string) from
  // now on.
  virtual void ShowLayout(int mixer, const std::string& content);
  // Connects or disconnects channel `channel`'s input, to `uri` when not empty. 0, or -1
  // when the channel has no input.
  virtual int ConnectChannel(int channel, bool connect, const std::string& uri);
  // The inputs' picture changes since the last call, oldest first (the simulator has none).
  virtual std::vector<ChannelChange> TakeChannelChanges();
  // 1 while channel `channel`'s input shows its source, 0 while it shows no picture of its
  // own, -1 when this media cannot tell (the simulator).
  virtual int InputSignal(int channel);

  // Audio ports go by their stream names; the program mix by this one.
  static constexpr const char* kProgramMix = "Audio-Mix";
  // A level in whole dB, at most 0, -90 for silence.
  struct AudioLevel {
    int level = -90;
    int left = -90;
    int right = -90;
  };
  // Port `port` (an input or an output) plays at `volume` (0..100, 100: as it comes) from now
  // on; the simulator has nothing to change.
  virtual void SetVolume(const std::string& port, int volume);
  virtual void SetMute(const std::string& port, bool mute);
  // The latest measured level of `port` or of kProgramMix (a port this media does not have is
  // silent). False when this media measures none: the simulator makes its levels up.
  virtual bool MeasuredLevel(const std::string& port, AudioLevel* level);
};

// The media database the library opens: [Application] database of "/etc/media.conf", both
// below the sandbox root when one is set.
std::string ConfiguredDatabase();

// Blocks SIGINT and SIGTERM in the calling thread (call before any thread starts, so every
// thread inherits it) and returns them for a daemon's sigwaitinfo.
sigset_t BlockStopSignals();

class MediaSimulator {
 public:
  // A method handler gets the request payload (may be empty) and the simulator, and returns
  // the reply JSON text. Runs on the simulator's thread.
  using Handler = std::function<std::string(const std::string& payload, MediaSimulator&)>;

  MediaSimulator();
  ~MediaSimulator();
  MediaSimulator(const MediaSimulator&) = delete;
  MediaSimulator& operator=(const MediaSimulator&) = delete;

  // Connects to the system bus, takes "zolo.media" and starts answering. 0, or a negative
  // errno-style code.
  int Start();
  // Stops answering and releases the name.
  void Stop();
  bool running() const;

  // Adds or replaces the handler of `method`.
  void Handle(const std::string& method, Handler handler);
  // Answers `method` as `forced` says until Unforce.
  void Force(const std::string& method, const Forced& forced);
  void Unforce(const std::string& method);

  int state() const;
  void set_state(int state);
  static const char* StateName(int state);

  // Every request received so far, oldest first.
  std::vector<Request> Requests() const;
  std::vector<Request> Requests(const std::string& method) const;
  void ClearRequests();
  // Waits until `count` requests of `method` arrived; false after `timeout_ms`.
  bool WaitForRequests(const std::string& method, size_t count, int timeout_ms) const;

  // Emits signal `name` with `payload`. 0, or a negative errno-style code. Thread-safe.
  int Emit(const std::string& name, const std::string& payload);

  // Media database the stream methods read (opened on first use when the process has not
  // connected the model itself).
  void set_database(const std::string& path);
  // The media work (default: simulated pictures); set before Start.
  void set_media(std::shared_ptr<MediaBackend> media);
  MediaBackend& media();
  // "audio_level" of every configured audio port and of the program mix ("Audio-Mix") every
  // `ms` milliseconds; 0 (the default): none.
  void set_level_interval_ms(int ms);
  int level_interval_ms() const;
  // Id of the last recording written to the recording database; 0 before the first.
  int last_recording_id() const;

  // Fills the recording database with `count` generated finished recordings of three
  // videos each, ten minutes apart up to now, in one transaction, plus a few snapshots with
  // their images. Only the `with_files` newest (all when negative) get their folders: the
  // video files, "information.json" and a "bookmark.json" with a still. 0, or -1 when the
  // recording database cannot be written. Call before Start.
  static int GenerateRecordings(int count, int with_files = 300);

  // For method handlers and tickers only: they run on the simulator's thread with its lock
  // held, so these read and change the engine without taking the lock again.
  int engine_state() const;
  void set_engine_state(int state);
  // Emits a signal from a handler or ticker.
  void Signal(const std::string& name, const std::string& payload);
  // Connects this process's model to the media database when it is not connected yet.
  void ConnectModel();
  void set_last_recording_id(int id);
  // A ticker runs on the simulator's thread after every wake-up and returns the milliseconds
  // until it wants to run again, or -1 when it has nothing to do. Add before Start.
  using Ticker = std::function<int(MediaSimulator&)>;
  void AddTicker(Ticker ticker);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zolo::sim
