// params.h - DHCP and NAT parameters by readable name: the interface
// numbers them, the database keeps them under their field names, the tool
// names them and knows the kind of value each takes.
#pragma once

#include <span>
#include <string>

#include "cli.h"

namespace nexcfg {

enum class ParamKind {
  kAddress,  // an IPv4 address
  kSeconds,  // a whole number of seconds, 0 or more
  kPort,     // 1-65535
  kSwitch,   // "0" or "1"
  kPrefix,   // a NAT66 prefix
};

struct Param {
  const char *name;   // the tool's name, e.g. "lease-start"
  uint32_t id;        // the interface's parameter number
  const char *field;  // the vnet field it is stored under, e.g. "DHCP_PARAM_LEASE_START_IP"
  ParamKind kind;
  const char *meaning;
};

struct ParamFamily {
  const char *label;    // "DHCP" or "NAT"
  const char *command;  // "dhcp" or "nat"
  std::span<const Param> params;
  bool (*get)(const char *vnet, uint32_t id, bool useDefault, char *value, uint32_t *valueLen);
  bool (*set)(const char *vnet, uint32_t id, const char *value, uint32_t valueLen);
};

const ParamFamily &DhcpParams();
const ParamFamily &NatParams();
// The parameter of either family stored under a vnet field, or null.
const Param *ParamOfField(const std::string &field);

// The parameter named word; a usage error names the known ones.
const Param &ParamNamed(const ParamFamily &family, const std::string &word);
// A value as JSON: a number for seconds and ports, a boolean for
// switches, else (and for a stored value that does not parse) the text.
Json ParamValueJson(const Param &param, const std::string &text);
// The value the library uses for a parameter: the stored one, else its
// default; "" when it has neither.
std::string EffectiveValue(const ParamFamily &family, const std::string &vnet, const std::string &name);
// [{"name", "value", "source"}]: the stored value ("set"), else the
// library's default ("default"), else null.
Json ParametersJson(const ParamFamily &family, const std::string &vnet);
// The help text listing a family's parameters.
std::string ParamHelp(const ParamFamily &family);

// The `<family> show|set|unset` commands.
int ParamShow(const ParamFamily &family, const Invocation &in);
int ParamSet(const ParamFamily &family, const Invocation &in);
int ParamUnset(const ParamFamily &family, const Invocation &in);

// The `<family> on|off` commands over the feature switch; field is the
// vnet field of the switch ("DHCP", "NAT", "VIRTUAL_ADAPTER").
int FeatureSwitch(const char *label, const char *field, bool (*set)(const char *, bool, bool),
                  const Invocation &in, bool on);

}  // namespace nexcfg
