// SPDX-License-Identifier: BSD-3-Clause
// The driver parameters that applications may show and change. Constant data, read by any thread.
#pragma once

#include "hcx_api.h"
#include "hcx_util.h"

namespace hcx {

// Rows in the order of their index, ended by a row with an empty name. Names as in sysfs, without "vosk_".
extern const CfgParam vosk_cfg_params_template[];

// Which variant of the template an adapter has; there is one so far.
int hcx_variant(const hcx_host *host);
// First row of the host's variant.
const CfgParam *hcx_variant_cfg_param(const hcx_host *host);

}  // namespace hcx
