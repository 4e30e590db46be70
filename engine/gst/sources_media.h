// One channel's input on GStreamer. Its source (a capture device, a test pattern with the
// input's name, or a URI) is a bin of its own, normalised to the pipeline's one video
// format and re-timed onto the pipeline's running time, behind a bounded queue. An
// input-selector puts it over a live "no signal" slate: a source that fails, ends or stalls
// shows the slate and is rebuilt with backoff, and nothing downstream ever notices.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <string>

#include "gst_media.h"

namespace zolo::engine {

class ChannelInput {
 public:
  ChannelInput(GstMedia& media, const InputSetup& setup);
  ~ChannelInput();
  ChannelInput(const ChannelInput&) = delete;
  ChannelInput& operator=(const ChannelInput&) = delete;

  // Builds the slate, the selector, the tee and the last-frame sink in the pipeline, then
  // the source. False with `error` set when an element is missing.
  bool Build(std::string* error);
  const InputSetup& setup() const { return setup_; }
  GstElement* tee() const { return tee_; }
  GstElement* last_frame() const { return last_; }
  bool has_signal() const { return signal_.load(); }

  // Control thread only.
  // True when `element` belongs to the current source bin.
  bool Owns(GstObject* element) const;
  // The source failed (`why` is logged): show the slate and rebuild it later.
  void Failed(const std::string& why);
  // Connects (possibly to a new `uri`, "" keeps the current one) or disconnects the source.
  void Connect(bool connect, const std::string& uri);
  // Stops watching for stalls (before the pipeline stops).
  void Shutdown();

 private:
  enum class Kind { kPattern, kUri, kUnsupported };
  Kind KindOf(std::string* uri) const;
  GstElement* MakeSourceBin(std::string* error);
  void StartSource();
  void RemoveSource();
  void Show(bool source);
  static void OnPadAdded(GstElement*, GstPad* pad, gpointer self);
  static GstPadProbeReturn OnSourceData(GstPad*, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn OnLatencyQuery(GstPad*, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn OnFormatQuery(GstPad*, GstPadProbeInfo* info, gpointer self);
  static gboolean OnWatchdog(gpointer self);

  GstMedia& media_;
  InputSetup setup_;
  GstElement* selector_ = nullptr;
  GstPad* slate_pad_ = nullptr;       // the selector's pad of the slate
  GstPad* source_pad_ = nullptr;      // the selector's pad of the source
  GstElement* source_ = nullptr;      // the current source bin, or null
  GstElement* normaliser_ = nullptr;  // its first element of the normalising chain
  GstElement* tee_ = nullptr;
  GstElement* last_ = nullptr;
  bool connected_ = true;
  bool live_ = true;  // the source keeps time itself (not a file)
  int retry_ms_ = 0;  // the next rebuild's delay
  GSource* watchdog_ = nullptr;
  // Counts source bins, so that a late message of an old one is ignored.
  std::atomic<guint> generation_{0};
  gint64 built_us_ = 0;
  std::atomic<gint64> last_frame_us_{0};
  std::atomic<bool> signal_{false};
  // Re-timing of the source's buffers onto the pipeline's running time (streaming thread).
  GstSegment segment_;
  GstClockTimeDiff offset_ = 0;
  bool have_offset_ = false;
  guint probe_generation_ = 0;
};

}  // namespace zolo::engine
