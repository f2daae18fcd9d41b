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
NXC_EXPORT bool NXCGetLogPath(char *buffer, size_t size) NXC_NOEXCEPT;
/* Stores the level as answer NXC_LOGLEVEL ("0x%x") in the default cache. */
NXC_EXPORT bool NXCSetVnetCfgLogLevel(int32_t level) NXC_NOEXCEPT;
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
NXC_EXPORT bool NXCNetCfgLoad(const char *path, NXCNetworkConfigurationDB **out, bool backup,
                              bool readOnly) NXC_NOEXCEPT;
/* Frees *cache (the default cache when cache is NULL) and clears the
 * pointer. With writeBack, a changed writable cache is first rewritten in
 * compact form through a temporary file. Always true. */
NXC_EXPORT bool NXCNetCfgUnload(NXCNetworkConfigurationDB **cache, bool writeBack) NXC_NOEXCEPT;
/* True when the file's first line is "VERSION=<major>,<minor>" with a
 * supported major version. */
NXC_EXPORT bool NXCNetCfgCheckVersion(const char *path) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgIsReadOnly(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;
/* Creates (or truncates) path holding only its version line. */
NXC_EXPORT bool NXCNetCfgCreateDB(const char *path, bool backup) NXC_NOEXCEPT;

/* Answers. *value points at the cache's own copy. */
NXC_EXPORT bool NXCNetCfgGetAnswerString(NXCNetworkConfigurationDB *cache, const char *key,
                                         const char **value) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgGetAnswerInt32(NXCNetworkConfigurationDB *cache, const char *key,
                                        int32_t *value) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgGetAnswerBool(NXCNetworkConfigurationDB *cache, const char *key,
                                       bool *value) NXC_NOEXCEPT;
/* Each change is appended to the database file at once; when the write
 * fails the cache is put back as it was and the call fails. */
NXC_EXPORT bool NXCNetCfgAddAnswerString(NXCNetworkConfigurationDB *cache, const char *key,
                                         const char *value) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgAddAnswerInt32(NXCNetworkConfigurationDB *cache, const char *key,
                                        int32_t value) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgAddAnswerBool(NXCNetworkConfigurationDB *cache, const char *key,
                                       bool value) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveAnswer(NXCNetworkConfigurationDB *cache, const char *key) NXC_NOEXCEPT;

/* The cross-process lock on the database file (time-out 3500 ms). */
NXC_EXPORT bool NXCNetCfgLockConfig(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgUnlockConfig(NXCNetworkConfigurationDB *cache) NXC_NOEXCEPT;

/* ======================================================================
 * Networking configuration database: record tables
 * ====================================================================== */

/* NAT port forwards, per vnet and protocol, keyed by host port. */
NXC_EXPORT bool NXCNetCfgAddNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                       uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                                       const char *description, bool restoring) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                          bool tcp, uint16_t hostPort) NXC_NOEXCEPT;
/* description may be NULL (not asked for). */
NXC_EXPORT bool NXCNetCfgLookupNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                          uint16_t hostPort, char *vmIP, size_t vmIPSize,
                                          uint16_t *vmPort, char *description,
                                          size_t descriptionSize) NXC_NOEXCEPT;
/* Gives the entry at *index and advances it; false at the end. On return
 * *descriptionSize is 0 when the forward has none, else its length + 2. */
NXC_EXPORT bool NXCNetCfgEnumNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                        uint32_t *index, uint16_t *hostPort, char *vmIP,
                                        size_t vmIPSize, uint16_t *vmPort, char *description,
                                        size_t *descriptionSize) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveAllNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                             bool tcp, bool udp, bool writeRecords) NXC_NOEXCEPT;

/* DHCP static MAC-to-IP mappings, per vnet, keyed by canonical MAC. */
NXC_EXPORT bool NXCNetCfgAddDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *mac, const char *ip, bool restoring) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                           const char *mac) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgLookupDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                           const char *mac, char *ip, size_t ipSize) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgEnumDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         uint32_t *index, char *mac, size_t macSize, char *ip,
                                         size_t ipSize) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveAllDHCPMACToIPMapping(NXCNetworkConfigurationDB *cache,
                                                     uint32_t vnet, bool writeRecords) NXC_NOEXCEPT;

/* Bridge mappings: host adapter name to vnet (0..255 or -1), one table. */
NXC_EXPORT bool NXCNetCfgAddHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                               const char *adapter, int32_t vnet,
                                               bool restoring) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                                  const char *adapter) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgLookupVnetForHostAdapter(NXCNetworkConfigurationDB *cache,
                                                  const char *adapter, int32_t *vnet) NXC_NOEXCEPT;
/* Lists the adapters mapped to vnet (exclude false), mapped elsewhere
 * (exclude true), or all of them (vnet -100) as a linked list that the
 * caller frees with NXCFreeHostAdapList. */
NXC_EXPORT bool NXCNetCfgLookupHostAdaptersForVnet(NXCNetworkConfigurationDB *cache, int32_t vnet,
                                                   uint32_t *count, NXC_HostAdapter **list,
                                                   bool exclude) NXC_NOEXCEPT;

/* NAT66 prefixes, per vnet, keyed by prefix text. Prefix entries keep no
 * description: desc and descLen are accepted for the NAT layer's calls. */
NXC_EXPORT bool NXCNetCfgAddNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                      const char *prefix, const char *desc,
                                      int32_t descLen) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         const char *prefix) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgLookupNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         const char *prefix) NXC_NOEXCEPT;
NXC_EXPORT bool NXCNetCfgRemoveAllNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                            bool writeRecords) NXC_NOEXCEPT;

/* ======================================================================
 * Vnet configuration model
 * ====================================================================== */

/* The default bridge vnet, cached; -100 while not known. */
NXC_EXPORT extern int32_t nxcDefaultBridgeVnet;

/* Reads (and caches) the default bridge vnet: 0 or -1. */
NXC_EXPORT bool NXCGetDefaultBridgeVnet(int32_t *vnet) NXC_NOEXCEPT;
NXC_EXPORT bool NXCSetDefaultBridgeVnet(int32_t vnet) NXC_NOEXCEPT;

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
NXC_EXPORT bool NXCGetFileName(int32_t vnet, uint32_t type, char *buffer, size_t size) NXC_NOEXCEPT;
NXC_EXPORT bool NXCCreateFile(int32_t vnet, uint32_t type, const char *customName) NXC_NOEXCEPT;
NXC_EXPORT bool NXCRemoveFile(int32_t vnet, uint32_t type, const char *customName) NXC_NOEXCEPT;
NXC_EXPORT bool NXCFileExists(int32_t vnet, uint32_t type, const char *customName) NXC_NOEXCEPT;
NXC_EXPORT bool NXCCopyFile(const char *source, const char *destination) NXC_NOEXCEPT;
NXC_EXPORT bool NXCFileDirBookkeepingDBLoad(void) NXC_NOEXCEPT;
NXC_EXPORT bool NXCFileDirBookkeepingDBUnload(void) NXC_NOEXCEPT;
/* Record keeping of created and removed files and directories: create and
 * remove call these after the act and return their result. They keep no
 * records and always succeed. mtimeText may be NULL. */
NXC_EXPORT bool NXCRecordFileCreation(const char *path, const char *mtimeText) NXC_NOEXCEPT;
NXC_EXPORT bool NXCRecordDirectoryCreation(const char *path) NXC_NOEXCEPT;
NXC_EXPORT bool NXCRecordFileDeletion(const char *path) NXC_NOEXCEPT;
NXC_EXPORT bool NXCRecordDirectoryDeletion(const char *path) NXC_NOEXCEPT;
/* The zynet driver is not loaded by the library: both return false. */
NXC_EXPORT bool NXCLoadZynetDriver(void) NXC_NOEXCEPT;
NXC_EXPORT bool NXCUnloadZynetDriver(void) NXC_NOEXCEPT;

/* ======================================================================
 * Host platform layer: address and name utilities
 * ====================================================================== */

NXC_EXPORT bool NXCIPStr2Int(const char *text, uint32_t *address) NXC_NOEXCEPT;
NXC_EXPORT bool NXCIPInt2Str(uint32_t address, char *buffer) NXC_NOEXCEPT; /* 16 bytes */
NXC_EXPORT bool NXCIsValidIP(const char *text) NXC_NOEXCEPT;
NXC_EXPORT bool NXCMACStandardizeFormat(const char *text, char *buffer) NXC_NOEXCEPT; /* 18 bytes */
NXC_EXPORT bool NXCIsValidMACAddr(const char *text) NXC_NOEXCEPT;
NXC_EXPORT bool NXCIsValidPrefix(const char *prefix) NXC_NOEXCEPT;
/* A mask of contiguous ones leaving at least 8 host addresses (/1../29). */
NXC_EXPORT bool NXCIsValidSubnetMask(const char *mask) NXC_NOEXCEPT;
/* True when address & HOSTONLY_NETMASK == HOSTONLY_SUBNET of the vnet. */
NXC_EXPORT bool NXCIPBelongsToSubnet(uint32_t vnet, const char *address) NXC_NOEXCEPT;
/* Equal bit lengths and equal leading bits of two prefixes. */
NXC_EXPORT bool NXCIsPrefixMatch(const uint8_t *prefixA, uint32_t bitsA, const uint8_t *prefixB,
                                 uint32_t bitsB) NXC_NOEXCEPT;
NXC_EXPORT bool NXCValidateNetIDStruct(const NXC_NetID *netId) NXC_NOEXCEPT;
/* "zynet<n>" (prefix in any case) to n; NXC_INVALID_VNET when not a vnet name. */
#define NXC_INVALID_VNET 0xFFFFFFFFu
NXC_EXPORT uint32_t NXCConvVnetNameToNum(const char *name) NXC_NOEXCEPT;
NXC_EXPORT bool NXCConvVnetNumToName(uint32_t vnet, char *buffer) NXC_NOEXCEPT; /* 20 bytes */
/* subnet | ~mask, into 16 bytes. */
NXC_EXPORT bool NXCGetBcastAddr(const char *subnet, const char *mask, char *buffer) NXC_NOEXCEPT;
/* subnet + 1, the host's adapter address, into 16 bytes. */
NXC_EXPORT bool NXCCalcVirtAdapAddr(const char *subnet, char *buffer) NXC_NOEXCEPT;

/* ======================================================================
 * Host platform layer: host adapters and the virtual host adapter
 * ====================================================================== */

/* Lists the host's named Ethernet links, in the kernel's order, as entries
 * the caller frees with NXCFreeHostAdapList. */
NXC_EXPORT bool NXCCreateHostAdapList(uint32_t *count, NXC_HostAdapter **head) NXC_NOEXCEPT;
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
NXC_EXPORT bool NXCVirtAdapterEnable(uint32_t vnet) NXC_NOEXCEPT;
/* Takes the vnet's virtual adapter down; its address stays. */
NXC_EXPORT bool NXCVirtAdapterDisable(uint32_t vnet) NXC_NOEXCEPT;
/* VIRTUAL_ADAPTER_ADDR of the vnet; when absent and computeIfAbsent, the
 * first host address of HOSTONLY_SUBNET (not stored). */
NXC_EXPORT bool NXCGetVnetVirtAdapterAddr(uint32_t vnet, char *buffer, size_t size,
                                          bool computeIfAbsent) NXC_NOEXCEPT;
/* False on this platform. */
NXC_EXPORT bool NXCIsMacosVirtApiEnabled(void) NXC_NOEXCEPT;

NXC_END_DECLS

#endif /* NEXCFG_INTERNAL_H */
