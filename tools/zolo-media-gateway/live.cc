// Live pictures: the store the loop serves from, and one round of pictures taken through
// the library on the round's own thread.
#include "live.h"

#include <unistd.h>
#include <zolo/media.h>
#include <zolo/sysroot.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>
#include <vector>

#include "common/log.h"

namespace zolo::gateway {
namespace {

constexpr const char* kLogSource = "zolo-media-gateway";
constexpr size_t kMaxPictureBytes = 8 << 20;

// Takes one picture with `take` (given the file:// URI) and records it under `id`.
template <typename Take>
void TakeOne(LiveStore& store, uint64_t generation, int id, const std::string& name, Take take) {
  const std::string path = std::string(kLiveFolder) + "/" + name;
  const std::string file = SysrootPath(path);
  int code = take(("file://" + path).c_str());
  std::shared_ptr<const std::string> jpeg;
  if (code >= 0) {
    gchar* contents = nullptr;
    gsize length = 0;
    if (g_file_get_contents(file.c_str(), &contents, &length, nullptr) && length > 0 &&
        length <= kMaxPictureBytes)
      jpeg = std::make_shared<const std::string>(contents, length);
    g_free(contents);
    // The engine answered but left no picture: a failure of the appliance.
    if (jpeg == nullptr) code = -1;
  }
  // The picture lives in memory from now on; the folder holds only what is being written.
  unlink(file.c_str());
  store.Record(generation, id, code, std::move(jpeg), g_get_monotonic_time());
}

}  // namespace

void LiveStore::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++generation_;
  pictures_.clear();
}

uint64_t LiveStore::generation() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return generation_;
}

void LiveStore::Keep(uint64_t generation, const std::set<int>& ids) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (generation != generation_) return;
  for (auto it = pictures_.begin(); it != pictures_.end();)
    it = ids.count(it->first) != 0 ? std::next(it) : pictures_.erase(it);
  for (int id : ids) pictures_.try_emplace(id);
}

void LiveStore::Record(uint64_t generation, int id, int code,
                       std::shared_ptr<const std::string> jpeg, gint64 now) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (generation != generation_) return;
  LivePicture& slot = pictures_[id];
  slot.code = code;
  if (jpeg == nullptr) return;
  slot.jpeg = std::move(jpeg);
  slot.taken = now;
}

bool LiveStore::Find(int id, LivePicture* out) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = pictures_.find(id);
  if (it == pictures_.end()) {
    // The program is always known, also before the first round has taken it.
    if (id != kProgramPicture) return false;
    *out = LivePicture{};
    return true;
  }
  *out = it->second;
  return true;
}

void TakeLivePictures(LiveStore& store, int width, int height) {
  uint64_t generation = store.generation();
  std::vector<zm_channel> channels;
  if (zm_get_channel(0, &channels) < 0) {
    ZLOG(1, "live pictures: cannot list the channels");
    return;
  }
  if (g_mkdir_with_parents(SysrootPath(kLiveFolder).c_str(), 0755) != 0) {
    ZLOG(1, "live pictures: cannot make %s: %s", kLiveFolder, std::strerror(errno));
    return;
  }
  // Channels without a video source (audio only) have no picture to take.
  std::set<int> ids = {kProgramPicture};
  for (const zm_channel& channel : channels)
    if (channel.video_source_id > 0 && channel.id > 0) ids.insert(channel.id);
  store.Keep(generation, ids);
  for (int id : ids) {
    // Nobody watches any more: the rest of the round is not asked for.
    if (store.generation() != generation) return;
    if (id == kProgramPicture) continue;
    TakeOne(store, generation, id, "channel_" + std::to_string(id) + ".jpg",
            [&](const char* uri) { return zm_make_channel_snapshot(id, uri, width, height); });
  }
  if (store.generation() != generation) return;
  TakeOne(store, generation, kProgramPicture, "program.jpg",
          [&](const char* uri) { return zm_make_video_snapshot(ZM_MIXER_0, uri, width, height); });
}

int LivePictureId(const std::string& path) {
  if (path == "/live/program.jpg") return kProgramPicture;
  const std::string prefix = "/live/channels/";
  const std::string suffix = ".jpg";
  if (path.size() <= prefix.size() + suffix.size() || path.compare(0, prefix.size(), prefix) != 0 ||
      path.compare(path.size() - suffix.size(), suffix.size(), suffix) != 0)
    return -1;
  std::string digits = path.substr(prefix.size(), path.size() - prefix.size() - suffix.size());
  if (digits.size() > 9 || digits[0] == '0' ||
      digits.find_first_not_of("0123456789") != std::string::npos)
    return -1;
  return std::stoi(digits);
}

}  // namespace zolo::gateway
