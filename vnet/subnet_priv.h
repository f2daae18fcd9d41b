// subnet_priv.h - the candidate table behind automatic subnet assignment,
// for the library's own sources and its tests. Not installed.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace nxc {

// One /24 that automatic assignment may hand out, in integer form, and
// whether it has been handed out or found in use.
struct SubnetCandidate {
  uint32_t subnet;
  uint8_t taken;
};

// Room for every candidate (510) and the empty slot after the last one.
constexpr size_t kSubnetCandidateSlots = 512;

// Writes the candidates in their fixed order - 172.16.0.0, then for k = 1 to
// 254 172.16.k.0 followed by 192.168.(k+1).0, then 172.16.255.0 - into
// table, leaving out each subnet for which isUsed is true, all with the taken
// mark clear. Returns their number; the slots after them are untouched.
uint32_t FillSubnetCandidates(bool (*isUsed)(uint32_t subnet),
                              SubnetCandidate (&table)[kSubnetCandidateSlots]) noexcept;

}  // namespace nxc
