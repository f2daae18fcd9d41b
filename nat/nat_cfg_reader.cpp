// nat_cfg_reader.cpp - the reader the NAT daemon uses for its nat.conf:
// sections "[name]", items "key = value" (or "key: value") and "#" comments.
//
// The file read is the one at globalConfig, which the reader's user sets;
// every call opens it anew, so a change to the file shows at the next call.
// An iterator remembers only a file offset, and every step seeks back to it.
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "base/unique_fd.h"
#include "nexcfg_internal.h"

using nxc::CPtr;

// Set by the reader's user; declared with C linkage in the internal header.
const char *globalConfig = nullptr;

namespace {

// Lines are read in pieces of at most this size less one.
constexpr size_t kLineSize = 16384;

// One open stream, shared by reference count.
struct NatCfgHandle {
  FILE *stream;
  uint32_t refs;
};

}  // namespace

// position -1: the iteration has ended.
struct NatCfgIterator {
  NatCfgHandle *handle;
  int64_t position;
};

namespace {

NatCfgHandle *OpenHandle() {
  if (!globalConfig) return nullptr;
  auto *handle = static_cast<NatCfgHandle *>(malloc(sizeof(NatCfgHandle)));
  if (!handle) return nullptr;
  handle->stream = fopen(globalConfig, "re");
  if (!handle->stream) {
    free(handle);
    return nullptr;
  }
  handle->refs = 1;
  return handle;
}

void ReleaseHandle(NatCfgHandle *handle) {
  if (!handle || --handle->refs != 0) return;
  (void)fclose(handle->stream);
  free(handle);
}

NatCfgIterator *NewIterator(NatCfgHandle *handle, int64_t position) {
  auto *it = static_cast<NatCfgIterator *>(malloc(sizeof(NatCfgIterator)));
  if (!it) return nullptr;
  it->handle = handle;
  it->position = position;
  return it;
}

const char *SkipSpace(const char *p) {
  while (*p && isspace(static_cast<unsigned char>(*p))) ++p;
  return p;
}

// The first non-space character of a line worth looking at, or null for an
// empty or blank line.
const char *Content(const char *line) {
  if (line[0] == '\0') return nullptr;
  const char *p = SkipSpace(line);
  return *p ? p : nullptr;
}

// p is a line's first non-space character: true for "[section]" in any case.
[[nodiscard]] bool HeaderMatches(const char *p, const char *section) {
  size_t len = strlen(section);
  return p[0] == '[' && strncasecmp(p + 1, section, len) == 0 && p[1 + len] == ']';
}

// Where a value stops. The item lister ends any value at a carriage return;
// the single-item lookup lets a quoted value run over one.
enum class ValueEnd { kListItems, kGetItem };

// Parses the value that follows a separator: quoted with " or ' (up to the
// same quote), else up to the first blank; backslash escapes \r \t \n and
// any other character. *after gets the position past the value.
char *ParseValue(const char *p, ValueEnd mode, const char **after) {
  p = SkipSpace(p);
  char *value = static_cast<char *>(malloc(strlen(p) + 1));
  if (!value) return nullptr;
  size_t n = 0;
  char quote = (*p == '"' || *p == '\'') ? *p++ : '\0';
  const bool crEnds = !(quote && mode == ValueEnd::kGetItem);
  for (;;) {
    char c = *p;
    bool ends = quote ? (c == quote || c == '\0' || c == '\n' || (crEnds && c == '\r'))
                      : (c == '\0' || isspace(static_cast<unsigned char>(c)));
    if (ends) break;
    if (c == '\\') {
      char next = p[1];
      if (next == '\0' || next == '\n' || (crEnds && next == '\r')) {
        ++p;
        break;
      }
      value[n++] = next == 'r' ? '\r' : next == 't' ? '\t' : next == 'n' ? '\n' : next;
      p += 2;
      continue;
    }
    value[n++] = c;
    ++p;
  }
  if (quote && *p == quote) ++p;
  value[n] = '\0';
  if (after) *after = p;
  return value;
}

// The text after the first '#' past the value, blanks skipped, up to the end
// of the line; "" without one.
char *ParseComment(const char *p) {
  const char *hash = strchr(p, '#');
  if (!hash) return strdup("");
  const char *start = SkipSpace(hash + 1);
  return strndup(start, strcspn(start, "\r\n"));
}

}  // namespace

extern "C" NatCfgIterator *NatCfgListSectionsInit(void) noexcept {
  NatCfgHandle *handle = OpenHandle();
  if (!handle) return nullptr;
  NatCfgIterator *it = NewIterator(handle, 0);
  if (!it) ReleaseHandle(handle);
  return it;
}

namespace {

// The file positioned where the iterator stopped; null when it is done or
// the file cannot be positioned.
FILE *ResumeAt(NatCfgIterator *it) {
  if (!it || it->position < 0) return nullptr;
  FILE *f = it->handle->stream;
  clearerr(f);
  return fseeko(f, it->position, SEEK_SET) == 0 ? f : nullptr;
}

}  // namespace

extern "C" char *NatCfgListSections(NatCfgIterator *it) noexcept {
  FILE *f = ResumeAt(it);
  CPtr<char> line(f ? static_cast<char *>(malloc(kLineSize)) : nullptr);
  if (!line) return nullptr;
  while (fgets(line.get(), kLineSize, f)) {
    const char *p = Content(line.get());
    if (!p || *p != '[') continue;
    const char *close = strchr(p + 1, ']');
    if (!close) continue;
    char *name = strndup(p + 1, static_cast<size_t>(close - p - 1));
    if (!name) return nullptr;
    it->position = ftello(f);
    return name;
  }
  it->position = -1;
  return nullptr;
}

extern "C" void NatCfgListSectionsDestroy(NatCfgIterator *it) noexcept {
  if (!it) return;
  ReleaseHandle(it->handle);
  free(it);
}

extern "C" NatCfgIterator *NatCfgListItemsInit(const char *section) noexcept {
  if (!section) return nullptr;
  NatCfgHandle *handle = OpenHandle();
  if (!handle) return nullptr;
  CPtr<char> line(static_cast<char *>(malloc(kLineSize)));
  if (!line) {
    ReleaseHandle(handle);
    return nullptr;
  }
  rewind(handle->stream);
  while (fgets(line.get(), kLineSize, handle->stream)) {
    const char *p = Content(line.get());
    if (!p || !HeaderMatches(p, section)) continue;
    NatCfgIterator *it = NewIterator(handle, ftello(handle->stream));
    if (!it) ReleaseHandle(handle);
    return it;
  }
  ReleaseHandle(handle);
  return nullptr;
}

extern "C" char *NatCfgListItems(NatCfgIterator *it, char **value, char **comment) noexcept {
  FILE *f = ResumeAt(it);
  CPtr<char> line(f ? static_cast<char *>(malloc(kLineSize)) : nullptr);
  if (!line) return nullptr;
  while (fgets(line.get(), kLineSize, f)) {
    const char *p = Content(line.get());
    if (!p) continue;
    if (*p == '[') break;  // the next section: this one has ended
    if (strchr("\n\r#:=", *p)) continue;
    const char *sep = strpbrk(p, "=:");
    if (!sep) continue;
    const char *keyEnd = sep;
    while (keyEnd > p && isspace(static_cast<unsigned char>(keyEnd[-1]))) --keyEnd;
    CPtr<char> key(strndup(p, static_cast<size_t>(keyEnd - p)));
    const char *afterValue = sep + 1;
    CPtr<char> itemValue(ParseValue(sep + 1, ValueEnd::kListItems, &afterValue));
    CPtr<char> itemComment(itemValue ? ParseComment(afterValue) : nullptr);
    if (!key || !itemValue || !itemComment) return nullptr;
    it->position = ftello(f);
    if (value) *value = itemValue.release();
    if (comment) *comment = itemComment.release();
    return key.release();
  }
  it->position = -1;
  return nullptr;
}

extern "C" void NatCfgListItemsDestroy(NatCfgIterator *it) noexcept {
  NatCfgListSectionsDestroy(it);
}

extern "C" char *NatCfgGetItem(const char *section, const char *key) noexcept {
  if (!section || !key) return nullptr;
  NatCfgHandle *handle = OpenHandle();
  if (!handle) return nullptr;
  CPtr<char> line(static_cast<char *>(malloc(kLineSize)));
  char *result = nullptr;
  size_t keyLength = strlen(key);
  bool inSection = false;
  rewind(handle->stream);
  while (line && fgets(line.get(), kLineSize, handle->stream)) {
    const char *p = Content(line.get());
    if (!p) continue;
    // Items are searched in every section of that name, in file order.
    if (*p == '[') {
      inSection = HeaderMatches(p, section);
      continue;
    }
    if (!inSection || strncasecmp(p, key, keyLength) != 0) continue;
    const char *sep = SkipSpace(p + keyLength);
    if (*sep != '=' && *sep != ':') continue;
    result = ParseValue(sep + 1, ValueEnd::kGetItem, nullptr);
    break;
  }
  ReleaseHandle(handle);
  return result;
}

extern "C" unsigned long NatCfgGetItemLong(const char *section, const char *key,
                                           unsigned long defaultValue) noexcept {
  CPtr<char> text(NatCfgGetItem(section, key));
  if (!text) return defaultValue;
  char *end = nullptr;
  unsigned long number = strtoul(text.get(), &end, 10);
  return *end == '\0' ? number : defaultValue;
}
