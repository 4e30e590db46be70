// Codec: one codec the media service can use (table "codec"), with its type and a list of
// parameter entries (a name and a value text each, for example "profile" and the profiles
// the codec accepts).
//
// Queries return heap objects the caller deletes (MediaModel::CleanQuery for vectors), in id
// order; results 0, -1 not connected or database error, -3 null out pointer, -5 not found.
#pragma once

#include <string>
#include <vector>

namespace SQLite {
class Statement;
}  // namespace SQLite

struct CodecParameter {
  std::string name;
  std::string value;
};

class Codec {
 public:
  // Types: 0 "video", 1 "audio"; -1 for any other text.
  static int StringToType(const std::string& type);
  static std::string TypeToString(int type);

  static int QueryAll(std::vector<Codec*>* out);
  static int QueryById(int id, Codec** out);
  static int QueryByName(const std::string& name, Codec** out);
  // Codecs of `type` ("video", "audio") and `name`; a null text matches any. An unknown
  // type matches none.
  static int QueryByTypeName(const char* type, const char* name, std::vector<Codec*>* out);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  const std::string& type() const { return type_; }
  // The parameter entries in stored order; entries that are not objects are skipped.
  const std::vector<CodecParameter>& parameters() const { return parameters_; }

 private:
  Codec() = default;
  static int QueryList(const char* where, const std::string* text, int number,
                       std::vector<Codec*>* out);
  int id_ = 0;
  std::string name_;
  std::string type_;
  std::vector<CodecParameter> parameters_;
};
