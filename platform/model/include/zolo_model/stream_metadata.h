// Stream metadata: keys (table "stream_metadata_key") and rows of a key and a value, owned
// by a stream or, without one, defaults for every stream (table "stream_metadata").
#pragma once

#include <memory>
#include <string>
#include <vector>

class Stream;

class StreamMetadataKey {
 public:
  explicit StreamMetadataKey(std::string key) : key_(std::move(key)) {}
  // Inserts the key and takes its new id. 0; -2 when the text is already a key; -1.
  int Add();
  // Renames the key. 0; -5 when it does not exist; -2 when the text is taken; -1.
  int Update();
  // Deletes key `id` and every row that uses it. 0; -5 when it does not exist; -1.
  static int Remove(int id);

  int id() const { return id_; }
  const std::string& key() const { return key_; }
  void key(const std::string& key) { key_ = key; }

 private:
  friend class StreamMetadata;
  int id_ = 0;
  std::string key_;
};

class StreamMetadata {
 public:
  // A new row for `stream` (null: a default row) with `key` (copied; must have been added).
  StreamMetadata(const Stream* stream, const StreamMetadataKey* key, std::string value);

  // Every row, in id order. 0 or -1.
  static int QueryAll(std::vector<StreamMetadata*>* out);
  // Row `id`. 0; -5 not found; -1.
  static int QueryById(int id, StreamMetadata** out);
  static int QueryByStream(int stream_id, std::vector<StreamMetadata*>* out);
  // Inserts a row and takes its new id. 0, or -1.
  static int Add(StreamMetadata* row);
  // Writes the row's value back. 0; -5 when it does not exist; -1.
  static int Update(StreamMetadata* row);

  int id() const { return id_; }
  int stream_id() const { return stream_id_; }
  const std::string& key() const { return key_.key(); }
  StreamMetadataKey* key_obj() { return &key_; }
  const std::string& value() const { return value_; }
  void value(const std::string& value) { value_ = value; }

 private:
  StreamMetadata() : key_(std::string()) {}
  static int QueryWhere(const char* sql, int id, std::vector<StreamMetadata*>* out);
  int id_ = 0;
  int stream_id_ = 0;  // 0: a default row
  StreamMetadataKey key_;
  std::string value_;
};
