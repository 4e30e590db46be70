// MediaSetting: one named setting of the appliance (table "setting"), value kept as text.
#pragma once

#include <string>

class MediaSetting {
 public:
  // The setting `name` as a new object the caller deletes. 0; -5 when there is no such
  // setting; -1 when the database is not connected or fails.
  static int Query(const std::string& name, MediaSetting** out);
  // The value of `name` as text, or parsed as a base-10 integer (-3 when it is not one).
  // 0, -5 or -1 as Query.
  static int QueryValue(const std::string& name, std::string* value);
  static int QueryValue(const std::string& name, int* value);

  // Writes the value back. 0, or -1.
  int Save();

  int id() const { return id_; }
  const std::string& name() const { return name_; }
  const std::string& value() const { return value_; }
  void value(const std::string& value) { value_ = value; }

 private:
  MediaSetting(int id, std::string name, std::string value)
      : id_(id), name_(std::move(name)), value_(std::move(value)) {}
  int id_;
  std::string name_;
  std::string value_;
};
