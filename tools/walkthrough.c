/*
 * nexcfg-walkthrough - a short session with the library through its public
 * C interface: load the networking database, store and read settings,
 * raise the stored log level, and unload, which writes the changed
 * database back in compact form. scripts/demo runs it in a private sandbox.
 */
#include <stdio.h>
#include <stdlib.h>

#include "nexcfg.h"

static int Fail(const char *what) {
  fprintf(stderr, "nexcfg-walkthrough: %s failed (see the library log)\n", what);
  return 1;
}

int main(void) {
  printf("library version %#x\n", (unsigned)NXC_Version());
  if (!NXC_Load(0)) return Fail("NXC_Load");

  static const char *const kSettings[][2] = {
      {"VNET_1_DISPLAY_NAME", "Host-only network"},
      {"VNET_1_HOSTONLY_SUBNET", "192.168.56.0"},
      {"VNET_1_HOSTONLY_NETMASK", "255.255.255.0"},
      {"VNET_1_DHCP", "yes"},
      {"VNET_8_DISPLAY_NAME", "NAT network"},
      {"VNET_8_NAT", "yes"},
  };
  for (size_t i = 0; i < sizeof kSettings / sizeof kSettings[0]; ++i) {
    if (!NXC_VnetCfgAddAnswer(kSettings[i][0], kSettings[i][1])) return Fail("NXC_VnetCfgAddAnswer");
  }
  if (!NXC_VnetCfgRemoveAnswer("VNET_8_DISPLAY_NAME")) return Fail("NXC_VnetCfgRemoveAnswer");
  if (!NXC_SetDefaultLogLevel(NXC_LOG_ERR | NXC_LOG_WRN | NXC_LOG_OK | NXC_LOG_INFO))
    return Fail("NXC_SetDefaultLogLevel");

  const char *name = NULL;
  if (!NXC_VnetCfgGetAnswer("VNET_1_DISPLAY_NAME", &name)) return Fail("NXC_VnetCfgGetAnswer");
  printf("vnet 1 is \"%s\"; stored log level %#x, current %#x\n", name,
         (unsigned)NXC_GetDefaultLogLevel(), (unsigned)NXC_GetCurrentLogLevel());
  NXC_Unload();
  return 0;
}
