// adapter_list.cpp - the host's Ethernet adapters, as the kernel lists them
// over a routing netlink socket, each with its driver's name.
//
// Bridging maps these adapters to vnets. Links that are not Ethernet, have
// no name or a name too long for an interface request are left out; an
// adapter whose driver cannot be asked is listed with an empty driver.
// <net/if.h> first: the kernel headers then leave its definitions alone.
#include <net/if.h>

#include <errno.h>
#include <linux/ethtool.h>
#include <linux/if_arp.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>

#include "base/str_util.h"
#include "base/unique_fd.h"
#include "nexcfg_internal.h"

static_assert(offsetof(NXC_HostAdapter, version) == 0);
static_assert(offsetof(NXC_HostAdapter, next) == 4);
static_assert(offsetof(NXC_HostAdapter, netId) == 12);
static_assert(offsetof(NXC_HostAdapter, flags) == 40);
static_assert(offsetof(NXC_HostAdapter, name) == 44);
static_assert(offsetof(NXC_HostAdapter, driver) == 172);
static_assert(offsetof(NXC_HostAdapter, mappingName) == 300);
static_assert(sizeof(NXC_HostAdapter) == 428);
static_assert(sizeof(NXC_NetID) == 28);

namespace {

constexpr char kFn[] = "NXCCreateHostAdapList";
constexpr uint32_t kRequestSeq = 1;
constexpr uint32_t kMaxIfNameLen = IFNAMSIZ;  // names of this length or more are refused
constexpr size_t kMinMessage = sizeof(struct nlmsghdr);

// The link dump request: header and an all-zero link-info header.
struct LinkRequest {
  struct nlmsghdr header;
  struct ifinfomsg info;
};
static_assert(sizeof(LinkRequest) == 32);

size_t Align4(size_t n) { return (n + 3) & ~size_t{3}; }

// A list under construction; frees what it holds unless released.
class AdapterList {
 public:
  AdapterList() = default;
  AdapterList(const AdapterList &) = delete;
  AdapterList &operator=(const AdapterList &) = delete;
  ~AdapterList() { NXCFreeHostAdapList(&head_); }

  // The link is set through the entry itself: `next` sits on a 4-byte
  // boundary, so no pointer to it may be formed.
  void Append(NXC_HostAdapter *entry) {
    if (tail_)
      tail_->next = entry;
    else
      head_ = entry;
    tail_ = entry;
    ++count_;
  }
  uint32_t count() const { return count_; }
  NXC_HostAdapter *release() {
    NXC_HostAdapter *head = head_;
    head_ = tail_ = nullptr;
    count_ = 0;
    return head;
  }

 private:
  NXC_HostAdapter *head_ = nullptr;
  NXC_HostAdapter *tail_ = nullptr;
  uint32_t count_ = 0;
};

// Asks the adapter's driver for its name; the entry is kept either way.
void QueryDriverName(NXC_HostAdapter *entry) {
  nxc::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) {
    NXCLog(LOG_ERR, kFn, "Error opening socket for querying driver name for adapter: %s, error: %s",
           entry->name, strerror(errno));
    return;
  }
  struct ethtool_drvinfo info = {};
  info.cmd = ETHTOOL_GDRVINFO;
  struct ifreq request = {};
  (void)nxc::BoundedCopy(request.ifr_name, sizeof request.ifr_name, entry->name);
  request.ifr_data = (char *)&info;
  if (ioctl(fd.get(), SIOCETHTOOL, &request) != 0) {
    NXCLog(LOG_ERR, kFn, "Ioctl on socket for querying driver name for adapter: %s failed, error: %s",
           entry->name, strerror(errno));
    return;
  }
  info.driver[sizeof info.driver - 1] = '\0';
  (void)nxc::BoundedCopy(entry->driver, sizeof entry->driver, info.driver);
  NXCLog(LOG_INFO2, kFn, "Obtained driver name: %s for adapter: %s", entry->driver, entry->name);
}

// Adds the link of one RTM_NEWLINK message when it is a named Ethernet link.
void AddLink(const struct nlmsghdr *message, AdapterList *list) {
  if (message->nlmsg_len < NLMSG_LENGTH(sizeof(struct ifinfomsg))) return;
  const auto *link = (const struct ifinfomsg *)NLMSG_DATA(message);
  bool running = (link->ifi_flags & IFF_RUNNING) != 0;
  NXCLog(LOG_INFO2, kFn, "Adapter: ifi_family: %u, ifi_type: %u, ifi_index: %u, ifi_flags: %s,ifi_change: %x",
         (unsigned)link->ifi_family, (unsigned)link->ifi_type, (unsigned)link->ifi_index,
         running ? "running" : "not running", link->ifi_change);
  if (link->ifi_type != ARPHRD_ETHER) {
    NXCLog(LOG_INFO2, kFn, "Skipping non-ethernet interface: ifi_type: %u",
           (unsigned)link->ifi_type);
    return;
  }

  char name[NXC_ADAPTER_NAME_LEN] = "";
  bool named = false;
  const char *attr = (const char *)IFLA_RTA(link);
  size_t left = message->nlmsg_len - NLMSG_LENGTH(sizeof(struct ifinfomsg));
  while (left >= sizeof(struct rtattr)) {
    const auto *rta = (const struct rtattr *)attr;
    if (rta->rta_len < sizeof(struct rtattr) || rta->rta_len > left) break;
    if (rta->rta_type == IFLA_IFNAME) {
      size_t len = strnlen((const char *)RTA_DATA(rta), RTA_PAYLOAD(rta));
      if (len >= sizeof name) len = sizeof name - 1;
      memcpy(name, RTA_DATA(rta), len);
      name[len] = '\0';
      named = true;
      NXCLog(LOG_INFO2, kFn, "Found name of adapter: %s", name);
    } else {
      NXCLog(LOG_INFO2, kFn, "Ignoring Attribute: %u", (unsigned)rta->rta_type);
    }
    size_t step = Align4(rta->rta_len);
    if (step >= left) break;
    attr += step;
    left -= step;
  }
  if (!named) {
    NXCLog(LOG_ERR, kFn, "Skipping adapter without name");
    return;
  }
  if (strlen(name) >= kMaxIfNameLen) {
    NXCLog(LOG_ERR, kFn, "Interface name %s is longer than allowed %u characters", name,
           kMaxIfNameLen);
    return;
  }

  auto *entry = (NXC_HostAdapter *)calloc(1, sizeof(NXC_HostAdapter));
  if (!entry) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return;
  }
  entry->version = 1;
  entry->flags = running ? NXC_HOST_ADAPTER_RUNNING : NXC_HOST_ADAPTER_NOT_RUNNING;
  (void)nxc::BoundedCopy(entry->name, sizeof entry->name, name);
  QueryDriverName(entry);
  (void)nxc::BoundedCopy(entry->mappingName, sizeof entry->mappingName, name);
  list->Append(entry);
}

}  // namespace

extern "C" bool NXCCreateHostAdapList(uint32_t *count, NXC_HostAdapter **head) noexcept {
  if (!count || !head) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  uint32_t pid = (uint32_t)getpid();
  nxc::UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!fd) {
    NXCLog(LOG_ERR, kFn, "Failure in creating netlink socket, error: %s", strerror(errno));
    return false;
  }
  LinkRequest request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT | NLM_F_MATCH;
  request.header.nlmsg_seq = kRequestSeq;
  request.header.nlmsg_pid = 0;
  request.info.ifi_family = AF_UNSPEC;
  struct sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  if (sendto(fd.get(), &request, sizeof request, 0, (struct sockaddr *)&kernel, sizeof kernel) !=
      (ssize_t)sizeof request) {
    NXCLog(LOG_ERR, kFn, "Failure in sending request message on netlink socket: %s",
           strerror(errno));
    return false;
  }

  int bufferSize = 0;
  socklen_t optLen = sizeof bufferSize;
  if (getsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, &optLen) != 0 || bufferSize <= 0) {
    NXCLog(LOG_ERR, kFn, "Failed to get recv socket buffer size");
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Max netlink socket recv buffer size is: %d", bufferSize);
  nxc::CPtr<char> buffer((char *)malloc((size_t)bufferSize));
  if (!buffer) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure for Host adapters");
    return false;
  }

  AdapterList list;
  bool moreToCome = true;
  while (moreToCome) {
    ssize_t received = recv(fd.get(), buffer.get(), (size_t)bufferSize, 0);
    if (received < 0) {
      NXCLog(LOG_ERR, kFn, "Failed while reading data from netlink socket:  %s",
             strerror(errno));  // sic: two blanks
      return false;
    }
    NXCLog(LOG_INFO, kFn, "%zu bytes read from netlink socket", (size_t)received);
    if ((size_t)received < kMinMessage) break;
    moreToCome = false;

    const char *at = buffer.get();
    size_t left = (size_t)received;
    while (left >= kMinMessage) {
      const auto *message = (const struct nlmsghdr *)at;
      if (message->nlmsg_len < kMinMessage || message->nlmsg_len > left) break;
      // A reply is ours when either its port id or its sequence matches.
      if (message->nlmsg_pid != pid && message->nlmsg_seq != kRequestSeq) {
        NXCLog(LOG_INFO2, kFn,
               "PID or Seq does not match: Req-pid = %u, Resp-pid = %u, Req-seq = %u, Resp-seq = %u",
               pid, message->nlmsg_pid, kRequestSeq, message->nlmsg_seq);
      } else if (message->nlmsg_type == NLMSG_ERROR || message->nlmsg_type == NLMSG_DONE) {
        break;
      } else {
        if (message->nlmsg_flags & NLM_F_MULTI) moreToCome = true;
        AddLink(message, &list);
      }
      size_t step = Align4(message->nlmsg_len);
      if (step >= left) break;
      at += step;
      left -= step;
    }
  }
  NXCLog(LOG_INFO, kFn, "Processed all adapters");
  *count = list.count();
  *head = list.release();
  return true;
}

extern "C" void NXCFreeHostAdapList(NXC_HostAdapter **head) noexcept {
  if (!head) return;
  while (*head) {
    NXC_HostAdapter *next = (*head)->next;
    free(*head);
    *head = next;
  }
}
