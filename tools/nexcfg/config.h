// config.h - the whole configuration as nexcfg judges it, and the rules
// that judge it.
//
// Every vnet's stored settings, static leases and port forwards are read
// through the library's public interface, with the host's routes beside
// them. A change is tried on a copy first: a change that would give the
// configuration a problem it did not have is refused (or, with --force,
// made with a warning), and `nexcfg check` reports every problem there is.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "address.h"
#include "cli.h"

namespace nexcfg {

// The vnet fields the rules read (stored as answers "VNET_<n>_<field>").
constexpr char kSubnetField[] = "HOSTONLY_SUBNET";
constexpr char kMaskField[] = "HOSTONLY_NETMASK";
constexpr char kAdapterAddressField[] = "VIRTUAL_ADAPTER_ADDR";
constexpr char kMtuField[] = "MTU";
constexpr char kDhcpField[] = "DHCP";
constexpr char kNatField[] = "NAT";
constexpr char kAdapterField[] = "VIRTUAL_ADAPTER";

struct Lease {
  std::string mac;  // the standard form
  std::string ip;
  bool operator==(const Lease &) const = default;
};

struct Forward {
  bool tcp = true;
  uint16_t hostPort = 0;
  std::string vmIp;
  uint16_t vmPort = 0;
  std::string description;
  bool operator==(const Forward &) const = default;
};

struct VnetConfig {
  std::string name;                           // "zynet<n>"
  std::map<std::string, std::string> fields;  // stored values by field
  std::vector<Lease> leases;
  std::vector<Forward> forwards;
  bool partial = false;  // only the subnet and mask read (ReadConfig(vnet))

  // The stored value, or null.
  const std::string *Field(const std::string &field) const;
  // A stored boolean ("yes"); absent is false.
  bool Flag(const std::string &field) const;
  // Stores a value, or removes it when value is null.
  void Set(const std::string &field, const std::optional<std::string> &value);
  // The subnet when both address and mask are valid (host bits cleared).
  std::optional<Subnet> ValidSubnet() const;
  bool operator==(const VnetConfig &) const = default;
};

// A route of the host that is not one of the vnets' own adapters.
struct Route {
  std::string interface;
  Subnet subnet;
  bool operator==(const Route &) const = default;
};

struct Config {
  std::vector<VnetConfig> vnets;  // every vnet, by number
  std::vector<Route> routes;
  VnetConfig &Vnet(const std::string &name) { return vnets.at(VnetNumber(name)); }
  const VnetConfig &Vnet(const std::string &name) const { return vnets.at(VnetNumber(name)); }
};

// The configuration as the library has it now, and the host's routes.
Config ReadConfig();
// The same for a change of one vnet: of the others only the subnet and
// mask are read (partial), the rest by ReadRecords when a check needs it.
Config ReadConfig(const std::string &vnet);
// Reads the rest of a partial vnet: its fields, leases and forwards.
void ReadRecords(VnetConfig *v);
// Whether the rules read a vnet field.
bool IsRuleField(const std::string &field);
// A vnet's static leases, and its port forwards (TCP first), as the
// library enumerates them.
std::vector<Lease> ReadLeases(const std::string &vnet);
std::vector<Forward> ReadForwards(const std::string &vnet);

// The path of a vnet's file below the configuration directory (the answer
// CONFIGDIR, by default /etc/zymtra): VnetFile("zynet1", "dhcpd/dhcpd.conf").
std::string VnetFile(const std::string &vnet, const std::string &relative);

// ---- Problems ----------------------------------------------------------------

struct Problem {
  std::string vnet;   // "zynet<n>", or "" for the whole configuration
  bool error = true;  // false: a warning
  std::string code;
  std::string message;
  std::string fix;
  bool operator==(const Problem &o) const { return vnet == o.vnet && code == o.code && message == o.message; }
};

// Every problem of the configuration, vnet by vnet.
std::vector<Problem> ConfigProblems(const Config &config);
// The problems of after that a change from before may have added or
// removed, and those of before beside them (each in the order
// ConfigProblems gives); any other problem is the same on both sides.
std::vector<Problem> ChangeProblems(const Config &before, const Config &after,
                                    std::vector<Problem> *beforeProblems);
// {"vnet", "severity", "code", "message", "fix"}
Json ProblemJson(const Problem &problem);

// The errors a change from before to after would add, those of the vnets
// it changes first. Without force the first one is thrown as an Error
// (code "invalid"); with force they come back, to be reported as warnings.
std::vector<Problem> Vet(const Config &before, const Config &after, bool force);
// The same for one problem found by a command itself.
void Refuse(const Problem &problem, bool force, std::vector<Problem> *warnings);

// A free subnet for a vnet: the library's choice, probed with the ping
// program, skipping candidates that overlap a vnet or a host route.
Subnet ChooseSubnet(const Config &config);

// Prints the result of a change: its JSON object with "warnings" added
// last, or the line for people; warnings go to stderr as well.
void PrintChange(Json out, const std::vector<Problem> &warnings, const std::string &line);

}  // namespace nexcfg
