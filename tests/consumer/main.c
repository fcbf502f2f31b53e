/* SPDX-License-Identifier: BSD-3-Clause */
/* A program of somebody else's: C11, installed headers only, the shipped library. Prints the boards it finds. */
#include <inttypes.h>
#include <libhcx_api.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static hcx_brdinfo boards[32];
  uint8_t version[80] = {0};
  HCX_GetLibVer(version);
  if (memchr(version, '\0', sizeof(version)) == NULL || version[0] == '\0') return 1;
  printf("version %s\n", (const char *)version);
  printf("boards %" PRIu32 "\n", HCX_InitDiagEnv(boards, 32));
  HCX_FreeDiagEnv();
  return 0;
}
