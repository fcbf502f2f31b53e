/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * libhcx: management of Fibre Channel and FCoE adapters of the "vosk" driver.
 *
 * This is the header to include; it brings the others with it.
 *
 * Boards: a call takes the board number that HCX_InitDiagEnv() gave an adapter port (0, 1, 2, ... by kernel host
 * number). Until HCX_InitDiagEnv() has run, no board has a number.
 * Ownership: every buffer and record passed in belongs to the caller.
 * Threads: start-up and teardown must not overlap any other call. All other calls may run in parallel; those on
 * different boards do not wait for each other.
 */
#ifndef LIBHCX_LIBHCX_API_H
#define LIBHCX_LIBHCX_API_H

#include <stdint.h>

#include "hbaapi.h"
#include "hcx_api.h"
#include "hcx_bsg.h"
#include "hcx_mmm.h"
#include "hcx_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Start-up, teardown, version ---- */

uint32_t HCX_InitDiagEnv(hcx_brdinfo *ba, uint32_t count);
uint32_t InitDiagEnv(brdinfo *ba);
uint32_t HCX_FreeDiagEnv(void);
uint32_t FreeDiagEnv(void);
void HCX_GetLibVer(uint8_t *ver);
hcx_host *hcx_host_find_by_idx(hcx_host *list, int brd_idx);

/* ---- Logging ---- */

extern uint32_t libhcx_logging_enable;
void libhcx_syslog(uint32_t enabled, const char *format, ...) __attribute__((format(printf, 2, 3)));
void libhcx_syslog_enable(uint32_t enable);
void libhcx_syslog_unlink(void);
void libhcx_backtrace(void);

/* ---- Driver interface ---- */

uint32_t open_voskhcx(void);

#ifdef __cplusplus
}
#endif

#endif
