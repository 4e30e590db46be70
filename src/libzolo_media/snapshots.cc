// Snapshots and their images: queries, counters, status, removal, and the engine's
// snapshot requests.
#include <cjson/cJSON.h>
#include <zolo/media/recordings.h>
#include <zolo_model/media_model.h>
#include <zolo_model/snapshot.h>

#include <memory>
#include <string>
#include <vector>

#include "libzolo_media/media_call.h"
#include "libzolo_media/recording_access.h"

namespace {

using zolo::RecordingDbSession;

// The folder a snapshot's files lie in: its recording's snapshot folder, or the common one.
std::string FolderOf(Snapshot& snapshot) {
  return snapshot.BaseFolder();
}

zm_image ToImage(const Image& image, const std::string& folder) {
  zm_image record{};
  record.id = static_cast<uint32_t>(image.id());
  record.directory = image.directory();
  record.file_name = image.file_name();
  std::string directory = folder + "/" + image.directory();
  record.path = directory + "/" + image.file_name();
  record.status = image.status();
  record.width = image.width();
  record.height = image.height();
  record.time = image.time();
  record.size = image.size();
  record.format = image.format();
  record.note = image.note();
  if (!image.thumbnail().empty()) record.thumbnail = directory + "/" + image.thumbnail();
  return record;
}

// With `images`, page `page` of `count` of them (0: all) are converted too.
zm_snapshot ToSnapshot(Snapshot& snapshot, bool images, unsigned page, unsigned count) {
  zm_snapshot record{};
  record.id = static_cast<uint32_t>(snapshot.id());
  record.folder = snapshot.folder();
  record.status = snapshot.status();
  record.recording_id = snapshot.recording_id();
  record.time = snapshot.time();
  record.created_at = snapshot.created_at();
  record.width = snapshot.width();
  record.height = snapshot.height();
  record.note = snapshot.note();
  if (images) {
    std::string folder = FolderOf(snapshot);
    for (const Image* image : snapshot.images(page, count))
      record.images.push_back(ToImage(*image, folder));
  }
  return record;
}

template <class Query>
int QuerySnapshots(std::vector<zm_snapshot>* out, bool images, unsigned page, unsigned count,
                   Query query) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  std::vector<Snapshot*> rows;
  if (query(&rows) < 0) {
    MediaModel::CleanQuery(&rows);
    return -5;
  }
  try {
    for (Snapshot* row : rows)
      if (out != nullptr) out->push_back(ToSnapshot(*row, images, page, count));
  } catch (...) {
    MediaModel::CleanQuery(&rows);
    throw;
  }
  MediaModel::CleanQuery(&rows);
  return 0;
}

// The image's record with the folder of its snapshot.
int ImageRecord(Image& image, zm_image* out) {
  Snapshot* snapshot = nullptr;
  if (Snapshot::QueryById(image.snapshot_id(), &snapshot) < 0 || snapshot == nullptr) return -5;
  std::unique_ptr<Snapshot> owner(snapshot);
  if (out != nullptr) *out = ToImage(image, FolderOf(*snapshot));
  return 0;
}

template <class Count>
int Counted(Count count) {
  RecordingDbSession session;
  return session.connected() ? count() : -1;
}

void AnnounceRemoval(zolo::DataKind kind, int id) {
  zolo::NotifyMediaDataChange(zolo::ChangeType::kRemoved, kind, id);
}

}  // namespace

int zm_get_snapshot(int id, std::vector<zm_snapshot>* out, unsigned page, unsigned count,
                    int with_images) {
  return QuerySnapshots(out, with_images != 0, 0, 0, [&](std::vector<Snapshot*>* rows) {
    if (id == 0) return Snapshot::QueryByPage(page, count, rows);
    Snapshot* row = nullptr;
    int result = Snapshot::QueryById(id, &row);
    if (result >= 0 && row != nullptr) rows->push_back(row);
    return result;
  });
}

int zm_get_snapshot(const char* folder, zm_snapshot* out, unsigned page, unsigned count,
                    int with_images) {
  if (folder == nullptr) return -3;
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Snapshot* row = nullptr;
  if (Snapshot::QueryByFolder(folder, &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<Snapshot> snapshot(row);
  if (out != nullptr) *out = ToSnapshot(*snapshot, with_images != 0, page, count);
  return 0;
}

int zm_get_status_snapshot(const char* status, std::vector<zm_snapshot>* out, int with_images) {
  return QuerySnapshots(out, with_images != 0, 0, 0, [status](std::vector<Snapshot*>* rows) {
    zolo::RequireText(status);
    return Snapshot::QueryByStatus(status, rows);
  });
}

int zm_get_image(int id, zm_image* out) {
  if (id < 1) return -3;
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Image* row = nullptr;
  if (Image::QueryById(id, &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<Image> image(row);
  return ImageRecord(*image, out);
}

int zm_get_status_image(const char* status, std::vector<zm_image>* out) {
  if (status == nullptr) return -3;
  RecordingDbSession session;
  if (!session.connected()) return -1;
  std::vector<Image*> rows;
  if (Image::QueryByStatus(status, &rows) < 0) {
    MediaModel::CleanQuery(&rows);
    return -5;
  }
  for (Image* row : rows) {
    zm_image record{};
    if (ImageRecord(*row, &record) == 0 && out != nullptr) out->push_back(std::move(record));
  }
  MediaModel::CleanQuery(&rows);
  return 0;
}

int zm_get_snapshot_count() {
  return Counted([] { return Snapshot::Count(); });
}

int zm_get_snapshot_status_count(const char* status) {
  return Counted([status] {
    zolo::RequireText(status);
    return Snapshot::Count(status);
  });
}

int zm_get_snapshot_image_count(int snapshot_id) {
  return Counted([snapshot_id] { return Image::Count(snapshot_id); });
}

int zm_get_image_status_count(const char* status) {
  return Counted([status] {
    zolo::RequireText(status);
    return Image::Count(std::string(status));
  });
}

namespace {

// Sets the status of row `id` of `Row` (Image or Snapshot). 0; -3; -1; -5. A null status
// throws std::logic_error once the row is found.
template <class Row>
int SetStatus(int id, const char* status) {
  if (id < 1) return -3;
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Row* found = nullptr;
  if (Row::QueryById(id, &found) < 0 || found == nullptr) return -5;
  std::unique_ptr<Row> row(found);
  zolo::RequireText(status);
  row->status(status);
  return Row::Update(row.get()) < 0 ? -1 : 0;
}

}  // namespace

int zm_set_image_status(int id, const char* status) {
  return SetStatus<Image>(id, status);
}

int zm_set_snapshot_status(int id, const char* status) {
  return SetStatus<Snapshot>(id, status);
}

int zm_remove_image(int id) {
  int result;
  {
    RecordingDbSession session;
    if (!session.connected()) return -1;
    result = Image::Remove(id, true);
  }
  // A write the database refused is not announced; a missing id, which writes nothing, is.
  if (result != -1) AnnounceRemoval(zolo::DataKind::kImage, id);
  return result;
}

int zm_remove_snapshot(int id) {
  int result;
  {
    RecordingDbSession session;
    if (!session.connected()) return -1;
    result = Snapshot::Remove(id);
  }
  // A write the database refused is not announced; a missing id, which writes nothing, is.
  if (result != -1) AnnounceRemoval(zolo::DataKind::kSnapshot, id);
  return result;
}

int zm_add_snapshot(int width, int height) {
  cJSON* payload = cJSON_CreateObject();
  cJSON_AddNumberToObject(payload, "width", width);
  cJSON_AddNumberToObject(payload, "height", height);
  int result = zm_call_media_method("add_snapshot", payload, nullptr, zolo::kCallTimeout);
  cJSON_Delete(payload);
  return result;
}

int zm_create_recording_snapshot(int recording_id, uint64_t time, std::string* folder) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Recording* row = nullptr;
  if (Recording::QueryById(recording_id, &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<Recording> recording(row);
  std::string made;
  int result = recording->GenerateSnapshot(time, &made);
  if (folder != nullptr) *folder = made;
  return result < 0 ? -1 : 0;
}

int zm_delete_recording_snapshot(int recording_id, uint64_t time) {
  RecordingDbSession session;
  if (!session.connected()) return -1;
  Recording* row = nullptr;
  if (Recording::QueryById(recording_id, &row) < 0 || row == nullptr) return -5;
  std::unique_ptr<Recording> recording(row);
  return recording->RemoveSnapshot(time) < 0 ? -1 : 0;
}
