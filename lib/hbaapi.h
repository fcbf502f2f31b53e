/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Records of the common HBA API, with their published layouts.
 *
 * World wide names are byte arrays, most significant byte first, on every processor. Integers are in the processor's
 * own order. All records belong to the caller.
 */
#ifndef LIBHCX_HBAAPI_H
#define LIBHCX_HBAAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A world wide name, in the order in which it is printed. */
typedef struct HBA_wwn {
  uint8_t wwn[8];
} HBA_WWN, HBA_wwn, *PHBA_WWN;

#ifdef __cplusplus
}
#endif

#endif
