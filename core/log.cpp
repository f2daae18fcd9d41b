// log.cpp - the library's log: one line per message, with time and the
// reporting function's name, written when the level is in the log mask.
#include "core/log.h"

#include <assert.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "base/str_util.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

NXCContext nxcContext = {0, 0, nullptr};

namespace {

constexpr uint32_t kMaxLogLevel = 0x7F;

// "Mar 04 17:05:09", or "" when the time cannot be formatted in 15 chars.
// Formatted once per second (and thread): the lines of one call share it.
void FormatLogTime(char (&out)[16]) {
  thread_local time_t formattedAt = -1;
  thread_local char formatted[16];
  time_t now = time(nullptr);
  if (now != formattedAt) {
    struct tm local;
    size_t n = 0;
    if (localtime_r(&now, &local)) n = strftime(formatted, sizeof formatted, "%b %d %T", &local);
    if (n == 0 || n > 15) formatted[0] = '\0';
    formattedAt = now;
  }
  memcpy(out, formatted, sizeof out);
}

// The hold that keeps this thread's lines, if any.
thread_local nxc::LogHold *gHold = nullptr;

// A line's time stamp and the blank after it. Write errors are ignored
// here and below: logging never fails towards its caller.
void WriteStamp(FILE *stream) {
  char when[16];
  FormatLogTime(when);
  (void)fputs(when, stream);
  (void)fputc(' ', stream);
}

// The end of a line: it reaches the file at once.
void EndLine(FILE *stream) {
  (void)fputc('\n', stream);
  (void)fflush(stream);
}

// Writes a line made earlier (the text after its time stamp).
void WriteLine(std::string_view text) {
  FILE *stream = nxcContext.logStream;
  if (!stream) return;
  WriteStamp(stream);
  (void)fwrite(text.data(), 1, text.size(), stream);
  EndLine(stream);
}

}  // namespace

nxc::LogHold::LogHold() noexcept : outer_(gHold) { gHold = this; }

nxc::LogHold::~LogHold() { Stop(); }

void nxc::LogHold::Stop() noexcept {
  if (!holding_) return;
  assert(gHold == this && "holds stop in the reverse order of their start");
  gHold = outer_;
  holding_ = false;
}

void nxc::LogHold::WriteOut() noexcept {
  Stop();
  const char *at = lines_.Data();
  const char *end = at + lines_.Size();
  while (at < end) {
    size_t size;
    memcpy(&size, at, sizeof size);
    const std::string_view text(at + sizeof size, size);
    at += sizeof size + size;
    if (!gHold || !gHold->Add(text)) WriteLine(text);
  }
  lines_.Clear();
}

bool nxc::LogHold::Add(std::string_view text) noexcept {
  const size_t size = text.size();
  // Room for both parts first, so that a line is kept whole or not at all.
  return lines_.Reserve(sizeof size + size) && lines_.Append(&size, sizeof size) &&
         lines_.Append(text.data(), size);
}

bool nxc::LogHold::Keep(const char *fn, const char *format, va_list args) noexcept {
  if (!gHold) return false;
  ByteBuffer line;
  const bool made = (!fn || line.AppendAll(fn, " - ")) && line.AppendVPrintf(format, args);
  return made && gHold->Add({line.Data(), line.Size()});
}

extern "C" void NXCVLog(uint32_t level, const char *fn, const char *format,
                        va_list args) noexcept {
  FILE *stream = nxcContext.logStream;
  if ((level & nxcContext.logMask) == 0 || !stream) return;
  if (nxc::LogHold::Keep(fn, format, args)) return;
  WriteStamp(stream);
  if (fn) {
    (void)fputs(fn, stream);
    (void)fputs(" - ", stream);
  }
  (void)vfprintf(stream, format, args);
  EndLine(stream);
}

extern "C" void NXCLog(uint32_t level, const char *fn, const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  NXCVLog(level, fn, format, args);
  va_end(args);
}

extern "C" bool NXCGetLogPath(char *buffer, size_t size) noexcept {
  const char *path = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, "NXC_LOG_FILE", &path)) return false;
  if (strlen(path) >= size) return false;
  memcpy(buffer, path, strlen(path) + 1);
  return true;
}

extern "C" bool NXCSetVnetCfgLogLevel(int32_t level) noexcept {
  char text[11];
  (void)nxc::BoundedPrint(text, sizeof text, "0x%x", static_cast<unsigned>(level));
  return NXCNetCfgAddAnswerString(nullptr, "NXC_LOGLEVEL", text);
}

extern "C" uint32_t NXCGetVnetCfgLogLevel(void) noexcept {
  int32_t level = 0;
  if (!NXCNetCfgGetAnswerInt32(nullptr, "NXC_LOGLEVEL", &level)) return nxc::kDefaultLogMask;
  if (level < 0) return nxc::kDefaultLogMask;
  // Values above the highest level are kept: the mask is only a bit set.
  return static_cast<uint32_t>(level);
}

// The four log-level calls run outside the API call frame and work whether
// or not the library is loaded; the stored level needs a loaded database.
extern "C" bool NXC_SetDefaultLogLevel(uint32_t level) noexcept {
  nxc::ApiCall call("NXC_SetDefaultLogLevel");
  if (level > kMaxLogLevel) {
    NXCLog(LOG_ERR, call.fn(), "Invalid log level: %x, max log level: %x", level,
           kMaxLogLevel);
    return false;
  }
  return NXCSetVnetCfgLogLevel(static_cast<int32_t>(level));
}

extern "C" uint32_t NXC_GetDefaultLogLevel(void) noexcept {
  nxc::ApiCall call("NXC_GetDefaultLogLevel");
  return NXCGetVnetCfgLogLevel();
}

extern "C" bool NXC_SetCurrentLogLevel(uint32_t level) noexcept {
  nxc::ApiCall call("NXC_SetCurrentLogLevel");
  nxcContext.logMask = level;
  return true;
}

extern "C" uint32_t NXC_GetCurrentLogLevel(void) noexcept {
  nxc::ApiCall call("NXC_GetCurrentLogLevel");
  return nxcContext.logMask;
}
