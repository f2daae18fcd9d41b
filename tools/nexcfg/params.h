// params.h - DHCP and NAT parameters by readable name: the interface
// numbers them, the tool names them.
#pragma once

#include <span>
#include <string>

#include "cli.h"

namespace nexcfg {

struct Param {
  const char *name;  // the tool's name, e.g. "lease-start"
  uint32_t id;       // the interface's parameter number
  const char *meaning;
};

struct ParamFamily {
  const char *label;  // "DHCP" or "NAT"
  const char *command;  // "dhcp" or "nat"
  std::span<const Param> params;
  bool (*get)(const char *vnet, uint32_t id, bool useDefault, char *value, uint32_t *valueLen);
  bool (*set)(const char *vnet, uint32_t id, const char *value, uint32_t valueLen);
};

const ParamFamily &DhcpParams();
const ParamFamily &NatParams();

// The parameter named word (or given by its number); a usage error names
// the known ones.
const Param &ParamNamed(const ParamFamily &family, const std::string &word);
// [{"name", "value", "source"}]: the stored value ("set"), else the
// library's default ("default"), else null.
Json ParametersJson(const ParamFamily &family, const std::string &vnet);
// The help text listing a family's parameters.
std::string ParamHelp(const ParamFamily &family);

// The `<family> show|set|unset` commands.
int ParamShow(const ParamFamily &family, const Invocation &in);
int ParamSet(const ParamFamily &family, const Invocation &in);
int ParamUnset(const ParamFamily &family, const Invocation &in);

// The `<family> on|off` commands over the feature switch.
int FeatureSwitch(const char *label, bool (*set)(const char *, bool, bool), const Invocation &in,
                  bool on);

}  // namespace nexcfg
