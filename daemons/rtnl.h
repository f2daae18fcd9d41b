// rtnl.h - the routing netlink requests the daemons make: links (bridges,
// ports, MTU, MAC, alias), addresses and routes.
//
// Every request returns 0 or a negative errno and logs nothing: the caller
// knows what the request was for and logs that. Byte strings (MAC and IP
// addresses) are held raw, in network order, in std::string.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace zynetd {

struct Link {
  int index = 0;
  std::string name;
  unsigned flags = 0;  // IFF_*
  unsigned type = 0;   // ARPHRD_*
  unsigned mtu = 0;
  int master = 0;      // the bridge this link is a port of, or 0
  std::string kind;    // "bridge", "veth", "tun", …; empty for a plain device
  std::string mac;
  std::string alias;
};

struct Address {
  int family = 0;
  uint8_t prefixLength = 0;
  uint8_t scope = 0;
  uint32_t flags = 0;  // IFA_F_*
  std::string local;   // the address itself
  std::string peer;    // IFA_ADDRESS: the same as local unless point-to-point
  std::string broadcast;
  uint32_t validLifetime = 0xFFFFFFFF;
  uint32_t preferredLifetime = 0xFFFFFFFF;
};

// A route as the kernel listed it: the whole message, so that it can be
// added again through another link unchanged otherwise.
struct Route {
  std::string message;
};

class Rtnl {
 public:
  Rtnl() = default;
  Rtnl(const Rtnl &) = delete;
  Rtnl &operator=(const Rtnl &) = delete;
  ~Rtnl();

  int Open();

  int Links(std::vector<Link> *out);
  // -ENODEV when there is no link of that name.
  int FindLink(const std::string &name, Link *out);
  // A new bridge; mac may be empty (the kernel chooses one).
  int CreateBridge(const std::string &name, const std::string &mac);
  int DeleteLink(int index);
  int SetUp(int index, bool up);
  int SetMtu(int index, unsigned mtu);
  // Makes index a port of master; master 0 releases it.
  int SetMaster(int index, int master);
  int SetMac(int index, const std::string &mac);
  int SetAlias(int index, const std::string &alias);

  // The link's addresses of a family (AF_UNSPEC: all), primary ones first.
  int Addresses(int index, int family, std::vector<Address> *out);
  int AddAddress(int index, const Address &address);
  int DeleteAddress(int index, const Address &address);

  // The main table's unicast routes through the link, except the ones the
  // kernel made for the link's own addresses.
  int Routes(int index, std::vector<Route> *out);
  // The route, through the link index instead of its own.
  int AddRoute(const Route &route, int index);
  int DeleteRoute(const Route &route, int index);

 private:
  int Transact(std::string *request);
  template <class F>
  int Dump(std::string *request, F onMessage);

  int fd_ = -1;
  uint32_t seq_ = 0;
};

// A dotted IPv4 address in host order; false when text is not one.
[[nodiscard]] bool ParseIpv4(const std::string &text, uint32_t *out);
// The IPv4 address (host order) with the prefix of mask and the subnet's
// broadcast address, as an interface carries it.
Address Ipv4Address(uint32_t address, uint32_t mask);

// "AA:BB:CC:DD:EE:FF" of a raw MAC address.
std::string MacText(const std::string &mac);
// The dotted or colon text of a raw IPv4 or IPv6 address.
std::string AddressText(int family, const std::string &raw);
// "text/prefix" of an address.
std::string AddressText(const Address &address);

}  // namespace zynetd
