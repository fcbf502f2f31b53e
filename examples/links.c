/* SPDX-License-Identifier: BSD-3-Clause */
/* Prints each change of a link until SIGINT or SIGTERM comes. */
#include <inttypes.h>
#include <libhcx_api.h>
#include <signal.h>
#include <stdio.h>

/* Runs in the library's listener thread. */
static void link_changed(uint32_t board, LINKINFO *link) {
  printf("board %" PRIu32 ": link %s\n", board, link->a_linkState == LNK_DOWN ? "down" : "up");
  fflush(stdout);
}

int main(void) {
  static hcx_brdinfo boards[32];
  sigset_t end;
  int signal_number;
  sigemptyset(&end);
  sigaddset(&end, SIGINT);
  sigaddset(&end, SIGTERM);
  sigprocmask(SIG_BLOCK, &end, NULL); /* before the library starts its thread, which inherits it */

  if (HCX_InitDiagEnv(boards, 32) == 0) {
    fprintf(stderr, "links: no adapter\n");
    return 1;
  }
  if (HCX_RegisterForEvent(0, FC_REG_LINK_EVENT | FC_REG_ALL_PORTS, 0, sizeof(LINKINFO),
                           (void (*)())link_changed, NULL) == 0) {
    fprintf(stderr, "links: the registration failed\n");
    HCX_FreeDiagEnv();
    return 1;
  }
  sigwait(&end, &signal_number);
  HCX_FreeDiagEnv();
  return 0;
}
