// Live pictures for the console: a small JPEG of every channel with a video source and of
// the program, taken about twice a second while at least one client watches.
//
// A round asks the engine for each picture through the library (zm_make_channel_snapshot,
// zm_make_video_snapshot of the main mixer; neither writes database rows) into the gateway's
// own folder, reads each file into memory and removes it. HTTP answers from memory only. The
// round runs on a thread of its own; the store is shared with the loop, which serves it.
#pragma once

#include <glib.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace zolo::gateway {

// The folder the engine writes the pictures to (an appliance path, below the sandbox root
// when one is set); inside the image folders the library's callers may name.
inline constexpr const char* kLiveFolder = "/var/lib/zolo/media/images/live";
// The request a client sends to watch or stop watching; answered by the gateway itself.
inline constexpr const char* kWatchLiveRequest = "watch_live_pictures";
inline constexpr const char* kWatchLiveDescription =
    "Starts (`on` true) or stops this client's watch of the live pictures (answered by the "
    "gateway; not in a batch); the answer holds the `token` for `/live/...`.";
// The program's key in the store (channel ids are positive).
inline constexpr int kProgramPicture = 0;

// One picture slot: the last JPEG taken (may be older than the last attempt) and the result
// code of the last attempt.
struct LivePicture {
  std::shared_ptr<const std::string> jpeg;
  gint64 taken = 0;  // g_get_monotonic_time() when it was read
  int code = 0;      // the last attempt's result: 0, or the library's failure code
};

class LiveStore {
 public:
  // Forgets every picture; a round that is still running stores nothing any more.
  void Clear();
  // The generation a round records its pictures under.
  uint64_t generation() const;
  // The pictures a round takes: ids not in `ids` disappear, new ones start empty.
  void Keep(uint64_t generation, const std::set<int>& ids);
  // Records the result of one attempt for `id` (kProgramPicture for the program): a new
  // picture when `jpeg` is set, else only the failure `code`.
  void Record(uint64_t generation, int id, int code, std::shared_ptr<const std::string> jpeg,
              gint64 now);
  // The slot of `id` (the program's is always there); false when the id is not known.
  bool Find(int id, LivePicture* out) const;

 private:
  mutable std::mutex mutex_;
  uint64_t generation_ = 1;
  std::map<int, LivePicture> pictures_;
};

// One round: every channel with a video source, then the program, `width` x `height`.
// Calls the library (blocking); run it off the loop.
void TakeLivePictures(LiveStore& store, int width, int height);

// The picture an HTTP path names: "/live/program.jpg" is kProgramPicture,
// "/live/channels/<id>.jpg" the channel (a positive decimal id without leading zeros); -1
// for any other path.
int LivePictureId(const std::string& path);

}  // namespace zolo::gateway
