// line_reader.h - read a stream one line at a time.
#pragma once

#include <stddef.h>
#include <stdio.h>

namespace nxc {

// Reads the next line of stream into a new malloc'd string without its
// "\n". A line longer than maxLength - 1 bytes comes back in pieces of at
// most maxLength - 1 bytes, as fgets gives them. Returns null at end of file
// (*error = 0) or on a read error (*error = errno).
char *ReadNextLine(FILE *stream, size_t maxLength, int *error) noexcept;

}  // namespace nxc
