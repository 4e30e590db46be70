// One video mixer on GStreamer: a compositor on black, a pad per channel input
// (each behind a leaky queue and its own crop), and its latest frame kept for snapshots.
// A layout is prepared on the engine's loop and applied whole between two frames.
#pragma once

#include <gst/gst.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "gst_media.h"

namespace zolo::engine {

class VideoMixer {
 public:
  VideoMixer(GstMedia& media, int id);
  ~VideoMixer();
  VideoMixer(const VideoMixer&) = delete;
  VideoMixer& operator=(const VideoMixer&) = delete;

  // Builds the compositor, its background and its output in the pipeline.
  bool Build(std::string* error);
  // Adds a hidden pad showing channel `channel` (video source `source`) from its tee.
  bool AddInput(int channel, int source, GstElement* tee, std::string* error);
  // Shows the layout `content` (the library's layout string) from the next frame on.
  void ShowLayout(const std::string& content);

  GstElement* last_frame() const { return last_; }
  guint64 frames() const;
  // When the first frame of the latest layout left the mixer (monotonic µs), 0 before.
  gint64 layout_shown_us() const;

 private:
  // One window as the compositor pad and crop show it.
  struct Placement {
    bool shown = false;
    int x = 0, y = 0, width = 0, height = 0;
    guint zorder = 0;
    int crop_left = 0, crop_right = 0, crop_top = 0, crop_bottom = 0;
  };
  struct Branch {
    int source = 0;
    GstElement* crop = nullptr;
    GstPad* pad = nullptr;  // the compositor's pad
  };
  static void OnSamplesSelected(GstElement*, GstSegment*, guint64, guint64, guint64, GstStructure*,
                                gpointer self);
  static GstPadProbeReturn OnFrame(GstPad*, GstPadProbeInfo*, gpointer self);
  void Apply(const std::map<int, Placement>& placements);

  GstMedia& media_;
  int id_;
  GstElement* compositor_ = nullptr;
  GstElement* last_ = nullptr;
  std::vector<Branch> branches_;
  mutable std::mutex mutex_;
  bool pending_ = false;
  std::map<int, Placement> next_;  // by video source id
  guint64 frames_ = 0;
  bool applying_ = false;  // the frame being mixed has a new layout
  gint64 layout_shown_us_ = 0;
};

}  // namespace zolo::engine
