// dns_relay.h - the NAT gateway's name server: queries to the gateway
// address, over UDP and TCP, relayed to the host's own resolvers (the
// nameserver lines of /etc/resolv.conf). The generated dhcpd.conf names
// the gateway as the guests' name server.
#pragma once

#include <netinet/in.h>
#include <stdint.h>
#include <time.h>

#include <list>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "daemons/daemon.h"

namespace zynetd {

class DnsRelay {
 public:
  explicit DnsRelay(EventLoop *loop) : loop_(loop) {}
  DnsRelay(const DnsRelay &) = delete;
  DnsRelay &operator=(const DnsRelay &) = delete;
  ~DnsRelay();

  // Listens on port 53 of address (host order), UDP and TCP, and reads the
  // resolvers. Logs and returns false when it cannot listen.
  [[nodiscard]] bool Start(uint32_t address);
  // Reads /etc/resolv.conf again.
  void ReadResolvers();
  // Drops queries and connections that have waited too long.
  void Expire();

 private:
  struct Query {
    nxc::UniqueFd upstream;
    struct sockaddr_storage client;
    socklen_t clientLength;
    time_t deadline;
  };
  // One TCP connection: bytes from the client go upstream and back.
  struct Connection {
    nxc::UniqueFd client, upstream;
    std::string toUpstream, toClient;
    bool connecting = true;
    bool clientDone = false;
    time_t deadline;
  };

  void OnUdpQuery();
  void OnUdpAnswer(Query *query);
  void OnTcpAccept();
  void OnConnection(Connection *c, bool fromClient, short events);
  void Rewatch(Connection *c);
  void Close(Connection *c);
  const struct sockaddr_storage *Resolver(socklen_t *length);

  EventLoop *loop_;
  nxc::UniqueFd udp_, tcp_;
  uint32_t address_ = 0;
  std::vector<struct sockaddr_storage> resolvers_;
  size_t current_ = 0;  // the resolver asked; the next one after a time-out
  std::list<Query> queries_;
  std::list<Connection> connections_;
  bool warnedNoResolver_ = false;
};

}  // namespace zynetd
