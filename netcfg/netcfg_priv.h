// netcfg_priv.h - the database cache and the pieces its files share.
#pragma once

#include <array>
#include <string_view>

#include "base/file_lock.h"
#include "base/hash_table.h"
#include "nexcfg_internal.h"

// ---- Entries ---------------------------------------------------------------

// An answer: key and value, both owned.
struct NetworkConfigDictionaryEntry {
  char *key;
  char *value;
};

struct NATPortFwdEntry {
  uint32_t vnet;
  bool tcp;
  uint16_t hostPort;  // the table key
  char *vmIP;
  uint16_t vmPort;
  char *description;  // null when there is none
};

struct DHCPMACToIPEntry {
  uint32_t vnet;
  char *mac;  // canonical form, the table key
  char *ip;
};

struct BridgeMappingEntry {
  int32_t vnet;   // 0..255 or -1
  char *adapter;  // the table key
};

struct NATPrefixEntry {
  uint32_t vnet;
  char *prefix;  // the table key
};

// ---- Record tables ---------------------------------------------------------

// One hash table of records with the cached array that enumeration reads.
// The array is built on the first enumeration and dropped by every change,
// so an enumeration sees a fixed order until the table changes. A zeroed
// RecordTable is a valid empty one.
struct RecordTable {
  nxc::HashTable *table;
  void **array;
  size_t arrayCount;
  bool arrayBuilt;
};

namespace nxc {

// Creates the table on first use; false when memory runs out.
bool RecordTableEnsure(RecordTable *t, HashTable::Kind kind, HashTable::FreeEntryFn freeEntry);
// Drops the cached array (after any change of the table).
void RecordTableInvalidate(RecordTable *t);
// Builds the cached array if needed; false when memory runs out.
bool RecordTableBuildArray(RecordTable *t);
// Puts entry under key, first deleting (and freeing) an entry already there
// ("Cannot delete existing entry" when that fails). Drops the cached array.
// On failure entry is freed with the table's free function and the caller
// logs its own insert failure.
bool RecordTableReplace(RecordTable *t, HashKey key, void *entry, const char *fn);
// The per-vnet table tables[vnet], created on first use ("Allocated hash
// table for zynet: %d"); null when memory runs out.
RecordTable *VnetRecordTable(RecordTable *tables, uint32_t vnet, HashTable::FreeEntryFn freeEntry,
                             const char *fn);
// Frees the table, its entries and its cached array; the table is then empty.
void RecordTableDestroy(RecordTable *t);

}  // namespace nxc

// Per vnet: TCP and UDP forwards, each keyed by host port. Created with the
// vnet's first forward, freed when both tables are gone.
struct NATVnetPortFwdConfig {
  RecordTable tcp;
  RecordTable udp;
};

constexpr uint32_t kNumVnets = NXC_NUM_VNETS;

namespace nxc {
// The answers the database knows: global keys and the fields of a vnet
// ("VNET_<n>_<field>"). Import drops every other answer; merge compares
// these.
inline constexpr std::array<std::string_view, 5> kKnownGlobalKeys = {
    "NXC_DEFAULT_HOSTONLY_VNET", "NXC_DEFAULT_NAT_VNET", "NXC_LOG_FILE", "NXC_LOGLEVEL",
    "NXC_DEFAULT_BRIDGE_VNET"};
inline constexpr std::array<std::string_view, 32> kKnownVnetFields = {
    "HOSTONLY_UUID",
    "HOSTONLY_SUBNET",
    "HOSTONLY_NETMASK",
    "VIRTUAL_ADAPTER_ADDR",
    "VIRTUAL_ADAPTER",
    "MTU",
    "VIRTUAL_ADAPTER_NAME",
    "DHCP",
    "DHCP_PARAM_LEASE_START_IP",
    "DHCP_PARAM_LEASE_END_IP",
    "DHCP_PARAM_DEFAULT_LEASE_TIME",
    "DHCP_PARAM_MAX_LEASE_TIME",
    "DHCP_PARAM_BROADCAST_ADDR",
    "DHCP_PARAM_DNS_ADDR",
    "DHCP_PARAM_ROUTERS",
    "DHCP_PARAM_DOMAIN_NAME",
    "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME",
    "DHCP_PARAM_SUB_MAX_LEASE_TIME",
    "DHCP_CFG_HASH",
    "NAT",
    "NAT_PARAM_GATEWAY_IP",
    "NAT_PARAM_INT_GATEWAY_IPSUBNETMASK",
    "NAT_PARAM_CONFIG_PORT",
    "NAT_PARAM_ACTIVE_FTP",
    "NAT_PARAM_ALLOW_ANY_OUI",
    "NAT_PARAM_DEVICE",
    "NAT_PARAM_UDP_TIMEOUT",
    "NAT_PARAM_NAT6",
    "NAT_PARAM_NAT6_PREFIX",
    "DISPLAY_NAME",
    "INTERFACE",
    "HOSTONLY_HOSTADDR",
};

}  // namespace nxc

// ---- The cache -------------------------------------------------------------

struct NXCNetworkConfigurationDB {
  nxc::FileLock *lock;  // held between lock and unlock, else null
  FILE *stream;         // the database file, open while the cache lives
  char *path;
  bool backup;
  bool changed;  // a record was appended since loading
  uint32_t major;
  uint32_t minor;
  bool readOnly;
  nxc::HashTable *answers;
  RecordTable bridgeMappings;
  NATVnetPortFwdConfig *portFwd[kNumVnets];
  RecordTable dhcp[kNumVnets];
  RecordTable prefixes[kNumVnets];
};

namespace nxc {

// The process-wide default cache (null while not loaded).
extern NXCNetworkConfigurationDB *gDefaultCache;

// The given cache, or the default one when null (which may itself be null).
inline NXCNetworkConfigurationDB *ResolveCache(NXCNetworkConfigurationDB *cache) {
  return cache ? cache : gDefaultCache;
}

// Appends one record line to the database stream (at its end). On failure
// returns false with *error set to errno; the cache is not touched.
bool AppendToDatabase(NXCNetworkConfigurationDB *db, const char *text, int *error);
// The cache (the default one for null) for a call on vnet's records; null,
// after logging why, when no cache is loaded or the vnet is out of range.
NXCNetworkConfigurationDB *CacheForVnet(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *fn);
// Appends the record of the given type for entry to the cache's own
// stream with NetCfgWriteRecordToConfig (which logs a failure).
// *error (optional) receives the errno of a failed write.
bool AppendRecordOf(NXCNetworkConfigurationDB *db, uint32_t type, const void *entry,
                    int *error = nullptr);
// Copies text into an output buffer when it fits whole (length + 1 <= size).
bool CopyOut(const char *text, char *buffer, size_t size);
// The same on any stream (a rewrite's new file).
bool AppendToStream(FILE *stream, const char *text, int *error);

// The text of a record of the given type for an entry of the matching kind
// (answer types take a NetworkConfigDictionaryEntry, and so on), malloc'd;
// null when memory runs out.
char *FormatRecord(uint32_t type, const void *entry);

// In-memory insert or replace of an answer, creating the table on first use.
bool NetCfgHashAddAnswer(HashTable **table, const char *key, const char *value);
// The entry free functions, which log what they free.
void NetCfgFreeEntry(void *entry);
void NetCfgNATPortFwdFreeEntry(void *entry);
void NetCfgDHCPMACToIPFreeEntry(void *entry);
void NetCfgBridgeMappingFreeEntry(void *entry);
void NetCfgPrefixFreeEntry(void *entry);

// In-memory record changes used by the loader and the undo paths.
bool NetCfgHashAddNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                             uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                             const char *description);
bool NetCfgHashRemoveNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                                uint16_t hostPort);
bool NetCfgHashAddDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac,
                              const char *ip);
bool NetCfgHashRemoveDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac);
bool NetCfgHashAddBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter, int32_t vnet);
bool NetCfgHashRemoveBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter);
bool NetCfgHashAddNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix);
bool NetCfgHashRemoveNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix);

// The compact writers: every "answer" and "add_" record of the cache (NAT
// prefixes excepted) in the fixed order, into a new database file or a
// buffer.
bool NetCfgWriteDatabaseFile(NXCNetworkConfigurationDB *db, const char *path, bool backup);

class ByteBuffer;

// Writes the same records in the same order into buffer, without a version
// line. Returns the failure flag: false when everything was written.
bool NetCfgWriteDatabaseToBuffer(NXCNetworkConfigurationDB *db, ByteBuffer *buffer);

// What NetCfgWriteRecordToConfig appends to: the record type and the cache
// whose stream receives it (stream: that cache's, or a rewrite's new file).
struct RecordWriterContext {
  uint32_t type;
  NXCNetworkConfigurationDB *cache;
  FILE *stream;
  int error;  // out: the errno of a failed write
};
// Appends the record of entry (types 1 to 8) to the context's stream and
// marks the cache changed. An answer keyed "BINDIR" is skipped. Returns the
// failure flag: 0 written or skipped, 1 failed (and logged).
int NetCfgWriteRecordToConfig(HashKey key, void *entry, void *context);

// Gives an imported or merged cache the database's name and an append
// stream on the database file (the merge's failure line keeps its own
// wording). False, logged, when either cannot be had.
bool ReopenAsDatabase(NXCNetworkConfigurationDB *db, const char *databasePath, bool merging,
                      const char *fn);

// Parses "<major>,<minor>" of a version line; logs and fails on anything
// else or on an unsupported major version.
bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor);

}  // namespace nxc
