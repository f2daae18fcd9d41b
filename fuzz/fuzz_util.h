// fuzz_util.h - what the fuzz targets share: a property check that stops
// the run, and a private scratch folder for the files a target writes.
#pragma once

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <string_view>

// A broken property is a finding like a crash: the engine keeps the input,
// and the replay test fails.
#define FUZZ_CHECK(cond)                                                               \
  do {                                                                                 \
    if (!(cond)) {                                                                     \
      fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #cond);      \
      abort();                                                                         \
    }                                                                                  \
  } while (0)

namespace nxc::fuzz {

// A folder of this process's own under TMPDIR (or /tmp), made on first use
// and removed with everything in it when the process exits. The path is
// kept in a plain array: exit handlers run after static strings are gone.
inline const char *ScratchDir() {
  static char dir[4096] = "";
  if (*dir) return dir;
  const char *tmp = getenv("TMPDIR");
  int n = snprintf(dir, sizeof dir, "%s/nxc-fuzz-XXXXXX", tmp && *tmp ? tmp : "/tmp");
  if (n < 0 || static_cast<size_t>(n) >= sizeof dir || !mkdtemp(dir)) {
    perror("mkdtemp");
    abort();
  }
  atexit([] {
    (void)nftw(ScratchDir(),
               [](const char *path, const struct stat *, int, struct FTW *) { return remove(path); },
               16, FTW_DEPTH | FTW_PHYS);
  });
  return dir;
}

// The whole file, or "" when it cannot be read.
inline std::string ReadFile(const std::string &path) {
  std::string bytes;
  FILE *f = fopen(path.c_str(), "rbe");
  if (!f) return bytes;
  char chunk[4096];
  for (size_t n; (n = fread(chunk, 1, sizeof chunk, f)) > 0;) bytes.append(chunk, n);
  fclose(f);
  return bytes;
}

// Replaces the file's content; a failure stops the run, since no property
// can be checked without the file.
inline void WriteFile(const std::string &path, std::string_view bytes) {
  FILE *f = fopen(path.c_str(), "wbe");
  FUZZ_CHECK(f != nullptr);
  bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  FUZZ_CHECK(fclose(f) == 0 && ok);
}

}  // namespace nxc::fuzz
