// <net/if.h> first: the kernel headers then leave its definitions alone.
#include <net/if.h>

#include "daemons/rtnl.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zynetd {
namespace {

// A netlink message under construction in a string; attributes are
// appended at 4-byte boundaries.
class Request {
 public:
  Request(uint16_t type, uint16_t flags, const void *header, size_t size) {
    struct nlmsghdr nh = {};
    nh.nlmsg_type = type;
    nh.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    Append(&nh, sizeof nh);
    Append(header, size);
  }
  void Put(uint16_t type, const void *data, size_t size) {
    struct rtattr rta;
    rta.rta_type = type;
    rta.rta_len = static_cast<uint16_t>(RTA_LENGTH(size));
    Append(&rta, sizeof rta);
    Append(data, size);
  }
  void PutU32(uint16_t type, uint32_t value) { Put(type, &value, sizeof value); }
  void PutString(uint16_t type, const std::string &text) { Put(type, text.c_str(), text.size() + 1); }
  size_t BeginNest(uint16_t type) {
    size_t at = text_.size();
    Put(type, nullptr, 0);
    return at;
  }
  void EndNest(size_t at) {
    auto *rta = reinterpret_cast<struct rtattr *>(&text_[at]);
    rta->rta_len = static_cast<uint16_t>(text_.size() - at);
  }
  // The finished message, its length set.
  std::string *Done() {
    reinterpret_cast<struct nlmsghdr *>(&text_[0])->nlmsg_len = static_cast<uint32_t>(text_.size());
    return &text_;
  }

 private:
  void Append(const void *data, size_t size) {
    if (size) text_.append(static_cast<const char *>(data), size);
    text_.resize(NLMSG_ALIGN(text_.size()), '\0');
  }
  std::string text_;
};

// Calls f(type, payload, length) for each attribute in [first, first+len).
template <class F>
void ForEachAttribute(const struct rtattr *rta, int len, F f) {
  for (; RTA_OK(rta, len); rta = RTA_NEXT(rta, len))
    f(rta->rta_type & NLA_TYPE_MASK, static_cast<const char *>(RTA_DATA(rta)),
      static_cast<size_t>(RTA_PAYLOAD(rta)));
}

uint32_t U32(const char *data, size_t size) {
  uint32_t value = 0;
  if (size >= sizeof value) memcpy(&value, data, sizeof value);
  return value;
}

std::string Text(const char *data, size_t size) { return std::string(data, strnlen(data, size)); }

Request LinkRequest(uint16_t type, uint16_t flags, int index) {
  struct ifinfomsg ifi = {};
  ifi.ifi_family = AF_UNSPEC;
  ifi.ifi_index = index;
  return Request(type, flags, &ifi, sizeof ifi);
}

void ParseLink(const struct nlmsghdr *nh, Link *link) {
  const auto *ifi = static_cast<const struct ifinfomsg *>(NLMSG_DATA(nh));
  link->index = ifi->ifi_index;
  link->flags = ifi->ifi_flags;
  link->type = ifi->ifi_type;
  ForEachAttribute(IFLA_RTA(ifi), static_cast<int>(IFLA_PAYLOAD(nh)), [&](int type, const char *data, size_t size) {
    switch (type) {
      case IFLA_IFNAME: link->name = Text(data, size); break;
      case IFLA_MTU: link->mtu = U32(data, size); break;
      case IFLA_MASTER: link->master = static_cast<int>(U32(data, size)); break;
      case IFLA_ADDRESS: link->mac.assign(data, size); break;
      case IFLA_IFALIAS: link->alias = Text(data, size); break;
      case IFLA_LINKINFO:
        ForEachAttribute(reinterpret_cast<const struct rtattr *>(data), static_cast<int>(size),
                         [&](int infoType, const char *info, size_t infoSize) {
                           if (infoType == IFLA_INFO_KIND) link->kind = Text(info, infoSize);
                         });
        break;
      default: break;
    }
  });
}

void ParseAddress(const struct nlmsghdr *nh, Address *address, int *index) {
  const auto *ifa = static_cast<const struct ifaddrmsg *>(NLMSG_DATA(nh));
  *index = static_cast<int>(ifa->ifa_index);
  address->family = ifa->ifa_family;
  address->prefixLength = ifa->ifa_prefixlen;
  address->scope = ifa->ifa_scope;
  address->flags = ifa->ifa_flags;
  ForEachAttribute(IFA_RTA(ifa), static_cast<int>(IFA_PAYLOAD(nh)), [&](int type, const char *data, size_t size) {
    switch (type) {
      case IFA_LOCAL: address->local.assign(data, size); break;
      case IFA_ADDRESS: address->peer.assign(data, size); break;
      case IFA_BROADCAST: address->broadcast.assign(data, size); break;
      case IFA_FLAGS: address->flags = U32(data, size); break;
      case IFA_CACHEINFO:
        if (size >= sizeof(struct ifa_cacheinfo)) {
          struct ifa_cacheinfo ci;
          memcpy(&ci, data, sizeof ci);
          address->validLifetime = ci.ifa_valid;
          address->preferredLifetime = ci.ifa_prefered;
        }
        break;
      default: break;
    }
  });
  if (address->local.empty()) address->local = address->peer;  // IPv6 lists only IFA_ADDRESS
}

Request AddressRequest(uint16_t type, uint16_t flags, int index, const Address &address) {
  struct ifaddrmsg ifa = {};
  ifa.ifa_family = static_cast<uint8_t>(address.family);
  ifa.ifa_prefixlen = address.prefixLength;
  ifa.ifa_scope = address.scope;
  ifa.ifa_index = static_cast<uint32_t>(index);
  Request r(type, flags, &ifa, sizeof ifa);
  r.Put(IFA_LOCAL, address.local.data(), address.local.size());
  const std::string &peer = address.peer.empty() ? address.local : address.peer;
  r.Put(IFA_ADDRESS, peer.data(), peer.size());
  return r;
}

// The route through link index: what describes the route goes along; what
// the kernel keeps about it (cache information, the old link) does not.
std::string RouteRequest(uint16_t type, uint16_t flags, const Route &route, int index) {
  const auto *nh = reinterpret_cast<const struct nlmsghdr *>(route.message.data());
  const auto *rtm = static_cast<const struct rtmsg *>(NLMSG_DATA(nh));
  Request r(type, flags, rtm, sizeof *rtm);
  r.PutU32(RTA_OIF, static_cast<uint32_t>(index));
  ForEachAttribute(RTM_RTA(rtm), static_cast<int>(RTM_PAYLOAD(nh)), [&](int attr, const char *data, size_t size) {
    switch (attr) {
      case RTA_DST:
      case RTA_SRC:
      case RTA_GATEWAY:
      case RTA_PRIORITY:
      case RTA_PREFSRC:
      case RTA_METRICS:
      case RTA_TABLE:
      case RTA_PREF:
        r.Put(static_cast<uint16_t>(attr), data, size);
        break;
      default: break;
    }
  });
  return *r.Done();
}

}  // namespace

Rtnl::~Rtnl() {
  if (fd_ >= 0) (void)close(fd_);
}

int Rtnl::Open() {
  fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (fd_ < 0) return -errno;
  struct sockaddr_nl local = {};
  local.nl_family = AF_NETLINK;
  if (bind(fd_, reinterpret_cast<struct sockaddr *>(&local), sizeof local) != 0) return -errno;
  return 0;
}

int Rtnl::Transact(std::string *request) {
  auto *nh = reinterpret_cast<struct nlmsghdr *>(&(*request)[0]);
  nh->nlmsg_flags |= NLM_F_ACK;
  nh->nlmsg_seq = ++seq_;
  if (send(fd_, request->data(), request->size(), 0) < 0) return -errno;
  char buf[8192];
  for (;;) {
    ssize_t n = recv(fd_, buf, sizeof buf, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -errno;
    }
    // Unsigned, as the header length it is compared with.
    auto len = static_cast<unsigned>(n);
    for (auto *reply = reinterpret_cast<struct nlmsghdr *>(buf); NLMSG_OK(reply, len); reply = NLMSG_NEXT(reply, len)) {
      if (reply->nlmsg_seq != seq_ || reply->nlmsg_type != NLMSG_ERROR) continue;
      return static_cast<const struct nlmsgerr *>(NLMSG_DATA(reply))->error;
    }
  }
}

template <class F>
int Rtnl::Dump(std::string *request, F onMessage) {
  auto *nh = reinterpret_cast<struct nlmsghdr *>(&(*request)[0]);
  nh->nlmsg_flags |= NLM_F_DUMP;
  nh->nlmsg_seq = ++seq_;
  if (send(fd_, request->data(), request->size(), 0) < 0) return -errno;
  std::string buf(65536, '\0');
  for (;;) {
    ssize_t n = recv(fd_, &buf[0], buf.size(), 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -errno;
    }
    // Unsigned, as the header length it is compared with.
    auto len = static_cast<unsigned>(n);
    for (auto *reply = reinterpret_cast<const struct nlmsghdr *>(buf.data()); NLMSG_OK(reply, len);
         reply = NLMSG_NEXT(reply, len)) {
      if (reply->nlmsg_seq != seq_) continue;
      if (reply->nlmsg_type == NLMSG_DONE) return 0;
      if (reply->nlmsg_type == NLMSG_ERROR) return static_cast<const struct nlmsgerr *>(NLMSG_DATA(reply))->error;
      onMessage(reply);
    }
  }
}

int Rtnl::Links(std::vector<Link> *out) {
  Request r = LinkRequest(RTM_GETLINK, 0, 0);
  std::vector<Link> links;
  int rc = Dump(r.Done(), [&](const struct nlmsghdr *nh) {
    if (nh->nlmsg_type != RTM_NEWLINK) return;
    links.emplace_back();
    ParseLink(nh, &links.back());
  });
  if (rc == 0) *out = std::move(links);
  return rc;
}

int Rtnl::FindLink(const std::string &name, Link *out) {
  std::vector<Link> links;
  if (int rc = Links(&links)) return rc;
  for (Link &link : links) {
    if (link.name != name) continue;
    *out = std::move(link);
    return 0;
  }
  return -ENODEV;
}

int Rtnl::CreateBridge(const std::string &name, const std::string &mac) {
  Request r = LinkRequest(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, 0);
  r.PutString(IFLA_IFNAME, name);
  if (!mac.empty()) r.Put(IFLA_ADDRESS, mac.data(), mac.size());
  size_t info = r.BeginNest(IFLA_LINKINFO);
  r.PutString(IFLA_INFO_KIND, "bridge");
  r.EndNest(info);
  return Transact(r.Done());
}

int Rtnl::DeleteLink(int index) {
  Request r = LinkRequest(RTM_DELLINK, 0, index);
  return Transact(r.Done());
}

int Rtnl::SetUp(int index, bool up) {
  struct ifinfomsg ifi = {};
  ifi.ifi_family = AF_UNSPEC;
  ifi.ifi_index = index;
  ifi.ifi_flags = up ? IFF_UP : 0;
  ifi.ifi_change = IFF_UP;
  Request r(RTM_NEWLINK, 0, &ifi, sizeof ifi);
  return Transact(r.Done());
}

int Rtnl::SetMtu(int index, unsigned mtu) {
  Request r = LinkRequest(RTM_NEWLINK, 0, index);
  r.PutU32(IFLA_MTU, mtu);
  return Transact(r.Done());
}

int Rtnl::SetMaster(int index, int master) {
  Request r = LinkRequest(RTM_NEWLINK, 0, index);
  r.PutU32(IFLA_MASTER, static_cast<uint32_t>(master));
  return Transact(r.Done());
}

int Rtnl::SetMac(int index, const std::string &mac) {
  Request r = LinkRequest(RTM_NEWLINK, 0, index);
  r.Put(IFLA_ADDRESS, mac.data(), mac.size());
  return Transact(r.Done());
}

int Rtnl::SetAlias(int index, const std::string &alias) {
  Request r = LinkRequest(RTM_NEWLINK, 0, index);
  r.Put(IFLA_IFALIAS, alias.data(), alias.size());
  return Transact(r.Done());
}

int Rtnl::Addresses(int index, int family, std::vector<Address> *out) {
  struct ifaddrmsg ifa = {};
  ifa.ifa_family = static_cast<uint8_t>(family);
  Request r(RTM_GETADDR, 0, &ifa, sizeof ifa);
  std::vector<Address> primary, secondary;
  int rc = Dump(r.Done(), [&](const struct nlmsghdr *nh) {
    if (nh->nlmsg_type != RTM_NEWADDR) return;
    Address address;
    int of = 0;
    ParseAddress(nh, &address, &of);
    if (of != index) return;
    (address.flags & IFA_F_SECONDARY ? secondary : primary).push_back(address);
  });
  if (rc != 0) return rc;
  primary.insert(primary.end(), secondary.begin(), secondary.end());
  *out = std::move(primary);
  return 0;
}

int Rtnl::AddAddress(int index, const Address &address) {
  Request r = AddressRequest(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, index, address);
  if (!address.broadcast.empty()) r.Put(IFA_BROADCAST, address.broadcast.data(), address.broadcast.size());
  // Only the flags that describe the address, not its state.
  uint32_t flags = address.flags & (IFA_F_NODAD | IFA_F_NOPREFIXROUTE | IFA_F_MANAGETEMPADDR | IFA_F_HOMEADDRESS);
  if (address.family == AF_INET6) flags |= IFA_F_NODAD;  // it was in use already
  r.PutU32(IFA_FLAGS, flags);
  struct ifa_cacheinfo ci = {};
  ci.ifa_valid = address.validLifetime;
  ci.ifa_prefered = address.preferredLifetime;
  r.Put(IFA_CACHEINFO, &ci, sizeof ci);
  return Transact(r.Done());
}

int Rtnl::DeleteAddress(int index, const Address &address) {
  Request r = AddressRequest(RTM_DELADDR, 0, index, address);
  return Transact(r.Done());
}

int Rtnl::Routes(int index, std::vector<Route> *out) {
  std::vector<Route> routes;
  for (int family : {AF_INET, AF_INET6}) {
    struct rtmsg rtm = {};
    rtm.rtm_family = static_cast<uint8_t>(family);
    Request r(RTM_GETROUTE, 0, &rtm, sizeof rtm);
    int rc = Dump(r.Done(), [&](const struct nlmsghdr *nh) {
      const auto *route = static_cast<const struct rtmsg *>(NLMSG_DATA(nh));
      if (nh->nlmsg_type != RTM_NEWROUTE || route->rtm_type != RTN_UNICAST ||
          route->rtm_protocol == RTPROT_KERNEL)
        return;
      uint32_t table = route->rtm_table, oif = 0;
      ForEachAttribute(RTM_RTA(route), static_cast<int>(RTM_PAYLOAD(nh)), [&](int type, const char *data, size_t size) {
        if (type == RTA_TABLE) table = U32(data, size);
        if (type == RTA_OIF) oif = U32(data, size);
      });
      if (table == RT_TABLE_MAIN && oif == static_cast<uint32_t>(index))
        routes.push_back({std::string(reinterpret_cast<const char *>(nh), nh->nlmsg_len)});
    });
    if (rc != 0) return rc;
  }
  *out = std::move(routes);
  return 0;
}

int Rtnl::AddRoute(const Route &route, int index) {
  std::string request = RouteRequest(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, route, index);
  return Transact(&request);
}

int Rtnl::DeleteRoute(const Route &route, int index) {
  std::string request = RouteRequest(RTM_DELROUTE, 0, route, index);
  return Transact(&request);
}

[[nodiscard]] bool ParseIpv4(const std::string &text, uint32_t *out) {
  struct in_addr a;
  if (inet_pton(AF_INET, text.c_str(), &a) != 1) return false;
  *out = ntohl(a.s_addr);
  return true;
}

Address Ipv4Address(uint32_t address, uint32_t mask) {
  auto raw = [](uint32_t hostOrder) {
    uint32_t n = htonl(hostOrder);
    return std::string(reinterpret_cast<const char *>(&n), sizeof n);
  };
  Address a;
  a.family = AF_INET;
  a.prefixLength = static_cast<uint8_t>(__builtin_popcount(mask));
  a.local = a.peer = raw(address);
  a.broadcast = raw((address & mask) | ~mask);
  return a;
}

std::string MacText(const std::string &mac) {
  std::string text;
  char byte[4];
  for (size_t i = 0; i < mac.size(); ++i) {
    snprintf(byte, sizeof byte, i ? ":%02X" : "%02X", static_cast<unsigned char>(mac[i]));
    text += byte;
  }
  return text;
}

std::string AddressText(int family, const std::string &raw) {
  char text[INET6_ADDRSTRLEN] = "?";
  if (raw.size() == (family == AF_INET ? 4u : 16u)) (void)inet_ntop(family, raw.data(), text, sizeof text);
  return text;
}

std::string AddressText(const Address &address) {
  return AddressText(address.family, address.local) + "/" + std::to_string(address.prefixLength);
}

}  // namespace zynetd
