// Fuzz target: the nat.conf reader over any file and any section and key
// names. Besides neither crashing nor leaking:
//   - the section list ends, and stays ended;
//   - every listed section is found again by name;
//   - every item key is non-empty, without blanks at its ends and without
//     '=' or ':', and the single-item lookup finds it in that section.
// Input: a section name, a NUL, a key, a NUL, then the file. Missing parts
// are empty.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <string_view>

#include "fuzz_util.h"
#include "nexcfg_internal.h"

namespace {

// Enough to walk any file of the sizes fuzzed; a list longer than its
// file has lines would not end.
constexpr int kMaxSteps = 1 << 16;
// Items are cross-checked in this many sections, this many a section: each
// lookup reads the file again.
constexpr int kCheckedSections = 8;
constexpr int kCheckedItems = 16;

// The next part of the input up to a NUL (or its end).
std::string_view Take(std::string_view *rest) {
  size_t nul = rest->find('\0');
  std::string_view part = rest->substr(0, nul);
  *rest = nul == std::string_view::npos ? std::string_view() : rest->substr(nul + 1);
  return part;
}

bool IsSpace(char c) { return isspace(static_cast<unsigned char>(c)); }

void CheckItems(const char *section, int maxSteps) {
  NatCfgIterator *it = NatCfgListItemsInit(section);
  FUZZ_CHECK(it != nullptr);
  int steps = 0;
  char *value = nullptr;
  char *comment = nullptr;
  while (char *key = NatCfgListItems(it, &value, &comment)) {
    FUZZ_CHECK(++steps <= maxSteps);
    size_t len = strlen(key);
    FUZZ_CHECK(len > 0 && !IsSpace(key[0]) && !IsSpace(key[len - 1]));
    FUZZ_CHECK(strpbrk(key, "=:") == nullptr);
    FUZZ_CHECK(value && comment);
    if (steps <= kCheckedItems) {
      char *found = NatCfgGetItem(section, key);
      FUZZ_CHECK(found != nullptr);
      free(found);
    }
    free(key);
    free(value);
    free(comment);
  }
  FUZZ_CHECK(NatCfgListItems(it, nullptr, nullptr) == nullptr);
  NatCfgListItemsDestroy(it);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string path = std::string(nxc::fuzz::ScratchDir()) + "/nat.conf";
  std::string_view rest(reinterpret_cast<const char *>(data), size);
  std::string section(Take(&rest));
  std::string key(Take(&rest));
  nxc::fuzz::WriteFile(path, rest);
  globalConfig = path.c_str();
  int maxSteps = static_cast<int>(rest.size()) + 1;
  FUZZ_CHECK(maxSteps <= kMaxSteps);

  NatCfgIterator *sections = NatCfgListSectionsInit();
  FUZZ_CHECK(sections != nullptr);
  int steps = 0;
  while (char *name = NatCfgListSections(sections)) {
    FUZZ_CHECK(++steps <= maxSteps);
    if (steps <= kCheckedSections) CheckItems(name, maxSteps);
    free(name);
  }
  FUZZ_CHECK(NatCfgListSections(sections) == nullptr);
  NatCfgListSectionsDestroy(sections);

  // The names the input chose, which need not be in the file.
  if (NatCfgIterator *it = NatCfgListItemsInit(section.c_str())) {
    for (int i = 0; i < maxSteps; ++i) {
      char *value = nullptr;
      char *k = NatCfgListItems(it, &value, nullptr);
      if (!k) break;
      free(k);
      free(value);
    }
    NatCfgListItemsDestroy(it);
  }
  free(NatCfgGetItem(section.c_str(), key.c_str()));
  (void)NatCfgGetItemLong(section.c_str(), key.c_str(), 0);
  globalConfig = nullptr;
  return 0;
}
