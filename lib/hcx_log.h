// SPDX-License-Identifier: BSD-3-Clause
// Log lines begin with the name of the routine that writes them. Do not use these inside a lambda: its name is
// "operator()".
#pragma once

#include "libhcx_api.h"

// The entry line of an exported call.
#define HCX_TRACE() libhcx_syslog(LOG_TRACE, "%s()", __func__)
// HCX_LOG(LOG_ERROR, "no host on board %d", board)
#define HCX_LOG(category, format, ...) \
  libhcx_syslog((category), "%s - " format, __func__ __VA_OPT__(, ) __VA_ARGS__)
// The path of a device or attribute, before it is opened.
#define HCX_LOG_PATH(path) libhcx_syslog(LOG_DEVICE_NAME, "%s() - %s", __func__, (path))
