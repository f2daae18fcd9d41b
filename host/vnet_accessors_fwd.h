// vnet_accessors_fwd.h - the per-vnet settings accessors the host layer
// reads (vnet subnet, mask, adapter name and stored adapter address).
//
// Stand-in declarations until the vnet model's section of
// nexcfg_internal.h declares them; remove this header then.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "nexcfg_internal.h"

NXC_BEGIN_DECLS
NXC_EXPORT bool NXCGetVnetCfgCpy(uint32_t vnet, const char *field, char *buffer,
                                 size_t *size) NXC_NOEXCEPT;
NXC_EXPORT bool NXCGetVnetSubnetAddr(uint32_t vnet, char *buffer, size_t size) NXC_NOEXCEPT;
NXC_EXPORT bool NXCGetVnetSubnetMask(uint32_t vnet, char *buffer, size_t size) NXC_NOEXCEPT;
NXC_EXPORT bool NXCGetVnetVirtAdapter(uint32_t vnet, char *buffer, size_t size) NXC_NOEXCEPT;
NXC_END_DECLS
