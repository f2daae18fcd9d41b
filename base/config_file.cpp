// config_file.cpp - reader of `key = "value"` configuration files.
#include "base/config_file.h"

#include "base/hash_table.h"
#include "base/scope_guard.h"
#include "base/str_util.h"
#include "base/unique_fd.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <utility>

namespace nxc {

struct KeyValueFile {
  HashTablePtr settings;  // Setting entries by key
};

namespace {

constexpr uint32_t kSettingRoom = 32;

// One setting: the key and the value are stored right after the struct.
struct Setting {
  char *key;
  char *value;
};

void FreeSetting(void *entry) { free(entry); }

[[nodiscard]] bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// The result of parsing one line; key and value point into the line, which
// is modified in place (escapes are removed, terminators written).
enum class LineKind { kSkip, kSetting, kBad };

LineKind ParseLine(char *line, char **key, char **value) {
  char *p = line;
  while (IsBlank(*p)) ++p;
  if (*p == '\0' || *p == '#') return LineKind::kSkip;

  char *keyStart = p;
  while (*p && *p != '=' && !IsBlank(*p)) ++p;
  char *keyEnd = p;
  while (IsBlank(*p)) ++p;
  if (*p != '=' || keyEnd == keyStart) return LineKind::kBad;
  ++p;
  while (IsBlank(*p)) ++p;

  char *valueStart = p;
  if (*p == '"') {
    // Quoted: \" and \\ stand for the character itself; any other
    // backslash is kept as it is.
    char *out = valueStart;
    ++p;
    for (;;) {
      if (*p == '\0') return LineKind::kBad;  // no closing quote
      if (*p == '"') break;
      if (*p == '\\' && (p[1] == '"' || p[1] == '\\')) ++p;
      *out++ = *p++;
    }
    ++p;
    while (IsBlank(*p)) ++p;
    if (*p != '\0') return LineKind::kBad;  // text after the closing quote
    *out = '\0';
  } else {
    char *end = valueStart + strlen(valueStart);
    while (end > valueStart && IsBlank(end[-1])) --end;
    *end = '\0';
  }
  *keyEnd = '\0';
  *key = keyStart;
  *value = valueStart;
  return LineKind::kSetting;
}

// Stores a copy of key and value, replacing an earlier value of the key.
[[nodiscard]] bool StoreSetting(HashTable *settings, const char *key, const char *value) {
  size_t keySize = strlen(key) + 1;
  size_t valueSize = strlen(value) + 1;
  Setting *setting = static_cast<Setting *>(malloc(sizeof(Setting) + keySize + valueSize));
  if (!setting) return false;
  setting->key = reinterpret_cast<char *>(setting + 1);
  setting->value = setting->key + keySize;
  memcpy(setting->key, key, keySize);
  memcpy(setting->value, value, valueSize);
  (void)settings->Delete(StrKey(key));
  if (!settings->Insert(StrKey(setting->key), setting)) {
    free(setting);
    return false;
  }
  return true;
}

void SetError(char *error, size_t errorSize, const char *text) {
  if (error && errorSize > 0) (void)BoundedCopy(error, errorSize, text);
}

}  // namespace

KeyValueFile *KeyValueFileLoad(const char *path, char *error, size_t errorSize) noexcept {
  UniqueFile stream(fopen(path, "re"));
  if (!stream) {
    SetError(error, errorSize, strerror(errno));
    return nullptr;
  }
  HashTablePtr settings(HashTable::Create(HashTable::Kind::kString, kSettingRoom, FreeSetting));
  if (!settings) {
    SetError(error, errorSize, strerror(ENOMEM));
    return nullptr;
  }

  char *raw = nullptr;  // getline's buffer, reused and grown by each call
  size_t rawSize = 0;
  ScopeGuard freeRaw([&] { free(raw); });
  unsigned lineNumber = 0;
  for (;;) {
    errno = 0;
    ssize_t length = getline(&raw, &rawSize, stream.get());
    if (length < 0) break;
    ++lineNumber;
    if (length > 0 && raw[length - 1] == '\n') raw[length - 1] = '\0';
    char *key = nullptr;
    char *value = nullptr;
    LineKind kind = ParseLine(raw, &key, &value);
    if (kind == LineKind::kSkip) continue;
    if (kind == LineKind::kBad) {
      char text[64];
      (void)BoundedPrint(text, sizeof text, "syntax error at line %u", lineNumber);
      SetError(error, errorSize, text);
      return nullptr;
    }
    if (!StoreSetting(settings.get(), key, value)) {
      SetError(error, errorSize, strerror(ENOMEM));
      return nullptr;
    }
  }
  if (ferror(stream.get())) {
    int readError = errno ? errno : EIO;
    SetError(error, errorSize, strerror(readError));
    return nullptr;
  }

  KeyValueFile *file = new (std::nothrow) KeyValueFile;
  if (!file) {
    SetError(error, errorSize, strerror(ENOMEM));
    return nullptr;
  }
  file->settings = std::move(settings);
  return file;
}

const char *KeyValueFileGet(const KeyValueFile *file, const char *key) noexcept {
  if (!file || !key) return nullptr;
  const Setting *setting = static_cast<const Setting *>(file->settings->Lookup(StrKey(key)));
  return setting ? setting->value : nullptr;
}

void KeyValueFileFree(KeyValueFile *file) noexcept { delete file; }

}  // namespace nxc
