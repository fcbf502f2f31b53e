/* SPDX-License-Identifier: BSD-3-Clause */
/* Lists the boards and, for each, the remote ports that it sees. */
#include <inttypes.h>
#include <libhcx_api.h>
#include <stdio.h>

enum { MAX_BOARDS = 32 };

static void print_wwn(const HBA_WWN *name) {
  for (int i = 0; i < 8; i++)
    printf("%s%02x", i ? ":" : "", name->wwn[i]);
}

int main(void) {
  static hcx_brdinfo boards[MAX_BOARDS];
  uint32_t count = HCX_InitDiagEnv(boards, MAX_BOARDS);
  for (uint32_t board = 0; board < count && board < MAX_BOARDS; board++) {
    HBA_ADAPTERATTRIBUTES adapter;
    HBA_PORTATTRIBUTES port;
    if (GetAdapterAttributes(board, &adapter) != 0) continue;
    if (GetAdapterPortAttributes(board, 0, &port) != 0) continue;
    printf("board %" PRIu32 ": %s, port ", board, adapter.Model);
    print_wwn(&port.PortWWN);
    printf(", %" PRIu32 " remote ports\n", port.NumberofDiscoveredPorts);
    for (uint32_t i = 0; i < port.NumberofDiscoveredPorts; i++) {
      HBA_PORTATTRIBUTES remote;
      if (GetDiscoveredPortAttributes(board, 0, i, &remote) != 0) continue;
      printf("  %06" PRIx32 " ", remote.PortFcId);
      print_wwn(&remote.PortWWN);
      printf("\n");
    }
  }
  HCX_FreeDiagEnv();
  return 0;
}
