#include "zolo_model/snapshot.h"

#include <memory>

#include "recording_support.h"
#include "zolo_model/recording.h"
#include "zolo_model/recording_db.h"

using namespace zolo::model;

namespace {

#define SNAPSHOT_COLUMNS                                                                         \
  "SELECT id, folder, status, COALESCE(recording_id, 0), time, created_at, width, height, note " \
  "FROM snapshot "
#define IMAGE_COLUMNS                                                                         \
  "SELECT id, snapshot_id, directory, file_name, status, width, height, time, size, format, " \
  "note, thumbnail FROM image "

}  // namespace

class SnapshotRows {
 public:
  static Snapshot* ReadSnapshot(SQLite::Statement& row) {
    auto* snapshot = new Snapshot();
    snapshot->id_ = row.getColumn(0).getInt();
    snapshot->folder_ = row.getColumn(1).getString();
    snapshot->status_ = row.getColumn(2).getString();
    snapshot->recording_id_ = row.getColumn(3).getInt();
    snapshot->time_ = U64(row.getColumn(4));
    snapshot->created_at_ = U64(row.getColumn(5));
    snapshot->width_ = U32(row.getColumn(6));
    snapshot->height_ = U32(row.getColumn(7));
    snapshot->note_ = row.getColumn(8).getString();
    return snapshot;
  }

  static Image* ReadImage(SQLite::Statement& row) {
    auto* image = new Image();
    image->id_ = row.getColumn(0).getInt();
    image->snapshot_id_ = row.getColumn(1).getInt();
    image->directory_ = row.getColumn(2).getString();
    image->file_name_ = row.getColumn(3).getString();
    image->status_ = row.getColumn(4).getString();
    image->width_ = U32(row.getColumn(5));
    image->height_ = U32(row.getColumn(6));
    image->time_ = U64(row.getColumn(7));
    image->size_ = U64(row.getColumn(8));
    image->format_ = row.getColumn(9).getString();
    image->note_ = row.getColumn(10).getString();
    image->thumbnail_ = row.getColumn(11).getString();
    return image;
  }
};

Snapshot::~Snapshot() {
  for (Image* image : images_) delete image;
}

int Snapshot::QueryById(int id, Snapshot** out) {
  return QueryRowOf(RecordingDatabase(), out, SNAPSHOT_COLUMNS "WHERE id = ?1",
                    &SnapshotRows::ReadSnapshot, id);
}

int Snapshot::QueryByPage(unsigned page, unsigned count, std::vector<Snapshot*>* out) {
  return QueryRowsOf(RecordingDatabase(), out,
                     SNAPSHOT_COLUMNS "ORDER BY created_at DESC, id DESC LIMIT ?1 OFFSET ?2",
                     &SnapshotRows::ReadSnapshot, Limit(count), Offset(page, count));
}

int Snapshot::QueryByFolder(const std::string& folder, Snapshot** out) {
  return QueryRowOf(RecordingDatabase(), out, SNAPSHOT_COLUMNS "WHERE folder = ?1",
                    &SnapshotRows::ReadSnapshot, folder);
}

int Snapshot::QueryByStatus(const std::string& status, std::vector<Snapshot*>* out) {
  return QueryRowsOf(RecordingDatabase(), out,
                     SNAPSHOT_COLUMNS "WHERE status = ?1 ORDER BY created_at DESC, id DESC",
                     &SnapshotRows::ReadSnapshot, status);
}

int Snapshot::Count() {
  return CountRows("SELECT count(*) FROM snapshot");
}

int Snapshot::Count(const std::string& status) {
  return CountRows("SELECT count(*) FROM snapshot WHERE status = ?1", status);
}

int Snapshot::Add(Snapshot* snapshot) {
  if (snapshot == nullptr) return -3;
  return InsertRowOf(
      RecordingDatabase(), &snapshot->id_,
      "INSERT INTO snapshot (folder, status, recording_id, time, created_at, width, height, "
      "note) VALUES (?1, ?2, NULLIF(?3, 0), ?4, ?5, ?6, ?7, ?8)",
      snapshot->folder_, snapshot->status_, snapshot->recording_id_, S64(snapshot->time_),
      S64(snapshot->created_at_), static_cast<int64_t>(snapshot->width_),
      static_cast<int64_t>(snapshot->height_), snapshot->note_);
}

int Snapshot::Update(Snapshot* snapshot) {
  if (snapshot == nullptr) return -3;
  return ChangeOneRowOf(
      RecordingDatabase(),
      "UPDATE snapshot SET folder = ?1, status = ?2, recording_id = NULLIF(?3, 0), time = ?4, "
      "created_at = ?5, width = ?6, height = ?7, note = ?8 WHERE id = ?9",
      snapshot->folder_, snapshot->status_, snapshot->recording_id_, S64(snapshot->time_),
      S64(snapshot->created_at_), static_cast<int64_t>(snapshot->width_),
      static_cast<int64_t>(snapshot->height_), snapshot->note_, snapshot->id_);
}

int Snapshot::Remove(int id) {
  Snapshot* found = nullptr;
  int result = QueryById(id, &found);
  if (result < 0) return result;
  std::unique_ptr<Snapshot> snapshot(found);
  std::string base = snapshot->BaseFolder();
  result = ChangeOneRowOf(RecordingDatabase(), "DELETE FROM snapshot WHERE id = ?1", id);
  if (result < 0) return result;
  RemoveInside(base, snapshot->folder(), true);
  return 0;
}

const std::vector<Image*>& Snapshot::images(unsigned page, unsigned count) {
  std::vector<Image*> found;
  if (Image::QueryBySnapshot(id_, page, count, &found) < 0) found.clear();
  for (Image* image : images_) delete image;
  images_ = std::move(found);
  return images_;
}

Recording* Snapshot::recording() {
  if (!recording_loaded_ && recording_id_ != 0) {
    Recording* found = nullptr;
    if (Recording::QueryById(recording_id_, &found) == 0) recording_.reset(found);
    recording_loaded_ = true;
  }
  return recording_.get();
}

std::string Snapshot::BaseFolder() {
  Recording* from = recording();
  RecordingDb* db = RecordingDb::Instance();
  return from != nullptr ? db->RecordingSnapshotFolder(from->folder()) : db->SnapshotFolder();
}

Image::~Image() = default;

int Image::QueryById(int id, Image** out) {
  return QueryRowOf(RecordingDatabase(), out, IMAGE_COLUMNS "WHERE id = ?1",
                    &SnapshotRows::ReadImage, id);
}

int Image::QueryByStatus(const std::string& status, std::vector<Image*>* out) {
  return QueryRowsOf(RecordingDatabase(), out, IMAGE_COLUMNS "WHERE status = ?1 ORDER BY id DESC",
                     &SnapshotRows::ReadImage, status);
}

int Image::QueryBySnapshot(int snapshot_id, unsigned page, unsigned count,
                           std::vector<Image*>* out) {
  return QueryRowsOf(RecordingDatabase(), out,
                     IMAGE_COLUMNS "WHERE snapshot_id = ?1 ORDER BY id LIMIT ?2 OFFSET ?3",
                     &SnapshotRows::ReadImage, snapshot_id, Limit(count), Offset(page, count));
}

int Image::Count(int snapshot_id) {
  return CountRows("SELECT count(*) FROM image WHERE snapshot_id = ?1", snapshot_id);
}

int Image::Count(const std::string& status) {
  return CountRows("SELECT count(*) FROM image WHERE status = ?1", status);
}

int Image::Add(Image* image) {
  if (image == nullptr) return -3;
  return InsertRowOf(
      RecordingDatabase(), &image->id_,
      "INSERT INTO image (snapshot_id, directory, file_name, status, width, height, time, "
      "size, format, note, thumbnail) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)",
      image->snapshot_id_, image->directory_, image->file_name_, image->status_,
      static_cast<int64_t>(image->width_), static_cast<int64_t>(image->height_), S64(image->time_),
      S64(image->size_), image->format_, image->note_, image->thumbnail_);
}

int Image::Update(Image* image) {
  if (image == nullptr) return -3;
  return ChangeOneRowOf(
      RecordingDatabase(),
      "UPDATE image SET directory = ?1, file_name = ?2, status = ?3, width = ?4, height = ?5, "
      "time = ?6, size = ?7, format = ?8, note = ?9, thumbnail = ?10 WHERE id = ?11",
      image->directory_, image->file_name_, image->status_, static_cast<int64_t>(image->width_),
      static_cast<int64_t>(image->height_), S64(image->time_), S64(image->size_), image->format_,
      image->note_, image->thumbnail_, image->id_);
}

int Image::Remove(int id, bool remove_file) {
  Image* found = nullptr;
  int result = QueryById(id, &found);
  if (result < 0) return result;
  std::unique_ptr<Image> image(found);
  std::string base = remove_file && image->snapshot() ? image->snapshot()->BaseFolder() : "";
  result = ChangeOneRowOf(RecordingDatabase(), "DELETE FROM image WHERE id = ?1", id);
  if (result < 0 || base.empty()) return result;
  RemoveInside(base, image->directory() + "/" + image->file_name(), false);
  if (!image->thumbnail().empty())
    RemoveInside(base, image->directory() + "/" + image->thumbnail(), false);
  return 0;
}

Snapshot* Image::snapshot() {
  if (!snapshot_loaded_) {
    Snapshot* found = nullptr;
    if (Snapshot::QueryById(snapshot_id_, &found) == 0) snapshot_.reset(found);
    snapshot_loaded_ = true;
  }
  return snapshot_.get();
}
