// record_text.cpp - what text a caller may put into a record line.
//
// Records are lines of words: a text that held a line break would become a
// record of its own, one that held a blank where a word is read would be
// read back as two words. Every text on its way into a record passes
// through here before anything is changed, so that a refused change leaves
// the cache and the file as they were.
#include <arpa/inet.h>

#include "base/str_util.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

// Why text cannot go into a record as kind says, as a format for the field
// name and the length limit; null when it can.
const char *RecordTextProblem(const char *text, RecordText kind, size_t maxLength) {
  std::string_view t(text ? text : "");
  if (t.empty() && kind != RecordText::kRestOfLine) return "Refusing %s: it is empty";
  if (HasControlChar(t)) return "Refusing %s: it holds a line break or another control character";
  if (kind == RecordText::kWord && t.find(' ') != std::string_view::npos)
    return "Refusing %s: it holds a blank";
  if (maxLength != 0 && t.size() > maxLength) return "Refusing %s: it is longer than %zu bytes";
  return nullptr;
}

}  // namespace

[[nodiscard]] bool RecordTextOk(const char *text, RecordText kind, size_t maxLength) {
  return RecordTextProblem(text, kind, maxLength) == nullptr;
}

[[nodiscard]]
bool CheckRecordText(const char *fn, const char *field, const char *text, RecordText kind,
                     size_t maxLength) {
  const char *problem = RecordTextProblem(text, kind, maxLength);
  if (!problem) return true;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  NXCLog(LOG_ERR, fn, problem, field, maxLength);
#pragma GCC diagnostic pop
  return false;
}

[[nodiscard]] bool CheckRecordAddress(const char *fn, const char *field, const char *text) {
  if (!CheckRecordText(fn, field, text, RecordText::kWord)) return false;
  // Only the form the library writes itself reads back as the same text:
  // inet_pton takes exactly four decimal parts without leading zeros, where
  // the address parser also takes a sign or leading zeros.
  struct in_addr address;
  if (inet_pton(AF_INET, text, &address) != 1) {
    NXCLog(LOG_ERR, fn, "Refusing %s: it is not an IPv4 address in dotted decimal form", field);
    return false;
  }
  return true;
}

}  // namespace nxc
