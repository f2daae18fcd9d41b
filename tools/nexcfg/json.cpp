// json.cpp - JSON values and their writer.
#include "json.h"

#include <cstdio>

namespace nexcfg {

Json &Json::Push(Json value) {
  items_.push_back(std::move(value));
  return items_.back();
}

Json &Json::Set(const std::string &key, Json value) {
  for (auto &member : members_) {
    if (member.first == key) {
      member.second = std::move(value);
      return member.second;
    }
  }
  members_.emplace_back(key, std::move(value));
  return members_.back().second;
}

void Json::Merge(const Json &other) {
  for (const auto &[key, value] : other.members_) Set(key, value);
}

const Json *Json::Find(const std::string &key) const {
  for (const auto &member : members_)
    if (member.first == key) return &member.second;
  return nullptr;
}

namespace {

bool Continuation(const std::string &s, size_t i) {
  return i < s.size() && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 sequence (RFC 3629: no overlong
// forms, no surrogates, nothing above U+10FFFF) that starts at s[i], or 0.
size_t SequenceLength(const std::string &s, size_t i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned char lead = byte(i);
  if (lead < 0x80) return 1;
  size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  for (size_t k = 1; k < length; ++k)
    if (!Continuation(s, i + k)) return 0;
  unsigned char second = byte(i + 1);
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
      (lead == 0xF4 && second > 0x8F))
    return 0;
  return length;
}

void Indent(std::string *out, int indent) { out->append(static_cast<size_t>(indent) * 2, ' '); }

}  // namespace

void AppendJsonString(const std::string &s, std::string *out) {
  out->push_back('"');
  for (size_t i = 0; i < s.size();) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c >= 0x80) {
      size_t length = SequenceLength(s, i);
      if (length == 0) {
        *out += "\xEF\xBF\xBD";  // U+FFFD, the replacement character
        ++i;
      } else {
        out->append(s, i, length);
        i += length;
      }
      continue;
    }
    ++i;
    switch (c) {
      case '"':
        *out += "\\\"";
        break;
      case '\\':
        *out += "\\\\";
        break;
      case '\n':
        *out += "\\n";
        break;
      case '\r':
        *out += "\\r";
        break;
      case '\t':
        *out += "\\t";
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char esc[8];
          snprintf(esc, sizeof esc, "\\u%04x", c);
          *out += esc;
        } else {
          out->push_back(static_cast<char>(c));
        }
    }
  }
  out->push_back('"');
}

void Json::DumpTo(std::string *out, int indent) const {
  switch (kind_) {
    case Kind::kNull:
      *out += "null";
      return;
    case Kind::kBool:
      *out += bool_ ? "true" : "false";
      return;
    case Kind::kInt:
      *out += std::to_string(int_);
      return;
    case Kind::kString:
      AppendJsonString(string_, out);
      return;
    case Kind::kArray:
    case Kind::kObject: {
      bool array = kind_ == Kind::kArray;
      size_t count = array ? items_.size() : members_.size();
      if (count == 0) {
        *out += array ? "[]" : "{}";
        return;
      }
      *out += array ? "[\n" : "{\n";
      for (size_t i = 0; i < count; ++i) {
        Indent(out, indent + 1);
        if (!array) {
          AppendJsonString(members_[i].first, out);
          *out += ": ";
        }
        (array ? items_[i] : members_[i].second).DumpTo(out, indent + 1);
        *out += i + 1 < count ? ",\n" : "\n";
      }
      Indent(out, indent);
      *out += array ? "]" : "}";
      return;
    }
  }
}

std::string Json::Dump() const {
  std::string out;
  DumpTo(&out, 0);
  return out;
}

std::string Json::Text() const {
  switch (kind_) {
    case Kind::kBool:
      return bool_ ? "yes" : "no";
    case Kind::kInt:
      return std::to_string(int_);
    case Kind::kString:
      return string_.empty() ? "-" : string_;
    default:
      return "-";
  }
}

}  // namespace nexcfg
