// api_util.h - steps that many public calls share, besides the call frame
// of core/api_frame.h.
#pragma once

#include "nexcfg_internal.h"

namespace nxc {

// For "%p,%s" argument traces: the text, or "null".
inline const char *OrNull(const char *s) { return s ? s : "null"; }

// The number of the vnet named name ("zynet<n>"); false, after logging
// "Invalid vnet name: %s" under fn, when the name is not one of a vnet
// 0..255.
bool ApiVnetNumber(const char *name, const char *fn, uint32_t *vnet);

// The same for a caller's required vnet argument: NULL first logs
// "Invalid argument - vnet: %p".
bool ApiVnetArgument(const char *name, const char *fn, uint32_t *vnet);

// Takes the database lock for a change; "Failed to obtain lock on vnet
// config" under fn when it cannot be had. A read-only database is changed
// in the cache only and so is not locked, unless evenReadOnly.
bool ApiLockConfig(const char *fn, bool evenReadOnly = false);
// Called on every path that passed ApiLockConfig: unlocking a database
// that holds no lock only writes a trace line.
void ApiUnlockConfig();

}  // namespace nxc
