// config_file.h - reader of `key = "value"` configuration files.
//
// One setting per line: a key, '=', and a value in double quotes (with \"
// and \\ escapes) or bare up to the end of the line; blanks around each
// part are ignored. Empty lines and lines starting with '#' are skipped.
#pragma once

#include <stddef.h>

namespace nxc {

struct KeyValueFile;

// Reads path. On failure returns null and puts a one-line reason (the
// system's error text, or "syntax error at line N") into error.
KeyValueFile *KeyValueFileLoad(const char *path, char *error, size_t errorSize) noexcept;
// The value of key (the last one when repeated), or null.
const char *KeyValueFileGet(const KeyValueFile *file, const char *key) noexcept;
void KeyValueFileFree(KeyValueFile *file) noexcept;

}  // namespace nxc
