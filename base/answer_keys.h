// answer_keys.h - the answers the database knows: global keys and the
// fields of a vnet ("VNET_<n>_<field>"). An import drops every other answer
// and a merge compares these. The library and the nexcfg tool (which
// previews an import) read this one list; it needs nothing but the
// standard library.
#pragma once

#include <array>
#include <string_view>

namespace nxc {

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

// True when word is one of words.
template <size_t N>
[[nodiscard]]
constexpr bool IsOneOf(std::string_view word, const std::array<std::string_view, N> &words) {
  for (std::string_view w : words)
    if (w == word) return true;
  return false;
}

}  // namespace nxc
