// nat_rules.h - what a vnet's nat.conf asks of the host, and the nftables
// table that does it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

struct nft_ctx;

namespace zynetd {

struct PortForward {
  bool tcp = true;
  unsigned hostPort = 0;
  std::string guestAddress;  // dotted IPv4
  unsigned guestPort = 0;
};

struct NatConfig {
  int vnet = -1;              // from the device line, /dev/zynet<n>
  std::string bridge;         // zynet<n>
  uint32_t gateway = 0;       // host order
  uint32_t mask = 0;
  bool nat6 = false;
  std::string nat6Prefix;     // "<address>/<length>", checked when nat6 is on
  std::vector<PortForward> forwards;
};

// Reads nat.conf at path through the library's reader ([host] ip, netmask,
// device, natIp6Enable, natIp6Prefix; [incomingtcp] and [incomingudp]).
// A forward that does not parse is logged and left out. Logs and returns
// false when a [host] value is missing or invalid.
[[nodiscard]] bool ReadNatConfig(const std::string &path, NatConfig *out);

// The vnet's table "inet zynet-nat-<n>": masquerade of the subnet (and the
// NAT66 prefix) leaving through any other interface, and a DNAT for each
// forward, reachable from outside, from the host and from other guests.
// IPv4 (and, with NAT66, IPv6) forwarding is on while any such table
// exists; the last table to go puts back the forwarding the host had
// before the first one came.
class NatTable {
 public:
  NatTable() = default;
  NatTable(const NatTable &) = delete;
  NatTable &operator=(const NatTable &) = delete;
  ~NatTable();

  // Installs the table for config, or replaces the one installed in one
  // transaction; on failure the old rules stay. Logs and returns false.
  [[nodiscard]] bool Apply(const NatConfig &config);
  // Removes the table and, when it was the last one, restores forwarding.
  void Remove();

 private:
  [[nodiscard]] bool Run(const std::string &commands, std::string *output = nullptr);
  [[nodiscard]] bool RememberForwarding();

  nft_ctx *ctx_ = nullptr;
  std::string name_;
  std::string forwardingBefore_;  // "ipv4 <0|1> ipv6 <0|1>"
};

}  // namespace zynetd
