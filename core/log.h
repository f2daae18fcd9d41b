// log.h - holding back the log lines of work done ahead of its turn.
#pragma once

#include <stdarg.h>

#include <string_view>

#include "base/byte_buffer.h"

namespace nxc {

// While a LogHold holds, the lines its thread logs are kept instead of
// written, so that work done ahead of its place in a sequence can show its
// lines where the sequence puts them. The mask decides when a line is made;
// its time stamp is taken when it is written out, as a line made at that
// point would carry, so the log keeps reading in time order.
//
// Holds nest: a hold made while another holds must stop first, and the
// lines it writes out while the other still holds go into the other one.
// Lines still held when a hold ends are dropped: they belong to work whose
// turn never came.
class [[nodiscard]] LogHold {
 public:
  LogHold() noexcept;
  ~LogHold();
  LogHold(const LogHold &) = delete;
  LogHold &operator=(const LogHold &) = delete;

  // Stops holding: lines made from now on are written as usual, the held
  // ones wait for WriteOut.
  void Stop() noexcept;
  // Stops holding and writes the held lines, in the order they were made.
  void WriteOut() noexcept;

  // The log's side: keeps one line (the text after its time stamp) when
  // this thread holds; false when it does not, or memory runs out, and the
  // line is to be written at once.
  static bool Keep(const char *fn, const char *format, va_list args) noexcept;

 private:
  // Keeps a line; false when memory runs out.
  bool Add(std::string_view text) noexcept;
  // Each line: its length as a size_t, then its bytes.
  ByteBuffer lines_;
  LogHold *outer_;
  bool holding_ = true;
};

}  // namespace nxc
