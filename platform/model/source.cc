#include "zolo_model/source.h"

#include <glib.h>

#include <memory>

#include "json_text.h"
#include "query_support.h"

namespace {

constexpr const char* kTypes[] = {"video", "audio"};
constexpr const char* kCategories[] = {"capture", "network", "file",       "listener",
                                       "mixer",   "usb",     "placeholder"};

template <size_t N>
int IndexOf(const char* const (&names)[N], const std::string& text) {
  for (size_t i = 0; i < N; ++i)
    if (text == names[i]) return static_cast<int>(i);
  return -1;
}

template <size_t N>
std::string NameAt(const char* const (&names)[N], int index) {
  return index >= 0 && static_cast<size_t>(index) < N ? names[index] : "unknown";
}

constexpr const char* kColumns =
    "id, name, type, category, url, sub_address, authentication, parameters, fixed, available, "
    "enabled, visible, int_attr1, int_attr2, extra, extra2";

}  // namespace

using zolo::model::IntMember;
using zolo::model::ParsedObject;
using zolo::model::SetMember;

int MediaSource::StringToType(const std::string& type) {
  return IndexOf(kTypes, type);
}

std::string MediaSource::TypeToString(int type) {
  return NameAt(kTypes, type);
}

int MediaSource::StringToCategory(const std::string& category) {
  return IndexOf(kCategories, category);
}

std::string MediaSource::CategoryToString(int category) {
  return NameAt(kCategories, category);
}

MediaSource::MediaSource(std::string name, std::string type, std::string category, std::string url)
    : name_(std::move(name)),
      type_(std::move(type)),
      category_(std::move(category)),
      url_(std::move(url)) {}

MediaSource::~MediaSource() {
  ClearCache();
}

MediaSource::MediaSource(const MediaSource& other) {
  *this = other;
}

MediaSource& MediaSource::operator=(const MediaSource& other) {
  if (this == &other) return *this;
  ClearCache();
  id_ = other.id_;
  name_ = other.name_;
  type_ = other.type_;
  category_ = other.category_;
  url_ = other.url_;
  sub_address_ = other.sub_address_;
  authentication_ = other.authentication_;
  parameters_ = other.parameters_;
  fixed_ = other.fixed_;
  available_ = other.available_;
  enabled_ = other.enabled_;
  visible_ = other.visible_;
  int_attr1_ = other.int_attr1_;
  int_attr2_ = other.int_attr2_;
  extra_ = other.extra_;
  extra2_ = other.extra2_;
  return *this;
}

void MediaSource::ClearCache() {
  cJSON_Delete(parameters_json_);
  cJSON_Delete(authentication_json_);
  parameters_json_ = nullptr;
  authentication_json_ = nullptr;
}

void MediaSource::parameters(const std::string& json) {
  cJSON_Delete(parameters_json_);
  parameters_json_ = nullptr;
  parameters_ = json;
}

void MediaSource::authentication(const std::string& json) {
  cJSON_Delete(authentication_json_);
  authentication_json_ = nullptr;
  authentication_ = json;
}

bool MediaSource::IsParameterExisted(const std::string& key) const {
  return zolo::model::HasMember(ParsedObject(parameters_, &parameters_json_), key);
}

int MediaSource::ObtainParameter(const std::string& key, int fallback) const {
  return IntMember(ParsedObject(parameters_, &parameters_json_), key, fallback);
}

std::string MediaSource::ObtainStrParameter(const std::string& key,
                                            const std::string& fallback) const {
  const char* text = zolo::model::TextMember(ParsedObject(parameters_, &parameters_json_), key);
  return text ? text : fallback;
}

int MediaSource::UpdateParameter(const std::string& key, int value) {
  return SetMember(&parameters_, &parameters_json_, key, cJSON_CreateNumber(value));
}

int MediaSource::UpdateParameter(const std::string& key, const std::string& value) {
  return SetMember(&parameters_, &parameters_json_, key, cJSON_CreateString(value.c_str()));
}

bool MediaSource::IsAuthenticationExisted(const std::string& key) const {
  return zolo::model::HasMember(ParsedObject(authentication_, &authentication_json_), key);
}

int MediaSource::ObtainAuthentication(const std::string& key, int fallback) const {
  return IntMember(ParsedObject(authentication_, &authentication_json_), key, fallback);
}

std::string MediaSource::ObtainStrAuthentication(const std::string& key,
                                                 const std::string& fallback) const {
  const char* text =
      zolo::model::TextMember(ParsedObject(authentication_, &authentication_json_), key);
  return text ? text : fallback;
}

int MediaSource::UpdateAuthentication(const std::string& key, int value) {
  return SetMember(&authentication_, &authentication_json_, key, cJSON_CreateNumber(value));
}

int MediaSource::UpdateAuthentication(const std::string& key, const std::string& value) {
  return SetMember(&authentication_, &authentication_json_, key, cJSON_CreateString(value.c_str()));
}

std::string MediaSource::ColumnsOf(const char* alias) {
  std::string columns;
  gchar** names = g_strsplit(kColumns, ", ", -1);
  for (gchar** name = names; *name != nullptr; ++name)
    columns += std::string(columns.empty() ? "" : ", ") + alias + "." + *name;
  g_strfreev(names);
  return columns;
}

void MediaSource::ReadRow(SQLite::Statement& row, int first) {
  // Texts are assigned, not rebuilt, so an object read again keeps its storage.
  auto column = [&](int i) { return row.getColumn(first + i); };
  id_ = column(0).getInt();
  name_ = column(1).getText();
  type_ = TypeToString(column(2).getInt());
  category_ = CategoryToString(column(3).getInt());
  url_ = column(4).getText();
  sub_address_ = column(5).getText();
  authentication_ = column(6).getText();
  parameters_ = column(7).getText();
  ClearCache();
  fixed_ = column(8).getInt() != 0;
  available_ = column(9).getInt() != 0;
  enabled_ = column(10).getInt() != 0;
  visible_ = column(11).getInt() != 0;
  int_attr1_ = column(12).getInt();
  int_attr2_ = column(13).getInt();
  extra_ = column(14).getText();
  extra2_ = column(15).getText();
}

int MediaSource::VisitWhere(const char* table, const char* where, MediaSource* reused,
                            const std::function<void()>& visit) {
  return zolo::model::VisitRowsOf(
      MediaModel::Instance()->database(),
      std::string("SELECT ") + kColumns + " FROM " + table + " WHERE " + where + " ORDER BY id",
      [&](SQLite::Statement& row) {
        reused->ReadRow(row);
        visit();
      });
}

int MediaSource::QueryWhere(const char* table, const char* where, const std::string* text,
                            int number, MediaSource* (*make)(), std::vector<MediaSource*>* out) {
  auto read = [make](SQLite::Statement& row) {
    MediaSource* source = make();
    source->ReadRow(row);
    return source;
  };
  return zolo::model::QueryRowsByKey(
      out,
      std::string("SELECT ") + kColumns + " FROM " + table + " WHERE " + where + " ORDER BY id",
      read, text, number);
}

namespace {

// Binds the stored fields of `source` from index 1 on; false when its type or category
// text is unknown.
bool BindFields(SQLite::Statement& statement, const MediaSource& source) {
  int type = MediaSource::StringToType(source.type());
  int category = MediaSource::StringToCategory(source.category());
  if (type < 0 || category < 0) return false;
  int index = 0;
  statement.bind(++index, source.name());
  statement.bind(++index, type);
  statement.bind(++index, category);
  statement.bind(++index, source.url());
  statement.bind(++index, source.sub_address());
  statement.bind(++index, source.authentication());
  statement.bind(++index, source.parameters());
  statement.bind(++index, source.fixed() ? 1 : 0);
  statement.bind(++index, source.available() ? 1 : 0);
  statement.bind(++index, source.enabled() ? 1 : 0);
  statement.bind(++index, source.visible() ? 1 : 0);
  statement.bind(++index, source.int_attr1());
  statement.bind(++index, source.int_attr2());
  statement.bind(++index, source.extra());
  statement.bind(++index, source.extra2());
  return true;
}

constexpr int kFieldCount = 15;

// Drops `id` from every id list of `column` in "channel_sources".
void DropFromLists(zolo::model::Database& db, const std::string& column, int id) {
  std::vector<std::pair<int, std::string>> changed;
  SQLite::Statement& query =
      db.Prepared("SELECT id, " + column + " FROM channel_sources ORDER BY id");
  while (query.executeStep()) {
    zolo::model::Json lists = zolo::model::ParseJson(query.getColumn(1).getString());
    bool dropped = false;
    cJSON* list = nullptr;
    cJSON_ArrayForEach(list, lists.get()) {
      for (int i = cJSON_GetArraySize(list) - 1; i >= 0; --i) {
        cJSON* item = cJSON_GetArrayItem(list, i);
        if (cJSON_IsNumber(item) && item->valueint == id) {
          cJSON_DeleteItemFromArray(list, i);
          dropped = true;
        }
      }
    }
    if (!dropped) continue;
    std::string printed = zolo::model::PrintJson(lists.get());
    changed.emplace_back(query.getColumn(0).getInt(), printed.empty() ? "{}" : printed);
  }
  query.reset();
  SQLite::Statement& update =
      db.Prepared("UPDATE channel_sources SET " + column + " = ? WHERE id = ?");
  for (const auto& [row, text] : changed) {
    update.reset();
    update.clearBindings();
    update.bind(1, text);
    update.bind(2, row);
    update.exec();
  }
}

}  // namespace

int MediaSource::Insert(const char* table, MediaSource* source) {
  if (source == nullptr) return -3;
  return zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    std::string marks;
    for (int i = 0; i < kFieldCount; ++i) marks += i == 0 ? "?" : ", ?";
    SQLite::Statement& insert = db.Prepared(std::string("INSERT INTO ") + table + " (" +
                                            (kColumns + 4) + ") VALUES (" + marks + ")");
    if (!BindFields(insert, *source)) return -3;
    insert.exec();
    source->id_ = static_cast<int>(db.raw().getLastInsertRowid());
    return 0;
  });
}

int MediaSource::Store(const char* table, const MediaSource* source) {
  if (source == nullptr) return -3;
  return zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    SQLite::Statement& update = db.Prepared(
        std::string("UPDATE ") + table +
        " SET name = ?, type = ?, category = ?, url = ?, sub_address = ?, authentication = ?, "
        "parameters = ?, fixed = ?, available = ?, enabled = ?, visible = ?, int_attr1 = ?, "
        "int_attr2 = ?, extra = ?, extra2 = ? WHERE id = ?");
    if (!BindFields(update, *source)) return -3;
    update.bind(kFieldCount + 1, source->id_);
    return update.exec() == 1 ? 0 : -5;
  });
}

int MediaSource::Delete(const char* table, const char* list_column, int id) {
  return zolo::model::WithMediaDatabase([&](zolo::model::Database& db) {
    SQLite::Transaction transaction(db.raw());
    SQLite::Statement& remove = db.Prepared(std::string("DELETE FROM ") + table + " WHERE id = ?");
    remove.bind(1, id);
    if (remove.exec() != 1) return -5;
    DropFromLists(db, list_column, id);
    transaction.commit();
    return 0;
  });
}

template <class Kind>
int SourceRecord<Kind>::QueryMany(const char* where, const std::string* text, int number,
                                  std::vector<Kind*>* out) {
  if (out == nullptr) return -3;
  std::vector<MediaSource*> found;
  int result = QueryWhere(Kind::kTable, where, text, number, &Make, &found);
  for (MediaSource* source : found) out->push_back(static_cast<Kind*>(source));
  return result;
}

template <class Kind>
int SourceRecord<Kind>::QueryOne(const char* where, const std::string* text, int number,
                                 Kind** out) {
  if (out == nullptr) return -3;
  std::vector<Kind*> found;
  return zolo::model::TakeFirst(&found, QueryMany(where, text, number, &found), out);
}

template <class Kind>
int SourceRecord<Kind>::QueryById(int id, Kind** out) {
  return QueryOne("id = ?", nullptr, id, out);
}

template <class Kind>
int SourceRecord<Kind>::QueryByName(const std::string& name, Kind** out) {
  return QueryOne("name = ?", &name, 0, out);
}

template <class Kind>
int SourceRecord<Kind>::QueryBySubAddress(const std::string& sub_address, Kind** out) {
  return QueryOne("sub_address = ?", &sub_address, 0, out);
}

template <class Kind>
int SourceRecord<Kind>::QueryVisible(std::vector<Kind*>* out) {
  return QueryMany("visible = 1", nullptr, 0, out);
}

template <class Kind>
int SourceRecord<Kind>::VisitVisible(const std::function<void(const Kind&)>& visit) {
  Kind reused;
  return VisitWhere(Kind::kTable, "visible = 1", &reused, [&] { visit(reused); });
}

template <class Kind>
int SourceRecord<Kind>::QueryAll(std::vector<Kind*>* out) {
  return QueryMany("1", nullptr, 0, out);
}

template <class Kind>
int SourceRecord<Kind>::QueryByIds(const std::vector<int>& ids, std::vector<Kind*>* out) {
  std::string list = zolo::model::IdList(ids);
  return QueryMany("id IN (SELECT value FROM json_each(?))", &list, 0, out);
}

template <class Kind>
int SourceRecord<Kind>::Add(Kind* source) {
  return Insert(Kind::kTable, source);
}

template <class Kind>
int SourceRecord<Kind>::Update(Kind* source) {
  return Store(Kind::kTable, source);
}

template <class Kind>
int SourceRecord<Kind>::Remove(int id) {
  return Delete(Kind::kTable, Kind::kListColumn, id);
}

template class SourceRecord<ChannelSource>;
template class SourceRecord<UserSource>;
