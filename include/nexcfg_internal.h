/*
 * nexcfg_internal.h - the library's internal layers, exported for the
 * hypervisor's own tools and daemons.
 *
 * Layers are named NXC<Layer><Verb>. Every NXCNetCfg* call takes a database
 * cache and works on the process-wide default cache when it is NULL. Results
 * are true on success; failures are explained in the log only.
 */
#ifndef NEXCFG_INTERNAL_H
#define NEXCFG_INTERNAL_H

#include <stdarg.h>
#include <stdio.h>

#include "nexcfg.h"

NXC_BEGIN_DECLS

/* The library's own level names. They clash with <syslog.h>; a file that
 * needs both defines NXC_NO_LOG_NAMES and uses the NXC_LOG_* spellings. */
#ifndef NXC_NO_LOG_NAMES
#if defined(LOG_ERR) || defined(LOG_INFO)
#error "nexcfg_internal.h: LOG_ERR/LOG_INFO already defined (syslog.h?); define NXC_NO_LOG_NAMES"
#endif
#define LOG_ERR NXC_LOG_ERR
#define LOG_INFO NXC_LOG_INFO
#define LOG_ERRCMN NXC_LOG_ERRCMN
#define LOG_WRN NXC_LOG_WRN
#define LOG_OK NXC_LOG_OK
#define LOG_INFO2 NXC_LOG_INFO2
#define LOG_ARGS NXC_LOG_ARGS
#endif

/* ======================================================================
 * Library core: context and logging
 * ====================================================================== */

typedef struct NXCContext {
  uint16_t loadCount; /* successful NXC_Load calls not yet unloaded */
  uint32_t logMask;   /* a line is written when level & logMask != 0 */
  FILE *logStream;    /* the open log file, or NULL */
} NXCContext;

NXC_EXPORT extern NXCContext nxcContext;

/* Writes "<time> <fn> - <message>\n" to the log when level is in the mask.
 * fn may be NULL (then no "<fn> - "). Never fails towards its caller. */
NXC_EXPORT NXC_PRINTF(3, 4) void NXCLog(uint32_t level, const char *fn, const char *format,
                                         ...) NXC_NOEXCEPT;
NXC_EXPORT NXC_PRINTF(3, 0) void NXCVLog(uint32_t level, const char *fn, const char *format,
                                         va_list args) NXC_NOEXCEPT;

/* Copies the answer NXC_LOG_FILE; false when absent or not shorter than size. */
NXC_NODISCARD NXC_EXPORT bool NXCGetLogPath(char *buffer, size_t size) NXC_NOEXCEPT;
/* Stores the level as answer NXC_LOGLEVEL ("0x%x") in the default cache. */
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetCfgLogLevel(int32_t level) NXC_NOEXCEPT;
/* The answer NXC_LOGLEVEL; 0x19 when absent, not a number or negative. */
NXC_EXPORT uint32_t NXCGetVnetCfgLogLevel(void) NXC_NOEXCEPT;

/* ======================================================================
 * Networking configuration database: cache, answers, lock
 * ====================================================================== */

typedef struct NXCNetworkConfigurationDB NXCNetworkConfigurationDB;

/* Record types of the database file. */
typedef enum NXCRecordType {
  NXC_REC_ANSWER = 1,
  NXC_REC_REMOVE_ANSWER = 2,
  NXC_REC_ADD_NAT_PORTFWD = 3,
  NXC_REC_REMOVE_NAT_PORTFWD = 4,
  NXC_REC_ADD_DHCP_MAC_TO_IP = 5,
  NXC_REC_REMOVE_DHCP_MAC_TO_IP = 6,
  NXC_REC_ADD_BRIDGE_MAPPING = 7,
  NXC_REC_REMOVE_BRIDGE_MAPPING = 8,
  NXC_REC_ADD_NAT_PREFIX = 9,
  NXC_REC_REMOVE_NAT_PREFIX = 10
} NXCRecordType;

/* Loads the database file at path into a new cache: *out, or the default
 * cache when out is NULL (which is a no-op success when already loaded).
 * Takes the file lock while reading unless readOnly. Bad records are logged
 * and skipped; a missing or bad version line, an empty file or a read error
 * fails the load and leaves nothing loaded. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLoad(const char *path, NXCNetworkConfigurationDB **out,
                                            bool backup, bool readOnly) NXC_NOEXCEPT;
/* Frees *cache (the default cache when cache is NULL) and clears the
 * pointer. With writeBack, a changed writable cache is first rewritten in
 * compact form through a temporary file. Always true. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgUnload(NXCNetworkConfigurationDB **cache,
                                              bool writeBack) NXC_NOEXCEPT;
/* True when the file's first line is "VERSION=<major>,<minor>" with a
 * supported major version. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgCheckVersion(const char *path) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgIsReadOnly(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;
/* Creates (or truncates) path holding only its version line. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgCreateDB(const char *path, bool backup) NXC_NOEXCEPT;
/* Writes the cache (the default one when NULL) in compact form to path, as
 * a database file or, with backup, a backup file. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgExportConfig(NXCNetworkConfigurationDB *cache,
                                                    const char *path, bool backup) NXC_NOEXCEPT;
/* The same records, without a version line, as a malloc'd text in *text
 * (freed by the caller; always NUL-terminated) and its length in *length
 * when length is not NULL. nulTerminated is accepted for callers that ask
 * for a terminated text explicitly. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgExportConfigToBuffer(NXCNetworkConfigurationDB *cache,
                                                            char **text, size_t *length,
                                                            bool nulTerminated) NXC_NOEXCEPT;
/* Replaces the database at databasePath with the contents of a backup
 * file, dropping unknown answers and upgrading a legacy (version-less)
 * backup. The previous file is kept as "<databasePath>.bak.<n>"; on any
 * failure it is put back and the default cache reloaded from it. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgImportConfig(const char *backupPath,
                                                    const char *databasePath) NXC_NOEXCEPT;
/* Replaces the loaded configuration with the file's. The daemons of every
 * vnet whose settings or port forwards differ are stopped first, their
 * DHCP and NAT files rewritten and their configured daemons started again.
 * On failure the previous configuration is imported back. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgMergeConfig(const char *path) NXC_NOEXCEPT;
/* True when the vnet's port forwards in cache and in the default cache are
 * the same. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgMergeConfigPortFwdCmp(NXCNetworkConfigurationDB *cache,
                                                             uint32_t vnet) NXC_NOEXCEPT;
/* True when cache holds a forward equal to the given one. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgMergeConfigPortFwdCmpHash(
    NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp, uint16_t hostPort, const char *vmIP,
    uint16_t vmPort, const char *description) NXC_NOEXCEPT;

/* Answers. *value points at the cache's own copy. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgGetAnswerString(NXCNetworkConfigurationDB *cache,
                                                       const char *key,
                                                       const char **value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgGetAnswerInt32(NXCNetworkConfigurationDB *cache,
                                                      const char *key, int32_t *value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgGetAnswerBool(NXCNetworkConfigurationDB *cache,
                                                     const char *key, bool *value) NXC_NOEXCEPT;
/* Each change is appended to the database file at once; when the write
 * fails the cache is put back as it was and the call fails. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddAnswerString(NXCNetworkConfigurationDB *cache,
                                                       const char *key,
                                                       const char *value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddAnswerInt32(NXCNetworkConfigurationDB *cache,
                                                      const char *key, int32_t value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddAnswerBool(NXCNetworkConfigurationDB *cache,
                                                     const char *key, bool value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveAnswer(NXCNetworkConfigurationDB *cache,
                                                    const char *key) NXC_NOEXCEPT;

/* The cross-process lock on the database file (time-out 3500 ms). */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLockConfig(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgUnlockConfig(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;

/* ======================================================================
 * Networking configuration database: record tables
 * ====================================================================== */

/* NAT port forwards, per vnet and protocol, keyed by host port. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddNATPortFwd(NXCNetworkConfigurationDB *cache,
                                                     uint32_t vnet, bool tcp, uint16_t hostPort,
                                                     const char *vmIP, uint16_t vmPort,
                                                     const char *description,
                                                     bool restoring) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveNATPortFwd(NXCNetworkConfigurationDB *cache,
                                                        uint32_t vnet, bool tcp,
                                                        uint16_t hostPort) NXC_NOEXCEPT;
/* description may be NULL (not asked for). */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLookupNATPortFwd(NXCNetworkConfigurationDB *cache,
                                                        uint32_t vnet, bool tcp, uint16_t hostPort,
                                                        char *vmIP, size_t vmIPSize,
                                                        uint16_t *vmPort, char *description,
                                                        size_t descriptionSize) NXC_NOEXCEPT;
/* Gives the entry at *index and advances it; false at the end. On return
 * *descriptionSize is 0 when the forward has none, else its length + 2. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgEnumNATPortFwd(NXCNetworkConfigurationDB *cache,
                                                      uint32_t vnet, bool tcp, uint32_t *index,
                                                      uint16_t *hostPort, char *vmIP,
                                                      size_t vmIPSize, uint16_t *vmPort,
                                                      char *description,
                                                      size_t *descriptionSize) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveAllNATPortFwd(NXCNetworkConfigurationDB *cache,
                                                           uint32_t vnet, bool tcp, bool udp,
                                                           bool writeRecords) NXC_NOEXCEPT;

/* DHCP static MAC-to-IP mappings, per vnet, keyed by canonical MAC. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddDHCPMACToIP(NXCNetworkConfigurationDB *cache,
                                                      uint32_t vnet, const char *mac,
                                                      const char *ip, bool restoring) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveDHCPMACToIP(NXCNetworkConfigurationDB *cache,
                                                         uint32_t vnet,
                                                         const char *mac) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLookupDHCPMACToIP(NXCNetworkConfigurationDB *cache,
                                                         uint32_t vnet, const char *mac, char *ip,
                                                         size_t ipSize) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgEnumDHCPMACToIP(NXCNetworkConfigurationDB *cache,
                                                       uint32_t vnet, uint32_t *index, char *mac,
                                                       size_t macSize, char *ip,
                                                       size_t ipSize) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveAllDHCPMACToIPMapping(NXCNetworkConfigurationDB *cache,
                                                                   uint32_t vnet,
                                                                   bool writeRecords) NXC_NOEXCEPT;

/* Bridge mappings: host adapter name to vnet (0..255 or -1), one table. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                                             const char *adapter, int32_t vnet,
                                                             bool restoring) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                                                const char *adapter) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLookupVnetForHostAdapter(NXCNetworkConfigurationDB *cache,
                                                                const char *adapter,
                                                                int32_t *vnet) NXC_NOEXCEPT;
/* Lists the adapters mapped to vnet (exclude false), mapped elsewhere
 * (exclude true), or all of them (vnet -100) as a linked list that the
 * caller frees with NXCFreeHostAdapList. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLookupHostAdaptersForVnet(NXCNetworkConfigurationDB *cache,
                                                                 int32_t vnet, uint32_t *count,
                                                                 NXC_HostAdapter **list,
                                                                 bool exclude) NXC_NOEXCEPT;

/* NAT66 prefixes, per vnet, keyed by prefix text. Prefix entries keep no
 * description: desc and descLen are accepted for the NAT layer's calls. */
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgAddNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                                    const char *prefix, const char *desc,
                                                    int32_t descLen) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveNATPrefix(NXCNetworkConfigurationDB *cache,
                                                       uint32_t vnet,
                                                       const char *prefix) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgLookupNATPrefix(NXCNetworkConfigurationDB *cache,
                                                       uint32_t vnet,
                                                       const char *prefix) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNetCfgRemoveAllNATPrefix(NXCNetworkConfigurationDB *cache,
                                                          uint32_t vnet,
                                                          bool writeRecords) NXC_NOEXCEPT;

/* ======================================================================
 * Vnet configuration model
 * ====================================================================== */

/* A vnet's settings are answers of the default database cache keyed
 * "VNET_<vnet>_<field>". Writes go through the answer store and so reach the
 * database file at once. */

/* The stored text of the field, pointing into the cache (valid until the
 * answer changes or is removed); NULL when absent. */
NXC_EXPORT const char *NXCGetVnetCfg(uint32_t vnet, const char *field) NXC_NOEXCEPT;
/* Copies the field's text into buffer. *size carries the capacity in; on
 * success and when the buffer is too small it carries the needed size
 * (length + 1) out. An absent field leaves *size alone. Fails when absent or
 * too small (both logged at LOG_INFO2). */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetCfgCpy(uint32_t vnet, const char *field, char *buffer,
                                               size_t *size) NXC_NOEXCEPT;
/* The stored boolean; false when absent. */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetCfgBool(uint32_t vnet, const char *field) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetCfg(uint32_t vnet, const char *field,
                                            const char *value) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetCfgBool(uint32_t vnet, const char *field,
                                                bool value) NXC_NOEXCEPT;
/* Removing an absent field succeeds. */
NXC_NODISCARD NXC_EXPORT bool NXCRemoveVnetCfg(uint32_t vnet, const char *field) NXC_NOEXCEPT;

/* Field accessors. The copying getters take the buffer's capacity and do not
 * report the needed size. */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetDisplayName(uint32_t vnet, char *buffer,
                                                    size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetDisplayName(uint32_t vnet, const char *name) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetSubnetAddr(uint32_t vnet, char *buffer,
                                                   size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetSubnetAddr(uint32_t vnet, const char *subnet) NXC_NOEXCEPT;
/* Also marks the removed subnet free for automatic assignment. */
NXC_NODISCARD NXC_EXPORT bool NXCRemoveVnetSubnetAddr(uint32_t vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetSubnetMask(uint32_t vnet, char *buffer,
                                                   size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetSubnetMask(uint32_t vnet, const char *mask) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRemoveVnetSubnetMask(uint32_t vnet) NXC_NOEXCEPT;
/* Removes the subnet and then, only when that worked, the mask. */
NXC_NODISCARD NXC_EXPORT bool NXCRemoveSubnetAssignment(uint32_t vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetVirtAdapterAddr(uint32_t vnet,
                                                        const char *address) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRemoveVnetVirtAdapterAddr(uint32_t vnet) NXC_NOEXCEPT;
/* The host's virtual adapter name; "zynet<vnet>" when none is stored. Fails
 * only when a stored name does not fit. */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetVirtAdapter(uint32_t vnet, char *buffer,
                                                    size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetVirtAdapter(uint32_t vnet, const char *name) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetMTU(uint32_t vnet, char *buffer, size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetMTU(uint32_t vnet, const char *mtu) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRemoveVnetMTU(uint32_t vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetUseDHCP(uint32_t vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetUseNAT(uint32_t vnet) NXC_NOEXCEPT;

/* Feature switches. With removeConfig the feature's stored configuration
 * goes too: for DHCP a failed clean-up fails the call, for NAT it is only
 * logged, for the adapter the result is that of the last removal tried. */
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetUseDHCP(uint32_t vnet, bool use,
                                                bool removeConfig) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetUseNAT(uint32_t vnet, bool use,
                                               bool removeConfig) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetVnetUseAdapter(uint32_t vnet, bool use,
                                                   bool removeConfig) NXC_NOEXCEPT;
/* Vnets keep no identifier of their own: always true. */
NXC_NODISCARD NXC_EXPORT bool NXCAssignUUIDToVnet(uint32_t vnet) NXC_NOEXCEPT;

/* Options of NXCVnetIsOptionConfigured. */
#define NXC_VNET_OPTION_BRIDGE 1u
#define NXC_VNET_OPTION_DHCP 2u
#define NXC_VNET_OPTION_NAT 3u
#define NXC_VNET_OPTION_ADAPTER 4u
#define NXC_VNET_OPTION_SUBNET 5u
#define NXC_VNET_OPTION_UUID 6u
/* True when the option is set up for the vnet; false for unknown options. */
NXC_NODISCARD NXC_EXPORT bool NXCVnetIsOptionConfigured(uint32_t vnet,
                                                        uint32_t option) NXC_NOEXCEPT;

/* Automatic subnets: private /24 subnets (172.16.0-255.0, 192.168.2-255.0)
 * that no vnet had when the process first looked and on which no host
 * answers a ping. The tables are built once per process. */

/* The vnet's HOSTONLY_SUBNET in integer form. */
NXC_NODISCARD NXC_EXPORT bool NXCGetHostOnlySubnet(uint32_t vnet, uint32_t *subnet) NXC_NOEXCEPT;
NXC_EXPORT void NXCPopulateUsedSubnets(void) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSubnetUsed(uint32_t subnet) NXC_NOEXCEPT;
NXC_EXPORT void NXCPopulateAvailSubnets(void) NXC_NOEXCEPT;
NXC_EXPORT void NXCShuffleAvailSubnets(void) NXC_NOEXCEPT;
/* Sets the taken mark of the candidate equal to subnet (dotted text). */
NXC_EXPORT void NXCMarkSubnetUsed(const char *subnet, bool taken) NXC_NOEXCEPT;
/* Takes the next free candidate that answers no ping (10 tries at most);
 * subnet and mask are 16-byte buffers, written only on success. */
NXC_NODISCARD NXC_EXPORT bool NXCSubnetProbe(char *subnet, char *mask) NXC_NOEXCEPT;
/* Runs the ping program (BINDIR/zymtra-ping) on the subnet's broadcast
 * address (with useBroadcast) and its first host address; true when the
 * subnet looks free (exit codes 1 and 2). */
NXC_NODISCARD NXC_EXPORT bool NXCPingAndCheckSubnet(const char *subnet, bool useBroadcast,
                                                    uint32_t timeout,
                                                    uint32_t interval) NXC_NOEXCEPT;
/* Probes a subnet and stores it with mask 255.255.255.0. What was stored
 * before a failure stays. */
NXC_NODISCARD NXC_EXPORT bool NXCAssignUnusedSubnetAddressToVNet(uint32_t vnet) NXC_NOEXCEPT;

/* Bridging. Vnet numbers are signed here: -1 is "no vnet" and -100 asks
 * for every host adapter. */
#define NXC_ALL_HOST_ADAPTERS (-100)

/* The default bridge vnet, cached; -100 while not known. */
NXC_EXPORT extern int32_t nxcDefaultBridgeVnet;

/* Reads (and caches) the default bridge vnet: 0 or -1. */
NXC_NODISCARD NXC_EXPORT bool NXCGetDefaultBridgeVnet(int32_t *vnet) NXC_NOEXCEPT;
/* Stores and caches the value as given. */
NXC_NODISCARD NXC_EXPORT bool NXCSetDefaultBridgeVnet(int32_t vnet) NXC_NOEXCEPT;
/* The adapter's explicit mapping, else the default bridge vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCGetBridgeMappingForAdapter(const char *adapter,
                                                            int32_t *vnet) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCSetBridgeMappingForAdapter(const char *adapter,
                                                            int32_t vnet) NXC_NOEXCEPT;
/* Maps every adapter of the list (by mappingName) to vnet; goes on after a
 * failure and then returns false. */
NXC_NODISCARD NXC_EXPORT bool NXCSetBridgeMappingForMultipleAdapters(
    int32_t vnet, const NXC_HostAdapter *list) NXC_NOEXCEPT;
/* The adapters vnet bridges: its explicit mappings and, for the default
 * bridge (or -100), the host's Ethernet adapters that belong to it; zynet
 * adapters and duplicates left out. The caller frees *list with
 * NXCFreeHostAdapList; count may be NULL. Outputs are written on success. */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetBridge(int32_t vnet, uint32_t *count,
                                               NXC_HostAdapter **list) NXC_NOEXCEPT;
/* Hands the vnet's adapters to the default bridge (or to no vnet when the
 * vnet was the default bridge, which then is switched off) and restarts the
 * default bridge's daemon. */
NXC_NODISCARD NXC_EXPORT bool NXCRemoveBridgeMappingsForVnet(int32_t vnet) NXC_NOEXCEPT;

/* ======================================================================
 * DHCP server configuration
 * ====================================================================== */

/* Internal DHCP parameter identifiers: one block, 9538..9555. The unused
 * numbers in between name nothing and are refused like unknown ones. */
typedef enum NXCDHCPParamID {
  NXC_DHCP_PARAM_BASE = 9538,
  NXC_DHCP_PARAM_LEASE_BEGIN_IP = 9542,
  NXC_DHCP_PARAM_LEASE_END_IP = 9543,
  NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC = 9546,
  NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC = 9547,
  NXC_DHCP_PARAM_BROADCAST_ADDR = 9548,
  NXC_DHCP_PARAM_DNS_ADDR = 9549,
  NXC_DHCP_PARAM_ROUTERS = 9550,
  NXC_DHCP_PARAM_DOMAIN_NAME = 9551,
  NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC = 9552,
  NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC = 9553,
  NXC_DHCP_PARAM_NETBIOS = 9554,
  NXC_DHCP_PARAM_INVALID = 9555
} NXCDHCPParamID;
#define NXC_DHCP_PARAM_COUNT 18u

/* Indexed by id - NXC_DHCP_PARAM_BASE: the word a parameter is stored under
 * (answer "VNET_<n>_<word>"), and its display name, which carries a double
 * quote at each end. Unused entries are "". */
NXC_EXPORT extern const char *const NXCDHCPParamIDToConfigOption[NXC_DHCP_PARAM_COUNT];
NXC_EXPORT extern const char *const NXCDHCPParamIDToName[NXC_DHCP_PARAM_COUNT];

/* Maps the public API's parameter numbers (13350...) to internal ones; an
 * unmapped number gives NXC_DHCP_PARAM_INVALID. External 13356 maps to 9556,
 * which every DHCP call refuses. */
NXC_EXPORT uint32_t NXCDHCPMapIntParamID(uint32_t externalId) NXC_NOEXCEPT;
/* Checks the value by the parameter's kind and stores it for the vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPSetParameter(uint32_t vnet, uint32_t id,
                                                  const char *value) NXC_NOEXCEPT;
/* Removes the stored value; removing an absent one succeeds. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPRemoveParameter(uint32_t vnet, uint32_t id) NXC_NOEXCEPT;
/* The stored value or, when absent and useDefault, the computed default.
 * buf is written only on success. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPGetParameter(uint32_t vnet, uint32_t id, bool useDefault,
                                                  char *buf, size_t bufSize) NXC_NOEXCEPT;
/* The default computed from the vnet's subnet and mask (addresses) or a
 * fixed text. A lease time with a buffer under 5 bytes is not copied, yet
 * the call succeeds. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPGetParameterDefault(uint32_t vnet, uint32_t id, char *buf,
                                                         size_t bufSize) NXC_NOEXCEPT;
/* Removes every stored DHCP parameter (routers and NetBIOS only while the
 * vnet uses NAT), the block hash and the static mappings of the vnet. Every
 * step runs; false when a parameter removal failed. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPRemoveDHCPConfig(uint32_t vnet) NXC_NOEXCEPT;
/* Static MAC-to-IP mappings of the default cache. A null ip removes the
 * mapping of mac. The enumeration starts with *cookie 0 and ends false. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPGetIPToMAC(uint32_t vnet, char *ipBuf, size_t ipBufSize,
                                                const char *mac) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCDHCPSetIPToMAC(uint32_t vnet, const char *ip,
                                                const char *mac) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCDHCPEnumIPToMAC(uint32_t vnet, uint32_t *cookie, char *ipBuf,
                                                 size_t ipBufSize, char *macBuf,
                                                 size_t macBufSize) NXC_NOEXCEPT;

/* Writes dhcpd.conf while the vnet uses DHCP; otherwise removes the vnet's
 * DHCP files and directories (true when dhcpd.conf and the leases file are
 * gone). */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPUpdateFromConfig(uint32_t vnet) NXC_NOEXCEPT;
/* Regenerates the protected block of dhcpd.conf, keeping the user's text
 * around it when the block's hash matches the stored DHCP_CFG_HASH; else the
 * old file goes to dhcpd.conf.bak and a fresh file is written. The existing
 * file is backed up on every call. */
NXC_NODISCARD NXC_EXPORT bool NXCDHCPWriteDHCPCfg(uint32_t vnet) NXC_NOEXCEPT;
/* SHA-1 of the bytes [posStart, posEnd) of file as 40 upper-case hex digits
 * in a zero-filled 256-byte buffer the caller frees; NULL on failure. The
 * file position is kept. */
NXC_EXPORT char *NXCCalculateHashStrForBlock(FILE *file, int64_t posStart,
                                            int64_t posEnd) NXC_NOEXCEPT;
/* Appends the bytes [startPos, endPos) of the file at srcPath to dst;
 * endPos 0 means up to the end of the file. */
NXC_NODISCARD NXC_EXPORT bool NXCCopyFileData(int64_t startPos, int64_t endPos, const char *srcPath,
                                              FILE *dst) NXC_NOEXCEPT;

/* ======================================================================
 * NAT service configuration
 * ====================================================================== */

/* Internal NAT parameter identifiers, 13858..13869. */
typedef enum NXCNATParamID {
  NXC_NAT_PARAM_BASE = 13858,
  NXC_NAT_PARAM_GATEWAY_IP = 13859,
  NXC_NAT_PARAM_GATEWAY_NETMASK = 13860,
  NXC_NAT_PARAM_CONFIG_PORT = 13862,
  NXC_NAT_PARAM_ACTIVE_FTP = 13863,
  NXC_NAT_PARAM_ALLOW_ANY_OUI = 13864,
  NXC_NAT_PARAM_DEVICE = 13865,
  NXC_NAT_PARAM_UDP_TIMEOUT = 13866,
  NXC_NAT_PARAM_NOT_SUPPORTED = 13867,
  NXC_NAT_PARAM_NAT6 = 13868,
  NXC_NAT_PARAM_NAT6_PREFIX = 13869
} NXCNATParamID;
#define NXC_NAT_PARAM_COUNT 12u

/* Indexed by id - NXC_NAT_PARAM_BASE: storage word and quoted display name. */
NXC_EXPORT extern const char *const NXCNATParamIDToConfigOption[NXC_NAT_PARAM_COUNT];
NXC_EXPORT extern const char *const NXCNATParamIDToName[NXC_NAT_PARAM_COUNT];

/* Maps the public API's parameter numbers (9027...) to internal ones; an
 * unmapped number gives NXC_NAT_PARAM_NOT_SUPPORTED. */
NXC_EXPORT uint32_t NXCNATMapIntParamID(uint32_t externalId) NXC_NOEXCEPT;
/* Checks and stores a settable parameter (not the netmask nor the device). */
NXC_NODISCARD NXC_EXPORT bool NXCNATSetParameter(uint32_t vnet, uint32_t id,
                                                 const char *value) NXC_NOEXCEPT;
/* The stored value or, when absent and useDefault, the default. */
NXC_NODISCARD NXC_EXPORT bool NXCNATGetParameter(uint32_t vnet, uint32_t id, bool useDefault,
                                                 char *buf, size_t bufSize) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNATGetParamDefault(uint32_t vnet, uint32_t id, char *buf,
                                                    size_t bufSize) NXC_NOEXCEPT;
/* Removing an absent parameter succeeds. */
NXC_NODISCARD NXC_EXPORT bool NXCNATRemoveParam(uint32_t vnet, uint32_t id) NXC_NOEXCEPT;
/* Removes every NAT parameter and all port forwards of the vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCNATRemoveConfig(uint32_t vnet) NXC_NOEXCEPT;

/* Port forwards of the default cache; protocol is non-zero for TCP. A null
 * ip removes the forward. descBufSize carries the description buffer's
 * capacity in; the enumeration gives 0 (no description) or its length + 2
 * back, the lookup leaves it. The enumeration starts with *cookie 0. */
NXC_NODISCARD NXC_EXPORT bool NXCNATSetPortForward(uint32_t vnet, int8_t protocol,
                                                   uint16_t externalPort, const char *ip,
                                                   uint16_t internalPort,
                                                   const char *description) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNATGetPortForward(uint32_t vnet, int8_t protocol,
                                                   uint16_t externalPort, char *ipBuf,
                                                   size_t ipBufSize, uint16_t *internalPort,
                                                   char *descBuf, size_t *descBufSize) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCNATEnumPortForward(uint32_t vnet, int8_t protocol,
                                                    uint32_t *cookie, uint16_t *externalPort,
                                                    char *ipBuf, size_t ipBufSize,
                                                    uint16_t *internalPort, char *descBuf,
                                                    size_t *descBufSize) NXC_NOEXCEPT;
/* NAT66 prefixes of the default cache. */
NXC_NODISCARD NXC_EXPORT bool NXCNATSetPrefix(uint32_t vnet, const char *prefix, const char *desc,
                                              int32_t descLen) NXC_NOEXCEPT;
/* True when the vnet has the prefix. */
NXC_NODISCARD NXC_EXPORT bool NXCNATGetPrefix(uint32_t vnet, const char *prefix) NXC_NOEXCEPT;

/* Rewrites nat.conf of a vnet that uses NAT from its parameters and port
 * forwards, after copying the old file to nat.conf.bak; for a vnet without
 * NAT removes the NAT files and directory. */
NXC_NODISCARD NXC_EXPORT bool NXCNATUpdateFromConfig(uint32_t vnet) NXC_NOEXCEPT;

/* The fixed texts of nat.conf, so that other components can recognise them.
 * The ...Param texts are printf formats. */
NXC_EXPORT extern const char NXCNATConfigFileHeader[];
NXC_EXPORT extern const char NXCNATConfigFileHostSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigFileMacOSVirtApiDesc[];
NXC_EXPORT extern const char NXCNATConfigFileMacOSVirtApiParam[];
NXC_EXPORT extern const char NXCNATConfigFileIPDesc[];
NXC_EXPORT extern const char NXCNATConfigFileIPParam[];
NXC_EXPORT extern const char NXCNATConfigFileNetmaskParam[];
NXC_EXPORT extern const char NXCNATConfigFileDeviceDesc[];
NXC_EXPORT extern const char NXCNATConfigFileDeviceParam[];
NXC_EXPORT extern const char NXCNATConfigFileActiveFTPDesc[];
NXC_EXPORT extern const char NXCNATConfigFileActiveFTPParam[];
NXC_EXPORT extern const char NXCNATConfigFileAllowAnyOUIDesc[];
NXC_EXPORT extern const char NXCNATConfigFileAllowAnyOUIParam[];
NXC_EXPORT extern const char NXCNATConfigFileHostIPDesc[];
NXC_EXPORT extern const char NXCNATConfigFileHostIPParam[];
NXC_EXPORT extern const char NXCNATConfigHostDefaultOptions[];
NXC_EXPORT extern const char NXCNATConfigFileNat6Desc[];
NXC_EXPORT extern const char NXCNATConfigFileNat6Param[];
NXC_EXPORT extern const char NXCNATConfigFileNat6PrefixDesc[];
NXC_EXPORT extern const char NXCNATConfigFileNat6PrefixParam[];
NXC_EXPORT extern const char NXCNATConfigHostNat6DefaultOptions[];
NXC_EXPORT extern const char NXCNATConfigFileTCPSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigFileTCPDefaultOptions[];
NXC_EXPORT extern const char NXCNATConfigFileUDPSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigFileUDPTimeoutDesc[];
NXC_EXPORT extern const char NXCNATConfigFileUDPTimeoutParam[];
NXC_EXPORT extern const char NXCNATConfigFileNetbiosSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigNetbiosDefaultOptions[];
NXC_EXPORT extern const char NXCNATConfigFileIncomingTCPSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigFileIncomingTCPDesc[];
NXC_EXPORT extern const char NXCNATConfigFileIncomingUDPSectionHeader[];
NXC_EXPORT extern const char NXCNATConfigFileIncomingUDPDesc[];
NXC_EXPORT extern const char NXCNATConfigFilePortForwardParam[];

/* Reader of nat.conf-style files ([section], key = value, # comments) for
 * the NAT daemon. It reads the file whose path the process puts in
 * globalConfig (the library never sets it) and opens the file anew on every
 * call. Names are compared without regard to case. Returned strings are
 * malloc'd and freed by the caller. */
NXC_EXPORT extern const char *globalConfig;

typedef struct NatCfgIterator NatCfgIterator;

/* Iterates over the section names of the whole file. */
NXC_EXPORT NatCfgIterator *NatCfgListSectionsInit(void) NXC_NOEXCEPT;
NXC_EXPORT char *NatCfgListSections(NatCfgIterator *iterator) NXC_NOEXCEPT;
NXC_EXPORT void NatCfgListSectionsDestroy(NatCfgIterator *iterator) NXC_NOEXCEPT;
/* Iterates over the items of the first section named section; NULL when the
 * file cannot be read or has no such section. */
NXC_EXPORT NatCfgIterator *NatCfgListItemsInit(const char *section) NXC_NOEXCEPT;
/* The next item's key; *value and *comment (when not NULL) get its value and
 * comment ("" when absent). NULL at the end of the section. */
NXC_EXPORT char *NatCfgListItems(NatCfgIterator *iterator, char **value,
                                 char **comment) NXC_NOEXCEPT;
NXC_EXPORT void NatCfgListItemsDestroy(NatCfgIterator *iterator) NXC_NOEXCEPT;
/* The value of the first item key in any section named section. */
NXC_EXPORT char *NatCfgGetItem(const char *section, const char *key) NXC_NOEXCEPT;
/* The item as a decimal number; defaultValue when absent or not a number. */
NXC_EXPORT unsigned long NatCfgGetItemLong(const char *section, const char *key,
                                           unsigned long defaultValue) NXC_NOEXCEPT;

/* ======================================================================
 * Host platform layer: file layout and file operations
 * ====================================================================== */

/* File types named by NXCGetFileName and acted on by the file calls. */
typedef enum NXCFileType {
  NXC_FILE_NETWORKING_DB = 0,
  NXC_FILE_VNET_DIR = 1,
  NXC_FILE_DHCPD_DIR = 2,
  NXC_FILE_NAT_DIR = 3,
  NXC_FILE_CUSTOM = 4,
  NXC_FILE_DHCPD_CONF = 5,
  NXC_FILE_DHCPD_CONF_BAK = 6,
  NXC_FILE_DHCPD_LEASES = 7,
  NXC_FILE_DHCPD_LEASES_OLD = 8,
  NXC_FILE_NAT_MAC = 9,
  NXC_FILE_NAT_CONF = 10,
  NXC_FILE_NAT_CONF_BAK = 11,
  NXC_FILE_PRODUCT_CONFIG = 12,
  NXC_FILE_VNET_DEVICE = 13
} NXCFileType;

/* vnet is -1 for the types that belong to no vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCGetFileName(int32_t vnet, uint32_t type, char *buffer,
                                             size_t size) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCCreateFile(int32_t vnet, uint32_t type,
                                            const char *customName) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRemoveFile(int32_t vnet, uint32_t type,
                                            const char *customName) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCFileExists(int32_t vnet, uint32_t type,
                                            const char *customName) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCCopyFile(const char *source, const char *destination) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCFileDirBookkeepingDBLoad(void) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCFileDirBookkeepingDBUnload(void) NXC_NOEXCEPT;
/* Record keeping of created and removed files and directories: create and
 * remove call these after the act and return their result. They keep no
 * records and always succeed. mtimeText may be NULL. */
NXC_NODISCARD NXC_EXPORT bool NXCRecordFileCreation(const char *path,
                                                    const char *mtimeText) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRecordDirectoryCreation(const char *path) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRecordFileDeletion(const char *path) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCRecordDirectoryDeletion(const char *path) NXC_NOEXCEPT;
/* The zynet driver is not loaded by the library: both return false. */
NXC_NODISCARD NXC_EXPORT bool NXCLoadZynetDriver(void) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCUnloadZynetDriver(void) NXC_NOEXCEPT;

/* ======================================================================
 * Address and name utilities: pure conversions and validators
 * ====================================================================== */

NXC_NODISCARD NXC_EXPORT bool NXCIPStr2Int(const char *text, uint32_t *address) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCIPInt2Str(uint32_t address,
                                           char *buffer) NXC_NOEXCEPT; /* 16 bytes */
NXC_NODISCARD NXC_EXPORT bool NXCIsValidIP(const char *text) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCMACStandardizeFormat(const char *text,
                                                      char *buffer) NXC_NOEXCEPT; /* 18 bytes */
NXC_NODISCARD NXC_EXPORT bool NXCIsValidMACAddr(const char *text) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCIsValidPrefix(const char *prefix) NXC_NOEXCEPT;
/* A mask of contiguous ones leaving at least 8 host addresses (/1../29). */
NXC_NODISCARD NXC_EXPORT bool NXCIsValidSubnetMask(const char *mask) NXC_NOEXCEPT;
/* Equal bit lengths and equal leading bits of two prefixes. */
NXC_NODISCARD NXC_EXPORT bool NXCIsPrefixMatch(const uint8_t *prefixA, uint32_t bitsA,
                                               const uint8_t *prefixB, uint32_t bitsB) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCValidateNetIDStruct(const NXC_NetID *netId) NXC_NOEXCEPT;
/* "zynet<n>" (prefix in any case) to n; NXC_INVALID_VNET when not a vnet name. */
#define NXC_INVALID_VNET 0xFFFFFFFFu
NXC_EXPORT uint32_t NXCConvVnetNameToNum(const char *name) NXC_NOEXCEPT;
NXC_NODISCARD NXC_EXPORT bool NXCConvVnetNumToName(uint32_t vnet,
                                                   char *buffer) NXC_NOEXCEPT; /* 20 bytes */
/* subnet | ~mask, into 16 bytes. */
NXC_NODISCARD NXC_EXPORT bool NXCGetBcastAddr(const char *subnet, const char *mask,
                                              char *buffer) NXC_NOEXCEPT;
/* subnet + 1, the host's adapter address, into 16 bytes. */
NXC_NODISCARD NXC_EXPORT bool NXCCalcVirtAdapAddr(const char *subnet, char *buffer) NXC_NOEXCEPT;

/* ======================================================================
 * Host platform layer: host adapters, the virtual host adapter and the
 * subnet test
 * ====================================================================== */

/* True when address & HOSTONLY_NETMASK == HOSTONLY_SUBNET of the vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCIPBelongsToSubnet(uint32_t vnet, const char *address) NXC_NOEXCEPT;

/* Lists the host's named Ethernet links, in the kernel's order, as entries
 * the caller frees with NXCFreeHostAdapList. */
NXC_NODISCARD NXC_EXPORT bool NXCCreateHostAdapList(uint32_t *count,
                                                    NXC_HostAdapter **head) NXC_NOEXCEPT;
/* The host adapter list of the host layer: frees every entry; *head ends NULL. */
NXC_EXPORT void NXCFreeHostAdapList(NXC_HostAdapter **head) NXC_NOEXCEPT;

/* Results of NXCAdapterStatus. */
#define NXC_ADAPTER_STATUS_ERROR 0u
#define NXC_ADAPTER_STATUS_ABSENT 1u
#define NXC_ADAPTER_STATUS_UP 2u
#define NXC_ADAPTER_STATUS_DOWN 3u
NXC_EXPORT uint32_t NXCAdapterStatus(const char *name) NXC_NOEXCEPT;
/* Brings the vnet's virtual adapter up with its address, netmask and
 * broadcast address; an adapter that is up already is left alone. */
NXC_NODISCARD NXC_EXPORT bool NXCVirtAdapterEnable(uint32_t vnet) NXC_NOEXCEPT;
/* Takes the vnet's virtual adapter down; its address stays. */
NXC_NODISCARD NXC_EXPORT bool NXCVirtAdapterDisable(uint32_t vnet) NXC_NOEXCEPT;
/* VIRTUAL_ADAPTER_ADDR of the vnet; when absent and computeIfAbsent, the
 * first host address of HOSTONLY_SUBNET (not stored). */
NXC_NODISCARD NXC_EXPORT bool NXCGetVnetVirtAdapterAddr(uint32_t vnet, char *buffer, size_t size,
                                                        bool computeIfAbsent) NXC_NOEXCEPT;
/* False on this platform. */
NXC_NODISCARD NXC_EXPORT bool NXCIsMacosVirtApiEnabled(void) NXC_NOEXCEPT;

/* ======================================================================
 * Service control: the per-vnet daemons
 * ====================================================================== */

/* Service identifiers (NXCServiceID). */
#define NXC_SERVICE_BRIDGE 1u
#define NXC_SERVICE_NETIFUP 2u
#define NXC_SERVICE_DHCP 3u
#define NXC_SERVICE_NAT 4u

/* NXCServiceStatus gives the status codes of nexcfg.h (NXC_SERVICE_RUNNING,
 * NXC_SERVICE_NOT_RUNNING, NXC_SERVICE_STATUS_UNKNOWN). */

/* The vnet option (NXC_VNET_OPTION_*) a service needs before a restart
 * starts it; 0 for an unknown service. */
NXC_EXPORT uint32_t NXCLookupConfigOptionForServiceID(uint32_t id) NXC_NOEXCEPT;
/* "Bridge", "Netifup", "DHCP" or "NAT"; "" for an unknown service. */
NXC_EXPORT const char *NXCLookupDescStringForServiceID(uint32_t id) NXC_NOEXCEPT;
/* The daemon's pid file, RUNDIR/<program>-<vnet number or name>.pid, as a
 * malloc'd path the caller frees; *desc (when desc is not NULL) gets the
 * service's description. */
NXC_NODISCARD NXC_EXPORT bool NXCGetPidFilename(uint32_t vnet, uint32_t id, char **path,
                                                const char **desc) NXC_NOEXCEPT;
/* The pid on the first line of the pid file, or 0 when there is none.
 * *fileMissing (when not NULL) tells whether the file could not be opened. */
NXC_EXPORT int32_t NXCExtractPidFromFile(const char *path, bool *fileMissing) NXC_NOEXCEPT;
/* Starts the daemon detached and succeeds once it has reported a status
 * over the status pipe. */
NXC_NODISCARD NXC_EXPORT bool NXCServiceStart(uint32_t vnet, uint32_t id) NXC_NOEXCEPT;
/* Terminates the daemon of the pid file (killing it after 3 s) and removes
 * the pid file. A daemon that is not there counts as stopped. */
NXC_NODISCARD NXC_EXPORT bool NXCServiceStop(uint32_t vnet, uint32_t id) NXC_NOEXCEPT;
/* NXC_SERVICE_RUNNING, NXC_SERVICE_NOT_RUNNING or NXC_SERVICE_STATUS_UNKNOWN. */
NXC_EXPORT uint32_t NXCServiceStatus(uint32_t vnet, uint32_t id) NXC_NOEXCEPT;
/* Stops a running daemon and starts it again when the vnet is configured
 * for the service; a stopped daemon is started only with startIfStopped.
 * wasRunning and isRunning may be NULL. */
NXC_NODISCARD NXC_EXPORT bool NXCRestartService(uint32_t vnet, uint32_t id, bool *wasRunning,
                                                bool *isRunning, bool startIfStopped) NXC_NOEXCEPT;

/* ======================================================================
 * Public API helpers
 * ====================================================================== */

/* Creates (create) or removes the device node of the named vnet. */
NXC_NODISCARD NXC_EXPORT bool NXCCreateDeleteZynetDevice(const char *vnet,
                                                         bool create) NXC_NOEXCEPT;

NXC_END_DECLS

#endif /* NEXCFG_INTERNAL_H */
