#include "daemons/dns_relay.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace zynetd {
namespace {

constexpr int kDnsPort = 53;
constexpr int kQueryTimeoutSec = 3;
constexpr int kConnectionIdleSec = 30;
constexpr size_t kMaxQueries = 512;
constexpr size_t kMaxConnections = 64;
constexpr size_t kMaxBuffered = 128 * 1024;

socklen_t AddressLength(const struct sockaddr_storage &a) {
  return a.ss_family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
}

// A listening socket on address:53, non-blocking. Logs on failure.
nxc::UniqueFd Listen(int type, uint32_t address) {
  nxc::UniqueFd fd(socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  int on = 1;
  struct sockaddr_in local = {};
  local.sin_family = AF_INET;
  local.sin_port = htons(kDnsPort);
  local.sin_addr.s_addr = htonl(address);
  if (!fd || setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(fd.get(), reinterpret_cast<struct sockaddr *>(&local), sizeof local) != 0 ||
      (type == SOCK_STREAM && listen(fd.get(), 16) != 0)) {
    char text[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &local.sin_addr, text, sizeof text);
    Log("cannot listen for DNS %s queries on %s:%d: %s", type == SOCK_STREAM ? "TCP" : "UDP", text, kDnsPort,
        strerror(errno));
    return nxc::UniqueFd();
  }
  return fd;
}

// A non-blocking socket connecting to the resolver; -1 (logged) on failure.
nxc::UniqueFd ConnectTo(int type, const struct sockaddr_storage &resolver) {
  nxc::UniqueFd fd(socket(resolver.ss_family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (fd && connect(fd.get(), reinterpret_cast<const struct sockaddr *>(&resolver), AddressLength(resolver)) != 0 &&
      errno != EINPROGRESS)
    fd.reset();
  if (!fd) Log("cannot reach the resolver: %s", strerror(errno));
  return fd;
}

// Writes as much of pending to fd as it takes; false on an error.
[[nodiscard]] bool Flush(int fd, std::string *pending) {
  if (pending->empty()) return true;
  ssize_t n = send(fd, pending->data(), pending->size(), MSG_NOSIGNAL);
  if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK;
  pending->erase(0, static_cast<size_t>(n));
  return true;
}

}  // namespace

DnsRelay::~DnsRelay() {
  while (!connections_.empty()) Close(&connections_.front());
  for (Query &q : queries_) loop_->Unwatch(q.upstream.get());
  if (udp_) loop_->Unwatch(udp_.get());
  if (tcp_) loop_->Unwatch(tcp_.get());
}

bool DnsRelay::Start(uint32_t address) {
  address_ = address;
  udp_ = Listen(SOCK_DGRAM, address);
  tcp_ = Listen(SOCK_STREAM, address);
  if (!udp_ || !tcp_) return false;
  loop_->Watch(udp_.get(), POLLIN, [this](short) { OnUdpQuery(); });
  loop_->Watch(tcp_.get(), POLLIN, [this](short) { OnTcpAccept(); });
  ReadResolvers();
  return true;
}

void DnsRelay::ReadResolvers() {
  std::vector<struct sockaddr_storage> found;
  std::ifstream in("/etc/resolv.conf");
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string keyword, server;
    if (!(words >> keyword >> server) || keyword != "nameserver") continue;
    struct sockaddr_storage a = {};
    auto *v4 = reinterpret_cast<struct sockaddr_in *>(&a);
    auto *v6 = reinterpret_cast<struct sockaddr_in6 *>(&a);
    if (inet_pton(AF_INET, server.c_str(), &v4->sin_addr) == 1) {
      if (ntohl(v4->sin_addr.s_addr) == address_) continue;  // that would be ourselves
      v4->sin_family = AF_INET;
      v4->sin_port = htons(kDnsPort);
    } else if (inet_pton(AF_INET6, server.c_str(), &v6->sin6_addr) == 1) {
      v6->sin6_family = AF_INET6;
      v6->sin6_port = htons(kDnsPort);
    } else {
      continue;
    }
    found.push_back(a);
  }
  resolvers_ = std::move(found);
  current_ = 0;
  warnedNoResolver_ = false;
  Log("relaying DNS queries to %zu resolvers of /etc/resolv.conf", resolvers_.size());
}

const struct sockaddr_storage *DnsRelay::Resolver(socklen_t *length) {
  if (resolvers_.empty()) {
    if (!warnedNoResolver_) Log("no resolver in /etc/resolv.conf: DNS queries go unanswered");
    warnedNoResolver_ = true;
    return nullptr;
  }
  const struct sockaddr_storage &r = resolvers_[current_ % resolvers_.size()];
  *length = AddressLength(r);
  return &r;
}

void DnsRelay::OnUdpQuery() {
  char buf[4096];
  for (;;) {
    Query q;
    q.clientLength = sizeof q.client;
    ssize_t n = recvfrom(udp_.get(), buf, sizeof buf, 0, reinterpret_cast<struct sockaddr *>(&q.client),
                         &q.clientLength);
    if (n < 0) return;
    socklen_t length = 0;
    const struct sockaddr_storage *resolver = Resolver(&length);
    if (!resolver) continue;
    q.upstream = ConnectTo(SOCK_DGRAM, *resolver);
    if (!q.upstream || send(q.upstream.get(), buf, static_cast<size_t>(n), 0) != n) continue;
    if (queries_.size() >= kMaxQueries) {
      loop_->Unwatch(queries_.front().upstream.get());
      queries_.pop_front();
    }
    q.deadline = time(nullptr) + kQueryTimeoutSec;
    queries_.push_back(std::move(q));
    Query *query = &queries_.back();
    loop_->Watch(query->upstream.get(), POLLIN, [this, query](short) { OnUdpAnswer(query); });
  }
}

void DnsRelay::OnUdpAnswer(Query *query) {
  char buf[65536];
  ssize_t n = recv(query->upstream.get(), buf, sizeof buf, 0);
  if (n > 0)
    (void)sendto(udp_.get(), buf, static_cast<size_t>(n), 0, reinterpret_cast<struct sockaddr *>(&query->client),
                 query->clientLength);
  loop_->Unwatch(query->upstream.get());
  queries_.remove_if([query](const Query &q) { return &q == query; });
}

void DnsRelay::OnTcpAccept() {
  for (;;) {
    nxc::UniqueFd client(accept4(tcp_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!client) return;
    socklen_t length = 0;
    const struct sockaddr_storage *resolver = Resolver(&length);
    if (!resolver || connections_.size() >= kMaxConnections) continue;
    nxc::UniqueFd upstream = ConnectTo(SOCK_STREAM, *resolver);
    if (!upstream) continue;
    connections_.emplace_back();
    Connection *c = &connections_.back();
    c->client = std::move(client);
    c->upstream = std::move(upstream);
    c->deadline = time(nullptr) + kConnectionIdleSec;
    Rewatch(c);
  }
}

void DnsRelay::OnConnection(Connection *c, bool fromClient, short events) {
  if (!fromClient && c->connecting) {
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(c->upstream.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) return Close(c);
    c->connecting = false;
  } else if (events & (POLLIN | POLLHUP | POLLERR)) {
    char buf[16384];
    ssize_t n = recv((fromClient ? c->client : c->upstream).get(), buf, sizeof buf, 0);
    std::string &to = fromClient ? c->toUpstream : c->toClient;
    if (n > 0) to.append(buf, static_cast<size_t>(n));
    if (n < 0 && errno != EAGAIN) return Close(c);
    if (n == 0 && !fromClient) {
      (void)Flush(c->client.get(), &c->toClient);  // the resolver is done
      return Close(c);
    }
    if (n == 0) c->clientDone = true;
    if (to.size() > kMaxBuffered) return Close(c);
  }
  if (!Flush(c->client.get(), &c->toClient)) return Close(c);
  if (!c->connecting) {
    if (!Flush(c->upstream.get(), &c->toUpstream)) return Close(c);
    if (c->clientDone && c->toUpstream.empty()) (void)shutdown(c->upstream.get(), SHUT_WR);
  }
  c->deadline = time(nullptr) + kConnectionIdleSec;
  Rewatch(c);
}

void DnsRelay::Rewatch(Connection *c) {
  short clientEvents = static_cast<short>((c->clientDone ? 0 : POLLIN) | (c->toClient.empty() ? 0 : POLLOUT));
  if (clientEvents)
    loop_->Watch(c->client.get(), clientEvents, [this, c](short e) { OnConnection(c, true, e); });
  else
    loop_->Unwatch(c->client.get());
  short upstreamEvents =
      static_cast<short>(c->connecting ? POLLOUT : POLLIN | (c->toUpstream.empty() ? 0 : POLLOUT));
  loop_->Watch(c->upstream.get(), upstreamEvents, [this, c](short e) { OnConnection(c, false, e); });
}

void DnsRelay::Close(Connection *c) {
  loop_->Unwatch(c->client.get());
  loop_->Unwatch(c->upstream.get());
  connections_.remove_if([c](const Connection &x) { return &x == c; });
}

void DnsRelay::Expire() {
  time_t now = time(nullptr);
  bool expired = false;
  for (auto q = queries_.begin(); q != queries_.end();) {
    if (q->deadline >= now) {
      ++q;
      continue;
    }
    loop_->Unwatch(q->upstream.get());
    q = queries_.erase(q);
    expired = true;
  }
  // A resolver that let a query wait gives way to the next one.
  if (expired) ++current_;
  for (auto c = connections_.begin(); c != connections_.end();) {
    Connection *conn = &*c++;
    if (conn->deadline < now) Close(conn);
  }
}

}  // namespace zynetd
