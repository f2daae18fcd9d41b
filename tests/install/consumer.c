#include <nexcfg.h>
#include <stdio.h>

int main(void) {
  printf("%#x\n", (unsigned)NXC_Version());
  return NXC_Version() == 0x10000u ? 0 : 1;
}
