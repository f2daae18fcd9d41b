// line_reader.cpp - read a stream one line at a time.
#include "base/line_reader.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace nxc {

char *ReadNextLine(FILE *stream, size_t maxLength, int *error) noexcept {
  // fgets needs room for at least one byte and the NUL, or it would return
  // empty pieces forever.
  if (!stream || maxLength < 2 || maxLength > INT32_MAX) {
    *error = EINVAL;
    return nullptr;
  }
  char *line = static_cast<char *>(malloc(maxLength));
  if (!line) {
    *error = ENOMEM;
    return nullptr;
  }
  errno = 0;
  if (!fgets(line, static_cast<int>(maxLength), stream)) {
    int readError = errno;
    free(line);
    if (!ferror(stream)) {
      *error = 0;
      return nullptr;
    }
    *error = readError ? readError : EIO;
    return nullptr;
  }
  size_t length = strlen(line);
  if (length > 0 && line[length - 1] == '\n') line[--length] = '\0';
  // Hand back only what the line needs; keeping the long buffer is fine
  // when shrinking it fails.
  if (char *fitted = static_cast<char *>(realloc(line, length + 1))) line = fitted;
  *error = 0;
  return line;
}

}  // namespace nxc
