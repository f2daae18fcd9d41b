// json.h - the JSON values nexcfg prints and their one writer.
//
// Whatever bytes a string holds (a description typed by a user, a line of
// the library's log, a value planted in the database), the writer prints
// valid UTF-8 JSON: quotes, backslashes and control characters are
// escaped, and a byte that does not belong to a well-formed UTF-8 sequence
// is written as U+FFFD.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace nexcfg {

// A JSON value. Objects keep their keys in insertion order, so that output
// reads in the order the command built it.
class Json {
 public:
  enum class Kind { kNull, kBool, kInt, kString, kArray, kObject };

  Json() = default;
  Json(std::nullptr_t) {}
  Json(bool b) : kind_(Kind::kBool), bool_(b) {}
  template <class T>
  requires(std::is_integral_v<T> && !std::is_same_v<T, bool>) Json(T n)
      : kind_(Kind::kInt), int_(static_cast<int64_t>(n)) {}
  Json(const char *s) : kind_(Kind::kString), string_(s ? s : "") {}
  Json(std::string s) : kind_(Kind::kString), string_(std::move(s)) {}

  static Json Array() { return Json(Kind::kArray); }
  static Json Object() { return Json(Kind::kObject); }
  // The text, or null when it is empty.
  static Json TextOrNull(const std::string &text) { return text.empty() ? Json() : Json(text); }

  Kind kind() const { return kind_; }
  bool IsNull() const { return kind_ == Kind::kNull; }
  // Array: appends. Object: sets key (replacing an earlier value).
  Json &Push(Json value);
  Json &Set(const std::string &key, Json value);
  // Object: sets every member of another object.
  void Merge(const Json &other);
  // Object member, or null when absent.
  const Json *Find(const std::string &key) const;
  const std::vector<Json> &items() const { return items_; }
  const std::vector<std::pair<std::string, Json>> &members() const { return members_; }
  bool AsBool() const { return bool_; }
  int64_t AsInt() const { return int_; }
  const std::string &AsString() const { return string_; }

  // Serialized with two-space indentation; always valid UTF-8.
  std::string Dump() const;
  // A scalar for people: "-" for null and empty text, "yes"/"no" for
  // booleans.
  std::string Text() const;

 private:
  explicit Json(Kind kind) : kind_(kind) {}
  void DumpTo(std::string *out, int indent) const;

  Kind kind_ = Kind::kNull;
  bool bool_ = false;
  int64_t int_ = 0;
  std::string string_;
  std::vector<Json> items_;
  std::vector<std::pair<std::string, Json>> members_;
};

// Appends s as a JSON string literal: escaped, and with every byte that is
// not part of well-formed UTF-8 replaced by U+FFFD.
void AppendJsonString(const std::string &s, std::string *out);

}  // namespace nexcfg
