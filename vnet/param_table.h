// param_table.h - the skeleton the DHCP and NAT parameter layers share.
//
// A service parameter of a vnet is stored as the vnet's answer under the
// parameter's config option ("VNET_<n>_<option>") or, when absent, has a
// default. Both layers map the public parameter numbers to their own, set,
// get (the stored value, else the default), compute defaults and remove a
// vnet's whole configuration the same way; what tells them apart are the
// columns of their ParamTable: identifiers, texts, log levels and the few
// steps of their own (checking a value, computing a default).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

namespace nxc {

// A public parameter number and the layer's own.
struct ExternalParamId {
  uint32_t external;
  uint32_t internal;
};

// One step of removing a vnet's whole configuration: the parameter, and
// the LOG_ERR line of its failure.
struct ParamRemoval {
  uint32_t id;
  const char *failed;
  bool onlyWithNat = false;  // removed only while the vnet uses NAT
};

// The buffer a default is computed into; the longest is NAT's device path.
inline constexpr size_t kParamTextSize = 256;

// One layer's parameters. Each text's arguments are named in its comment.
struct ParamTable {
  // The exported option and display-name tables, indexed by id - base.
  uint32_t base;
  const char *const *options;
  const char *const *names;
  // The ids a getter looks up; others have no option and are not found.
  uint32_t firstStored;
  uint32_t lastStored;
  // Stored ids above lastNamed are called invalidName in messages.
  uint32_t lastNamed;
  const char *invalidName;

  // The public numbers the API may use; any other maps to unmapped.
  std::span<const ExternalParamId> externalIds;
  uint32_t unmapped;
  const char *mappedTrace;  // (LOG_INFO2) external, internal; null: none

  // The layer's own steps, each logging its own lines under fn.
  // True when id may be set to value.
  bool (*checkValue)(uint32_t id, const char *value, const char *fn);
  // The default text of id into text (kParamTextSize bytes);
  // *shortBufferSucceeds tells whether a caller's buffer too small for it
  // still makes a success.
  bool (*computeDefault)(uint32_t vnet, uint32_t id, char *text, bool *shortBufferSucceeds,
                         const char *fn);
  // The layer's exported default call, which the getter falls back to.
  bool (*getDefault)(uint32_t vnet, uint32_t id, char *buf, size_t size);
  // A value (stored, or the default when forDefault) that does not fit the
  // caller's buffer of size bytes; it needs need.
  void (*noRoom)(const char *fn, uint32_t id, const char *name, size_t size, size_t need,
                 bool forDefault);

  const char *unknownOnGet;  // (LOG_ERR) the id as int; null: the getter finds nothing
  const char *storedValue;   // (LOG_INFO2) name, value, vnet
  uint32_t notFoundLevel;
  const char *notFound;      // name, vnet
  const char *reverting;     // (LOG_INFO2) no arguments
  const char *setFailed;     // (LOG_ERR) name, vnet
  const char *setSucceeded;  // (LOG_INFO2) name, value, vnet
  const char *defaultValue;  // (LOG_INFO2) name, value, vnet
};

// The config option of id, or null outside the stored range.
const char *ParamOption(const ParamTable &t, uint32_t id);
// The display name of id for messages.
const char *ParamName(const ParamTable &t, uint32_t id);

// The layer's id of a public number; an unmapped one logs "Could not map
// external paramID: %u" and gives t.unmapped.
uint32_t MapExternalParamId(const ParamTable &t, uint32_t external, const char *fn);
// Checks value and stores it as the vnet's answer.
[[nodiscard]]
bool SetParam(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, const char *value);
// Copies the stored value into buf, else (with useDefault) the default.
[[nodiscard]]
bool GetParam(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, bool useDefault,
              char *buf, size_t size);
// Copies the default into buf.
[[nodiscard]]
bool GetParamDefault(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, char *buf,
                     size_t size);
// Removes each parameter in turn with remove, logging each failure; every
// step runs, and the result is true when all succeeded.
[[nodiscard]]
bool RemoveParams(const char *fn, uint32_t vnet, std::span<const ParamRemoval> steps,
                  bool (*remove)(uint32_t vnet, uint32_t id));

}  // namespace nxc
