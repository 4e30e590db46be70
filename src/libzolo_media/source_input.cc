// Commands on a channel's live input: connect, re-read, rotate, delay, input adjustment,
// and still pictures of a channel or of its video user source.
#include <cjson/cJSON.h>
#include <pthread.h>
#include <zolo/media/sources.h>
#include <zolo_bus.h>
#include <zolo_model/channel.h>
#include <zolo_model/database.h>
#include <zolo_model/media_model.h>
#include <zolo_model/source.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include "common/json_holder.h"
#include "common/log.h"
#include "libzolo_media/media_call.h"

namespace {

constexpr const char* kLogSource = "libzolo_media";
constexpr const char* kSnapshotUriTemplate =
    "file:///var/lib/zolo/media/images/snapshot/snapshot_%03d.jpg";

using Json = zolo::JsonHolder;

int Call(const char* method, const Json& payload) {
  return zm_call_media_method(method, payload.get(), nullptr, zolo::kCallTimeout);
}

bool ChannelExists(int id) {
  Channel* channel = nullptr;
  if (Channel::QueryById(id, &channel) < 0) return false;
  delete channel;
  return true;
}

// "connect_channel_source" / "connect_source": the addresses only when given, so that the
// engine keeps the input's current ones.
int Connect(const char* method, const char* key, int id, bool connect, const char* uri,
            const char* sub_uri) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), key, id);
  cJSON_AddNumberToObject(payload.get(), "connect", connect ? 1 : 0);
  if (uri != nullptr) cJSON_AddStringToObject(payload.get(), "uri", uri);
  if (sub_uri != nullptr) cJSON_AddStringToObject(payload.get(), "sub_uri", sub_uri);
  return Call(method, payload);
}

Json SnapshotPayload(int channel, const char* uri, int width, int height) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "channel", channel);
  cJSON_AddStringToObject(payload.get(), "uri", uri);
  cJSON_AddNumberToObject(payload.get(), "width", width);
  cJSON_AddNumberToObject(payload.get(), "height", height);
  return payload;
}

// What the preview snapshot task owns: its arguments and the database file to write to.
struct SnapshotTaskData {
  int channel;
  int user_source;
  int width;
  int height;
  std::string database;
};

// The task's own line to the engine: the library's client may be released while the task
// runs, so it never uses it. Success only for a reply without a code or with a numeric 0.
class TaskBus {
 public:
  TaskBus() : client_(bus_client_new("libzolo_media-snapshot")) {
    if (client_ != nullptr && bus_connect(client_, 0) < 0) {
      bus_client_free(client_);
      client_ = nullptr;
    }
  }
  ~TaskBus() { bus_client_free(client_); }
  TaskBus(const TaskBus&) = delete;
  TaskBus& operator=(const TaskBus&) = delete;

  bool Succeeds(const char* method, const Json& payload) {
    if (client_ == nullptr) return false;
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(payload.get()),
                                                      &cJSON_free);
    if (text == nullptr) return false;
    char* raw_reply = nullptr;
    size_t length = 0;
    int result = bus_method_call(client_, "media", method, text.get(),
                                 static_cast<int>(std::strlen(text.get())), &raw_reply, &length,
                                 zolo::kCallTimeout);
    std::unique_ptr<char, decltype(&std::free)> owned(raw_reply, &std::free);
    if (result != 0 || owned == nullptr || length == 0) return result == 0;
    Json reply(cJSON_ParseWithLength(owned.get(), length));
    const cJSON* code = cJSON_GetObjectItem(reply.get(), "code");
    return cJSON_IsNumber(code) && code->valueint == 0;
  }

 private:
  bus_client* client_;
};

// Sets "preview_dest" of user source `id` to `path` through a connection of the task's own.
// 1 when stored, 0 when the source no longer exists, -1 on a database error.
int StorePreviewDest(const std::string& database, int id, const std::string& path) {
  try {
    zolo::model::Database db(database, false);
    auto lock = db.Lock();
    SQLite::Transaction transaction(db.raw(), SQLite::TransactionBehavior::IMMEDIATE);
    SQLite::Statement& row = db.Prepared("SELECT name, parameters FROM user_source WHERE id = ?");
    row.bind(1, id);
    if (!row.executeStep()) return 0;
    UserSource source(row.getColumn(0).getString(), "video", "network", "");
    source.parameters(row.getColumn(1).getString());
    row.reset();
    ZLOG_AS("make_channel_preview_snapshot_task", 2, "%s: user source name is %s",
            "make_channel_preview_snapshot_task", source.name().c_str());
    if (source.UpdateParameter("preview_dest", path) < 0) {
      ZLOG_AS("make_channel_preview_snapshot_task", 0,
              "preview_dest of user source %d: parameters are not a JSON object; kept", id);
      return -1;
    }
    SQLite::Statement& update = db.Prepared("UPDATE user_source SET parameters = ? WHERE id = ?");
    update.bind(1, source.parameters());
    update.bind(2, id);
    if (update.exec() != 1) return 0;
    transaction.commit();
    return 1;
  } catch (const std::exception& e) {
    ZLOG_AS("make_channel_preview_snapshot_task", 0, "preview_dest of user source %d: %s", id,
            e.what());
    return -1;
  }
}

void* make_channel_preview_snapshot_task(void* argument) {
  std::unique_ptr<SnapshotTaskData> data(static_cast<SnapshotTaskData*>(argument));
  ZLOG(2, "make_channel_preview_snapshot_task in");
  pthread_detach(pthread_self());
  char uri[256];
  std::snprintf(uri, sizeof uri, kSnapshotUriTemplate, data->user_source);
  {
    TaskBus bus;
    if (bus.Succeeds("make_channel_snapshot",
                     SnapshotPayload(data->channel, uri, data->width, data->height)) &&
        StorePreviewDest(data->database, data->user_source, uri + std::strlen("file://")) > 0) {
      Json change(cJSON_CreateObject());
      cJSON_AddNumberToObject(change.get(), "type", static_cast<int>(zolo::ChangeType::kChanged));
      cJSON_AddNumberToObject(change.get(), "data", static_cast<int>(zolo::DataKind::kUserSource));
      cJSON_AddNumberToObject(change.get(), "id", data->user_source);
      bus.Succeeds("change_media_data", change);
    }
  }
  data.reset();
  ZLOG(2, "make_channel_preview_snapshot_task out");
  return nullptr;
}

}  // namespace

int zm_enable_channel_source(int channel, bool connect, const char* uri, const char* sub_uri) {
  return Connect("connect_channel_source", "channel", channel, connect, uri, sub_uri);
}

int zm_enable_source(int source, bool connect, const char* uri, const char* sub_uri) {
  return Connect("connect_source", "source", source, connect, uri, sub_uri);
}

int zm_update_channel_parameter(int channel) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "channel", channel);
  return Call("update_channel_param", payload);
}

int zm_rotate_channel_source(int id, int rotate) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "id", id);
  cJSON_AddNumberToObject(payload.get(), "rotate", rotate);
  return Call("rotate_channel_source", payload);
}

int zm_set_channel_audio_delay(int id, int delay) {
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "id", id);
  cJSON_AddNumberToObject(payload.get(), "audio_delay", delay);
  return Call("set_channel_audio_delay", payload);
}

int zm_get_channel_input_param(int channel, zm_input_param* param) {
  if (param == nullptr) return -3;
  if (!ChannelExists(channel)) return -5;
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "channel", channel);
  cJSON* raw_reply = nullptr;
  int result =
      zm_call_media_method("get_video_input_param", payload.get(), &raw_reply, zolo::kCallTimeout);
  Json reply(raw_reply);
  if (result != 0) return result;
  auto copy = [&reply](const char* key, int32_t* field) {
    const cJSON* value = cJSON_GetObjectItem(reply.get(), key);
    if (cJSON_IsNumber(value)) *field = value->valueint;
  };
  copy("auto_adjust", &param->auto_adjust);
  copy("phase", &param->phase);
  copy("position", &param->position);
  return 0;
}

int zm_set_channel_input_param(int channel, zm_input_param param) {
  if (!ChannelExists(channel)) return -5;
  Json payload(cJSON_CreateObject());
  cJSON_AddNumberToObject(payload.get(), "channel", channel);
  cJSON_AddNumberToObject(payload.get(), "auto_adjust", param.auto_adjust);
  cJSON_AddNumberToObject(payload.get(), "phase", param.phase);
  cJSON_AddNumberToObject(payload.get(), "position", param.position);
  return Call("set_video_input_param", payload);
}

int zm_make_channel_snapshot(int channel, const char* uri, int width, int height) {
  if (uri == nullptr || std::strncmp(uri, "file://", 7) != 0) return -3;
  Channel* movie = nullptr;
  if (Channel::QueryByName("Movie", &movie) < 0 || movie == nullptr) return -2;
  // Only channels up to the "Movie" channel can be taken; as unsigned numbers, negative ids
  // lie past it.
  unsigned last = static_cast<unsigned>(movie->id());
  delete movie;
  if (static_cast<unsigned>(channel) > last) return -2;
  return Call("make_channel_snapshot", SnapshotPayload(channel, uri, width, height));
}

int zm_make_channel_preview_snapshot(int channel, int width, int height) {
  ZLOG(2, "zm_make_channel_preview_snapshot in\n");
  Channel* found = nullptr;
  if (Channel::QueryById(channel, &found) < 0 || found == nullptr) {
    ZLOG(2, "Channel %d is not found", channel);
    return -5;
  }
  std::unique_ptr<Channel> owned(found);
  const UserSource* user_source = owned->video_user_source();
  zolo::model::Database* database = MediaModel::Instance()->database();
  if (user_source == nullptr || database == nullptr) {
    ZLOG(2, "Channel %d is not using any video user source!", channel);
    return -5;
  }
  auto* data = new (std::nothrow)
      SnapshotTaskData{channel, user_source->id(), width, height, database->path()};
  if (data == nullptr) {
    ZLOG(0, "fail to allocate zm_make_channel_preview_snapshot_task_data.");
    return -1;
  }
  pthread_t thread;
  if (pthread_create(&thread, nullptr, make_channel_preview_snapshot_task, data) != 0) {
    delete data;
    return -1;
  }
  ZLOG(2, "zm_make_channel_preview_snapshot out\n");
  return 0;
}
