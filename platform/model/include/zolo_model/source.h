// Sources: inputs the media service takes pictures or sound from. The device's own inputs
// (`ChannelSource`, table "channel_source") and inputs that users define (`UserSource`, table
// "user_source") carry the same fields and operations.
//
// Type and category are kept as text on the object and as numbers in the database
// (StringToType / StringToCategory). Parameters and authentication are JSON objects, parsed
// once and kept in step with their texts; Update*() changes only the object, Update(source)
// stores it. Queries return heap objects the caller deletes (MediaModel::CleanQuery for
// vectors), in id order; results 0, -1 not connected or database error, -2 constraint broken
// (a name taken), -3 bad argument (null pointer, unknown type or category text), -5 not found.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

typedef struct cJSON cJSON;

namespace SQLite {
class Statement;
}  // namespace SQLite

// The fields and the parameter and authentication operations of both kinds of source.
class MediaSource {
 public:
  // Types: 0 "video", 1 "audio"; -1 for any other text.
  static int StringToType(const std::string& type);
  static std::string TypeToString(int type);
  // Categories: 0 "capture" (a capture port), 1 "network" (a stream the device pulls:
  // RTSP, RTMP, NDI, SRT caller), 2 "file", 3 "listener" (a stream pushed to the device:
  // SRT listener, RTMP server, WebRTC), 4 "mixer", 5 "usb", 6 "placeholder"; -1 otherwise.
  static int StringToCategory(const std::string& category);
  static std::string CategoryToString(int category);

  virtual ~MediaSource();
  MediaSource(const MediaSource& other);
  MediaSource& operator=(const MediaSource& other);

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  void name(const std::string& name) { name_ = name; }
  const std::string& type() const { return type_; }
  void type(const std::string& type) { type_ = type; }
  const std::string& category() const { return category_; }
  void category(const std::string& category) { category_ = category; }
  const std::string& url() const { return url_; }
  void url(const std::string& url) { url_ = url; }
  const std::string& sub_address() const { return sub_address_; }
  void sub_address(const std::string& sub_address) { sub_address_ = sub_address; }
  bool fixed() const { return fixed_; }
  void fixed(bool on) { fixed_ = on; }
  bool available() const { return available_; }
  void available(bool on) { available_ = on; }
  bool enabled() const { return enabled_; }
  void enabled(bool on) { enabled_ = on; }
  bool visible() const { return visible_; }
  void visible(bool on) { visible_ = on; }
  int int_attr1() const { return int_attr1_; }
  void int_attr1(int value) { int_attr1_ = value; }
  int int_attr2() const { return int_attr2_; }
  void int_attr2(int value) { int_attr2_ = value; }
  const std::string& extra() const { return extra_; }
  void extra(const std::string& text) { extra_ = text; }
  const std::string& extra2() const { return extra2_; }
  void extra2(const std::string& text) { extra2_ = text; }

  // The two JSON texts as stored; setting one replaces the whole object.
  const std::string& parameters() const { return parameters_; }
  void parameters(const std::string& json);
  const std::string& authentication() const { return authentication_; }
  void authentication(const std::string& json);

  bool IsParameterExisted(const std::string& key) const;
  // The member `key` as an integer (true/false as 1/0) or as text; `fallback` when it is
  // missing or of another kind.
  int ObtainParameter(const std::string& key, int fallback) const;
  std::string ObtainStrParameter(const std::string& key, const std::string& fallback = "") const;
  // Sets member `key`. 0, or -1 when out of memory.
  int UpdateParameter(const std::string& key, int value);
  int UpdateParameter(const std::string& key, const std::string& value);
  bool IsAuthenticationExisted(const std::string& key) const;
  int ObtainAuthentication(const std::string& key, int fallback) const;
  std::string ObtainStrAuthentication(const std::string& key,
                                      const std::string& fallback = "") const;
  int UpdateAuthentication(const std::string& key, int value);
  int UpdateAuthentication(const std::string& key, const std::string& value);

 protected:
  // A new source, not yet stored: all three flags set, visible, empty JSON objects.
  MediaSource(std::string name, std::string type, std::string category, std::string url);

  // Reads and writes the rows of `table`; shared by both kinds of source.
  static int QueryWhere(const char* table, const char* where, const std::string* text, int number,
                        MediaSource* (*make)(), std::vector<MediaSource*>* out);
  static int Insert(const char* table, MediaSource* source);
  static int Store(const char* table, const MediaSource* source);
  static int Delete(const char* table, const char* list_column, int id);
  // Calls `visit` with the rows of `table` that match `where`, read into `reused`.
  static int VisitWhere(const char* table, const char* where, MediaSource* reused,
                        const std::function<void()>& visit);

 private:
  friend class Channel;  // reads the sources of its listing from one joined query
  // The row's columns as `alias`.column, in the order ReadRow reads them.
  static std::string ColumnsOf(const char* alias);
  // Reads the source columns from `first` on.
  void ReadRow(SQLite::Statement& row, int first = 0);
  void ClearCache();

  int id_ = 0;
  std::string name_;
  std::string type_;
  std::string category_;
  std::string url_;
  std::string sub_address_;
  std::string authentication_ = "{}";
  std::string parameters_ = "{}";
  bool fixed_ = true;
  bool available_ = true;
  bool enabled_ = true;
  bool visible_ = true;
  int int_attr1_ = 0;
  int int_attr2_ = 0;
  std::string extra_;
  std::string extra2_;
  mutable cJSON* parameters_json_ = nullptr;
  mutable cJSON* authentication_json_ = nullptr;
};

// The queries and changes of one kind of source, over the table `Kind::kTable`.
template <class Kind>
class SourceRecord : public MediaSource {
 public:
  // The source `id`. 0; -3 null `out`; -5 not found; -1.
  static int QueryById(int id, Kind** out);
  // The source named `name`; the source with the sub-address `sub_address` (the first by
  // id when several share it). 0; -3; -5; -1.
  static int QueryByName(const std::string& name, Kind** out);
  static int QueryBySubAddress(const std::string& sub_address, Kind** out);
  // The visible sources; all sources. Appended to `out`. 0; -3; -1.
  static int QueryVisible(std::vector<Kind*>* out);
  static int QueryAll(std::vector<Kind*>* out);
  // Calls `visit` with every visible source in id order, read into one object that is
  // reused (valid during the call only), with the database locked: `visit` must not call
  // the model. 0; -1.
  static int VisitVisible(const std::function<void(const Kind&)>& visit);
  // The sources whose ids are in `ids` (unknown ids are skipped). 0; -3; -1.
  static int QueryByIds(const std::vector<int>& ids, std::vector<Kind*>* out);
  // Inserts `source` and takes its new id. 0; -3 null or unknown type/category; -2 name
  // taken; -1.
  static int Add(Kind* source);
  // Stores every field of `source`. 0; -3 as Add; -5 when it no longer exists; -2; -1.
  static int Update(Kind* source);
  // Deletes source `id`; channels that used it lose the reference and the allowed-source
  // lists drop it. 0; -5 when it does not exist; -1.
  static int Remove(int id);

 protected:
  using MediaSource::MediaSource;

 private:
  static int QueryOne(const char* where, const std::string* text, int number, Kind** out);
  static int QueryMany(const char* where, const std::string* text, int number,
                       std::vector<Kind*>* out);
  static MediaSource* Make() { return new Kind(); }
};

// An input of the device itself: a capture port, a USB device, a network or file input.
class ChannelSource : public SourceRecord<ChannelSource> {
 public:
  static constexpr const char* kTable = "channel_source";
  // The list column of "channel_sources" that holds ids of this kind.
  static constexpr const char* kListColumn = "sources";
  ChannelSource(std::string name, std::string type, std::string category, std::string url)
      : SourceRecord(std::move(name), std::move(type), std::move(category), std::move(url)) {}

 private:
  friend class SourceRecord<ChannelSource>;
  friend class Channel;
  ChannelSource() : ChannelSource("", "", "", "") {}
};

// An input a user defined, usually a network stream.
class UserSource : public SourceRecord<UserSource> {
 public:
  static constexpr const char* kTable = "user_source";
  static constexpr const char* kListColumn = "user_sources";
  UserSource(std::string name, std::string type, std::string category, std::string url)
      : SourceRecord(std::move(name), std::move(type), std::move(category), std::move(url)) {}

 private:
  friend class SourceRecord<UserSource>;
  friend class Channel;
  UserSource() : UserSource("", "", "", "") {}
};
