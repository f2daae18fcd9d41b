/*
 * nexcfg.h - public interface of libnexcfg.
 *
 * libnexcfg owns the configuration of the hypervisor's virtual networks
 * (vnets "zynet0" ... "zynet255"): host-only adapters and subnets, DHCP, NAT
 * and bridge mappings. Callers load the library once per process with
 * NXC_Load(), make their calls, and unload with NXC_Unload(). Calls from
 * several threads run one at a time; a value NXC_VnetCfgGetAnswer() points
 * to stays valid only until the next change, from any thread. Every call
 * returns its result and explains failures only in the library's log
 * (/var/log/nexcfg unless the database names another).
 *
 * The records below are part of the binary interface; their layouts never
 * change.
 */
#ifndef NEXCFG_H
#define NEXCFG_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "nexcfg_abi.h"

NXC_BEGIN_DECLS

/* Log levels: a line is written when its level bit is in the log mask. */
#define NXC_LOG_ERR 0x1u    /* errors */
#define NXC_LOG_INFO 0x2u   /* information */
#define NXC_LOG_ERRCMN 0x4u /* common (expected) errors */
#define NXC_LOG_WRN 0x8u    /* warnings */
#define NXC_LOG_OK 0x10u    /* success of an operation */
#define NXC_LOG_INFO2 0x20u /* detailed trace: banners, internal steps */
#define NXC_LOG_ARGS 0x40u  /* argument traces of API functions */

#define NXC_NUM_VNETS 256u
#define NXC_NETID_VERSION 1u
#define NXC_NETID_TYPE_VNET 1u

/* Identifies a network. For a vnet: version 1, type 1, vnet 0..255 (or all
 * ones, whose meaning each call gives). The reserved bytes are zero in every
 * record the library fills and are never read. */
typedef struct NXC_NetID {
  uint32_t version;
  uint32_t type;
  uint32_t vnet;
  uint8_t reserved[16];
} NXC_NetID;

#define NXC_HOST_ADAPTER_RUNNING 1u
#define NXC_HOST_ADAPTER_NOT_RUNNING 2u
#define NXC_ADAPTER_NAME_LEN 128

#pragma pack(push, 4)
/* One host Ethernet adapter. Packed on 4-byte boundaries: `next` follows
 * `version` directly. */
typedef struct NXC_HostAdapter {
  uint32_t version; /* 1 */
  struct NXC_HostAdapter *next;
  NXC_NetID netId; /* netId.vnet: the vnet the adapter is bridged to */
  uint32_t flags;  /* NXC_HOST_ADAPTER_RUNNING or _NOT_RUNNING */
  char name[NXC_ADAPTER_NAME_LEN];
  char driver[NXC_ADAPTER_NAME_LEN]; /* empty when unknown */
  char mappingName[NXC_ADAPTER_NAME_LEN];
} NXC_HostAdapter;

/* A block handed to callers: this header, then `count` contiguous entries,
 * each linked to the next; freed with the library's matching free call. */
typedef struct NXC_HostAdapterList {
  uint32_t version; /* 1 */
  uint32_t count;
  NXC_HostAdapter *entries; /* the first entry, NULL when there is none */
} NXC_HostAdapterList;
#pragma pack(pop)

/* Features of a vnet. In a filled record each byte is 0 or 1; in a search
 * pattern each is 0 = any, 1 = present, 2 = absent.
 * configFeatures / runtimeFeatures: [0] DHCP, [1] NAT, [2] bridge,
 * [3] host-only adapter; [4..31] reserved. */
typedef struct NXC_VnetFeatures {
  uint32_t version; /* 1 */
  NXC_NetID netId;
  uint8_t subnet;
  uint8_t configFeatures[32];
  uint8_t runtimeFeatures[32];
} NXC_VnetFeatures;

/* ---- Lifecycle ---------------------------------------------------------- */

/* Loads the library, or counts one more load. A non-zero flag opens the
 * networking database read-only. Returns true when loaded. */
NXC_NODISCARD NXC_EXPORT bool NXC_Load(int32_t readOnly) NXC_NOEXCEPT;
/* Counts one unload; the last one frees the database cache and, when the
 * flag is non-zero, writes a changed database back in compact form. */
NXC_EXPORT void NXC_Unload2(int32_t writeBack) NXC_NOEXCEPT;
/* NXC_Unload2(1). */
NXC_EXPORT void NXC_Unload(void) NXC_NOEXCEPT;
/* The interface version: (major << 16) | minor of the library's version,
 * 0x10000 for 1.0. */
NXC_EXPORT uint32_t NXC_Version(void) NXC_NOEXCEPT;

/* ---- Raw database answers ----------------------------------------------- */

NXC_NODISCARD NXC_EXPORT bool NXC_VnetCfgAddAnswer(const char *key, const char *value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_VnetCfgRemoveAnswer(const char *key) NXC_NOEXCEPT;
/* *value points into the library's cache: do not free it; it stays valid
 * until the answer changes or the library is unloaded. */
NXC_NODISCARD NXC_EXPORT bool NXC_VnetCfgGetAnswer(const char *key,
                                                   const char **value) NXC_NOEXCEPT;

/* ---- Log levels --------------------------------------------------------- */

/* Stores the level (at most 0x7F) in the database; it takes effect at the
 * next first load. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetDefaultLogLevel(uint32_t level) NXC_NOEXCEPT;
NXC_EXPORT uint32_t NXC_GetDefaultLogLevel(void) NXC_NOEXCEPT;
/* Sets the mask in effect now, unchecked and not stored. Always true. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetCurrentLogLevel(uint32_t level) NXC_NOEXCEPT;
NXC_EXPORT uint32_t NXC_GetCurrentLogLevel(void) NXC_NOEXCEPT;

/* ---- Vnet attributes ---------------------------------------------------- */

/* A vnet is named by its text "zynet<n>", n = 0..255.
 *
 * Getters take the buffer's capacity in *len (display name at least 128
 * bytes, addresses and masks at least 16) and on success give back the
 * length of the text: with its NUL, except for the display name. A smaller
 * capacity is refused before anything is read; on any failure *len keeps
 * its value. Getters take no lock.
 *
 * Setters check the value first and then change the database under its
 * lock (none is taken for a read-only database). A NULL value removes the
 * setting, except for the display name. */

NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetDisplayName(const char *vnet, char *name,
                                                     uint32_t *nameLen) NXC_NOEXCEPT;
/* NULL is refused (the display name cannot be removed). */
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetDisplayName(const char *vnet,
                                                     const char *name) NXC_NOEXCEPT;

/* The host-only subnet, e.g. "192.168.5.0", and its mask. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetSubnetAddr(const char *vnet, char *addr,
                                                    uint32_t *addrLen) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetSubnetAddr(const char *vnet,
                                                    const char *addr) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetSubnetMask(const char *vnet, char *mask,
                                                    uint32_t *maskLen) NXC_NOEXCEPT;
/* The mask must be contiguous and leave at least 8 addresses. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetSubnetMask(const char *vnet,
                                                    const char *mask) NXC_NOEXCEPT;

/* The address of the host's adapter on the vnet. When none is stored and
 * computeIfAbsent is true, the subnet's first host address is given (and
 * not stored). */
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetAdapterAddr(const char *vnet, char *addr,
                                                     uint32_t *addrLen,
                                                     bool computeIfAbsent) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetAdapterAddr(const char *vnet,
                                                     const char *addr) NXC_NOEXCEPT;

/* The vnet's MTU; any value is stored as given. A stored text that is not
 * a number reads as 0. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetMTU(const char *vnet, uint32_t mtu) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetMTU(const char *vnet, uint32_t *mtu) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_RemoveMTU(const char *vnet) NXC_NOEXCEPT;

/* Gives the vnet a free /24 subnet (mask 255.255.255.0) found by pinging
 * candidates. A vnet that has a subnet keeps it unless overwriteExisting;
 * that call then succeeds without a change. */
NXC_NODISCARD NXC_EXPORT bool NXC_AssignSubnetAddressToVnet(const char *vnet,
                                                            bool overwriteExisting) NXC_NOEXCEPT;
/* Finds a free /24 subnet without storing it. Both buffers need at least 16
 * bytes. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask,
                                                  uint32_t maskLen) NXC_NOEXCEPT;
/* Pings the vnet's subnet (its broadcast address first when useBroadcast;
 * timeout and interval in seconds) and tells in *available whether nobody
 * answered. True whenever the question could be asked. */
NXC_NODISCARD NXC_EXPORT bool NXC_CheckSubnetAvailability(const char *vnet, bool useBroadcast,
                                                          uint32_t timeout, uint32_t interval,
                                                          bool *available) NXC_NOEXCEPT;

/* Adds a NAT66 prefix ("<address>/<bits>") to the vnet. desc (descLen bytes,
 * at most 127; 0 means none) may be NULL. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetNATPrefix(const char *vnet, const char *prefix,
                                               const char *desc, int32_t descLen) NXC_NOEXCEPT;
/* True when the vnet has the prefix. Nothing is written to desc; *descLen
 * is left as it was. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetNATPrefix(const char *vnet, const char *prefix, void *desc,
                                               uint32_t *descLen) NXC_NOEXCEPT;

/* 256; works without NXC_Load. */
NXC_EXPORT uint32_t NXC_GetNumberOfVnets(void) NXC_NOEXCEPT;
/* Always false on Linux; works without NXC_Load. */
NXC_NODISCARD NXC_EXPORT bool NXC_IsMacosVirtApiEnabled(void) NXC_NOEXCEPT;

/* ---- DHCP mappings and port forwards ------------------------------------ */

/* Vnets are named "zynet<n>". Counts carry the buffer's capacity in and
 * the text's length with its NUL out; on failure they are left alone. IP
 * buffers need at least 16 bytes, MAC buffers 18. Enumerations start with
 * *enumOffset 0; hand it back unchanged for the next record. The end of a
 * table is reported as false. */

/* Binds ip to mac for the vnet's DHCP server, replacing an earlier binding
 * of mac; a NULL ip removes it. Any MAC form the library accepts is stored
 * in its canonical form ("0A:1B:2C:3D:4E:5F"). */
NXC_NODISCARD NXC_EXPORT bool NXC_SetDHCPIPToMAC(const char *vnet, const char *ip,
                                                 const char *mac) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen,
                                                 const char *mac) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip,
                                                  uint32_t *ipLen, char *mac,
                                                  uint32_t *macLen) NXC_NOEXCEPT;

/* Forwards the host's TCP (tcp true) or UDP port hostPort (not 0) to
 * vmIP:vmPort, replacing an earlier forward of that port; a NULL vmIP
 * removes it. desc need not be NUL-terminated: descLen bytes of it (at
 * most 127) are kept; descLen 0 means no description. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort,
                                                    const char *vmIP, uint16_t vmPort,
                                                    const char *desc,
                                                    uint32_t descLen) NXC_NOEXCEPT;
/* desc may be NULL; otherwise *descLen is its capacity, which must hold
 * the description and its NUL (an undescribed forward gives ""), and is
 * left as it is. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort,
                                                    char *vmIP, uint32_t *vmIPLen, uint16_t *vmPort,
                                                    char *desc, uint32_t *descLen) NXC_NOEXCEPT;
/* The next forward of the protocol; hostPort may be NULL. With desc, the
 * capacity must exceed the description's length + 1, and *descLen comes
 * back as that length + 2, or 0 (and desc "") when there is none. */
NXC_NODISCARD NXC_EXPORT bool NXC_EnumNATPortForward(const char *vnet, bool tcp,
                                                     uint32_t *enumOffset, uint16_t *hostPort,
                                                     char *vmIP, uint32_t *vmIPLen,
                                                     uint16_t *vmPort, char *desc,
                                                     uint32_t *descLen) NXC_NOEXCEPT;

/* ---- Bridges and host adapters ------------------------------------------ */

/* The default bridge vnet bridges every host adapter that has no explicit
 * mapping. It is vnet 0, or none (netId vnet 0xFFFFFFFF). */

/* netId->version must be 1; fills in type and vnet. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetBridgeDefaultNetwork(NXC_NetID *netId) NXC_NOEXCEPT;
/* Only vnet 0 and 0xFFFFFFFF are accepted. Switching the default on hands
 * vnet 0 the adapters of no vnet; switching it off keeps vnet 0's adapters
 * on it. Restarts the affected bridge daemons; on failure everything is
 * put back. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetBridgeDefaultNetwork(const NXC_NetID *netId) NXC_NOEXCEPT;
/* The host's Ethernet adapters (the library's own zynet adapters left
 * out), each with the vnet it is bridged to, as one block; version must be
 * 1. Free it with NXC_FreeHostAdapterList. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetHostAdapterList(uint32_t version,
                                                     NXC_HostAdapterList **list) NXC_NOEXCEPT;
/* Accepts NULL; works whether or not the library is loaded. */
NXC_EXPORT void NXC_FreeHostAdapterList(NXC_HostAdapterList *list) NXC_NOEXCEPT;
/* Bridges the adapter (an entry of a host adapter list; its mappingName is
 * used) to destination, or to the default bridge when destination is NULL.
 * A source, when given, must be the adapter's vnet now. The adapters a
 * destination vnet had go to the default bridge. Restarts the affected
 * bridge daemons; on failure everything is put back. */
NXC_NODISCARD NXC_EXPORT bool NXC_BridgeMoveAdapter(const NXC_HostAdapter *adapter,
                                                    const NXC_NetID *source,
                                                    const NXC_NetID *destination) NXC_NOEXCEPT;
/* Brings the vnet's host-only adapter up (starting its netifup daemon), or
 * takes it down (stopping the daemon). A missing adapter counts as
 * disabled. */
NXC_NODISCARD NXC_EXPORT bool NXC_EnableNetworkAdapter(const char *vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_DisableNetworkAdapter(const char *vnet) NXC_NOEXCEPT;

/* ---- Services, devices and the database file ---------------------------- */

/* Public service types. */
#define NXC_SERVICE_TYPE_BRIDGE 0x8801u
#define NXC_SERVICE_TYPE_DHCP 0x8802u
#define NXC_SERVICE_TYPE_NAT 0x8803u
#define NXC_SERVICE_TYPE_NETIFUP 0x8804u

/* Service status codes. */
#define NXC_SERVICE_RUNNING 0x8408u
#define NXC_SERVICE_NOT_RUNNING 0x8404u
#define NXC_SERVICE_STATUS_UNKNOWN 0x8420u

/* Starts a vnet's daemon when the vnet is configured for it (and, for
 * netifup, DHCP and NAT, has a subnet and the daemon's configuration file).
 * A running daemon counts as started. */
NXC_NODISCARD NXC_EXPORT bool NXC_StartService(const char *vnet, uint32_t serviceType) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_StopService(const char *vnet, uint32_t serviceType) NXC_NOEXCEPT;
/* NXC_SERVICE_RUNNING, _NOT_RUNNING or _STATUS_UNKNOWN (also for bad
 * arguments); 0 while the library is not loaded. */
NXC_EXPORT uint32_t NXC_GetServiceStatus(const char *vnet, uint32_t serviceType) NXC_NOEXCEPT;

/* The vnet's character device /dev/zynet<n>. */
NXC_NODISCARD NXC_EXPORT bool NXC_CreateZynetDevice(const char *vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_DeleteZynetDevice(const char *vnet) NXC_NOEXCEPT;

/* Removes every setting of a vnet (bridge mappings, DHCP, NAT, host-only
 * adapter, subnet, device node). Refused while any of its daemons runs or
 * its host-only adapter is up; otherwise every removal is attempted and
 * the result says whether all succeeded. */
NXC_NODISCARD NXC_EXPORT bool NXC_DeleteVnetFromDatabase(const char *vnet) NXC_NOEXCEPT;

/* The database file. Creating, deleting, testing and importing work while
 * the library is not loaded (creating and deleting only then). */
NXC_NODISCARD NXC_EXPORT bool NXC_CreateNetworkingDB(bool overwrite) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_DeleteNetworkingDB(void) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_NetworkingDBExists(void) NXC_NOEXCEPT;
/* True when this library understands the database file's version. */
NXC_NODISCARD NXC_EXPORT bool NXC_CanReadNetworkingDB(void) NXC_NOEXCEPT;
/* The database's records as a NUL-terminated text; the caller frees it
 * with free(). NULL on failure. */
NXC_EXPORT char *NXC_ExportDatabaseToBuffer(void) NXC_NOEXCEPT;
/* A NULL file means "/tmp/networking_export". */
NXC_NODISCARD NXC_EXPORT bool NXC_ExportDatabaseToFile(const char *file) NXC_NOEXCEPT;
/* Replaces the database with a backup file's contents. */
NXC_NODISCARD NXC_EXPORT bool NXC_ImportDatabaseFromFile(const char *file) NXC_NOEXCEPT;
/* Replaces the configuration with a file's and restarts the daemons of
 * every vnet whose settings changed. */
NXC_NODISCARD NXC_EXPORT bool NXC_MergeDatabaseFromFile(const char *file) NXC_NOEXCEPT;

/* ---- Feature switches and service parameters ----------------------------- */

/* Switch a vnet's host-only adapter, DHCP server or NAT on or off. Switching
 * on a vnet without a subnet first assigns it a free private /24, which is
 * taken away again when the switch fails. With cleanup, the feature's stored
 * configuration is removed as well, also when the switch is already in the
 * requested state (otherwise that request changes nothing). */
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetUseAdapter(const char *vnet, bool use,
                                                    bool cleanup) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetUseDHCP(const char *vnet, bool use,
                                                 bool cleanup) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_SetVnetUseNAT(const char *vnet, bool use,
                                                bool cleanup) NXC_NOEXCEPT;
/* True when the feature is switched on; false also when the call fails. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetUseDHCP(const char *vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetUseNAT(const char *vnet) NXC_NOEXCEPT;

/* Public DHCP parameter numbers. */
#define NXC_PARAM_DHCP_LEASE_BEGIN_IP 13350u
#define NXC_PARAM_DHCP_LEASE_END_IP 13351u
#define NXC_PARAM_DHCP_DEFAULT_LEASE_TIME 13354u /* seconds */
#define NXC_PARAM_DHCP_MAX_LEASE_TIME 13355u     /* seconds */
#define NXC_PARAM_DHCP_DNS_ADDR 13357u
#define NXC_PARAM_DHCP_ROUTERS 13358u
#define NXC_PARAM_DHCP_NETBIOS 13362u

/* Public NAT parameter numbers. */
#define NXC_PARAM_NAT_GATEWAY_IP 9027u
#define NXC_PARAM_NAT_CONFIG_PORT 9030u
#define NXC_PARAM_NAT_ACTIVE_FTP 9031u    /* "0" or "1" */
#define NXC_PARAM_NAT_ALLOW_ANY_OUI 9032u /* "0" or "1" */
#define NXC_PARAM_NAT_UDP_TIMEOUT 9033u   /* seconds */
#define NXC_PARAM_NAT6 9050u              /* "0" or "1" */
#define NXC_PARAM_NAT6_PREFIX 9051u

/* Parameter getters: *valueLen carries the buffer's capacity in and, on
 * success, the value's length + 1 out. With useDefault, a parameter that is
 * not stored gives its default. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetDHCPParam(const char *vnet, uint32_t paramId, bool useDefault,
                                               char *value, uint32_t *valueLen) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_GetNATParam(const char *vnet, uint32_t paramId, bool useDefault,
                                              char *value, uint32_t *valueLen) NXC_NOEXCEPT;
/* Parameter setters; a NULL value removes the stored value. The DHCP setter
 * takes exactly valueLen bytes of value; the NAT setter needs value to be
 * NUL-terminated as well. */
NXC_NODISCARD NXC_EXPORT bool NXC_SetDHCPParam(const char *vnet, uint32_t paramId,
                                               const char *value, uint32_t valueLen) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_SetNATParam(const char *vnet, uint32_t paramId, const char *value,
                                              uint32_t valueLen) NXC_NOEXCEPT;

/* Whether the vnet has a host-only adapter configured (*installed) and
 * whether it is up (*enabled). A vnet without one gives true with both
 * false. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetAdapterStatus(const char *vnet, bool *installed,
                                                       bool *enabled) NXC_NOEXCEPT;
/* Rewrite (or, for a vnet without the feature, remove) the DHCP or NAT
 * daemon's configuration file from the database. Refused while that daemon
 * runs or its state cannot be read. */
NXC_NODISCARD NXC_EXPORT bool NXC_UpdateDHCPFromConfig(const char *vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXC_UpdateNATFromConfig(const char *vnet) NXC_NOEXCEPT;
/* Gives an up host-only adapter the configured address by taking it down
 * and up again; an adapter that is down is left alone. For a vnet without a
 * host-only adapter, takes the adapter down and stops its netifup daemon. */
NXC_NODISCARD NXC_EXPORT bool NXC_UpdateAdapterFromConfig(const char *vnet) NXC_NOEXCEPT;

/* ---- Feature queries ----------------------------------------------------- */

#define NXC_VNET_FEATURES_VERSION 1u
/* Indexes of configFeatures and runtimeFeatures. */
#define NXC_FEATURE_DHCP 0
#define NXC_FEATURE_NAT 1
#define NXC_FEATURE_BRIDGE 2
#define NXC_FEATURE_HOSTONLY_ADAPTER 3
/* Values of a search pattern's feature bytes (subnet included). */
#define NXC_FEATURE_ANY 0u
#define NXC_FEATURE_PRESENT 1u
#define NXC_FEATURE_ABSENT 2u

/* Fills the record of the vnet in features->netId.vnet (version 1, netId.type
 * 1). Runtime features: the daemon runs, the host-only adapter is up. On
 * failure, fields filled before it stay filled. */
NXC_NODISCARD NXC_EXPORT bool NXC_GetVnetFeatures(NXC_VnetFeatures *features) NXC_NOEXCEPT;
/* Searches from pattern->netId.vnet up to vnet 255 for the first vnet whose
 * features match the pattern and, when one is found, overwrites the record
 * with its features (bytes [4..31] of the arrays excepted). Feeding the
 * result back as a pattern makes every "no" (0) mean "any". The record is
 * unchanged when nothing is found. */
NXC_NODISCARD NXC_EXPORT bool NXC_FindVnetWithFeatures(NXC_VnetFeatures *pattern) NXC_NOEXCEPT;

NXC_END_DECLS

#endif /* NEXCFG_H */
