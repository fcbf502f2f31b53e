/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Requests to the driver through the block SCSI generic nodes of the FC transport.
 *
 * Each call opens its own descriptor and closes it before it returns, so calls may run in parallel. A thread that
 * calls one of them must hold no host lock: the board is looked up and rescanned inside.
 */
#ifndef LIBHCX_HCX_BSG_H
#define LIBHCX_HCX_BSG_H

#include <stdint.h>

#include "vosk_bsg.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct sg_io_v4;

int bsg_init_header(struct sg_io_v4 *hdr, struct fc_bsg_request *req, struct fc_bsg_reply *reply, int code,
                    int command, uint32_t timeout);
int send_bsg_get_mgmt_rev(uint32_t *major, uint32_t *minor);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
