// port_forwards.h - the port forwards read whole, for the writer of
// nat.conf, which would otherwise read them one index at a time through
// NXCNetCfgEnumNATPortFwd and copy each out.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace nxc {

// Gets one forward; vmIP is valid only during the call. False stops the
// walk.
using PortForwardVisitFn = bool (*)(void *context, uint16_t hostPort, std::string_view vmIP,
                                    uint16_t vmPort);

// How many forwards of one protocol vnet has in the default cache; 0
// when it has none or nothing is loaded. Logs nothing.
size_t PortForwardCount(uint32_t vnet, bool tcp);

// Hands visit the forwards of one protocol of vnet in the default cache,
// in enumeration order, exactly as NXCNetCfgEnumNATPortFwd called with the
// indexes 0, 1, 2, ..., an IP buffer of kIPTextSize bytes and no
// description buffer gives them until it returns false: the same lines
// logged under that function's name, the walk ending where that
// enumeration would, and the same enumeration state left for a later
// enumeration. False only when visit stopped the walk.
[[nodiscard]] bool EnumPortForwards(uint32_t vnet, bool tcp, PortForwardVisitFn visit,
                                    void *context);

}  // namespace nxc
