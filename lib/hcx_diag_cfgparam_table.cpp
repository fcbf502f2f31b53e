// SPDX-License-Identifier: BSD-3-Clause
// The template of driver parameters: range, default, when a change takes effect, help. Constant data.
#include "hcx_diag_cfgparam.h"

namespace hcx {
namespace {

constexpr uint16_t SHOWN = CFG_EXPORT | CFG_COMMON;

}  // namespace

const CfgParam vosk_cfg_params_template[] = {
    // name, low, high, default, current, flags, change takes effect, help
    {"log_verbose", 0, 0xFFFFFFFF, 0, 0, SHOWN, CFG_DYNAMIC, "Verbose logging bit-mask"},
    {"lun_queue_depth", 1, 128, 30, 0, SHOWN, CFG_RESTART,
     "Max number of FCP commands we can queue to a specific LUN"},
    {"scan_down", 0, 1, 1, 0, SHOWN, CFG_RESTART, "Start scanning for devices from highest ALPA to lowest"},
    {"nodev_tmo", 1, 255, 30, 0, SHOWN, CFG_DYNAMIC,
     "Seconds driver will hold I/O waiting for a device to come back"},
    {"topology", 0, 6, 0, 0, SHOWN, CFG_LINKRESET, "Select Fibre Channel topology"},
    {"link_speed", 0, 16, 0, 0, SHOWN, CFG_LINKRESET, "Select link speed"},
    {"fcp_class", 2, 3, 3, 0, SHOWN, CFG_RESTART, "Select Fibre Channel class of service for FCP sequences"},
    {"use_adisc", 0, 1, 0, 0, SHOWN, CFG_DYNAMIC, "Use ADISC on rediscovery to authenticate FCP devices"},
    {"ack0", 0, 1, 0, 0, SHOWN, CFG_RESTART, "Enable ACK0 support"},
    {"cr_delay", 0, 63, 0, 0, SHOWN, CFG_RESTART,
     "A count of milliseconds after which an interrupt response is generated"},
    {"cr_count", 1, 255, 1, 0, SHOWN, CFG_RESTART,
     "A count of I/O completions after which an interrupt response is generated"},
    {"fdmi_on", 0, 2, 0, 0, SHOWN, CFG_RESTART, "Enable FDMI support"},
    {"max_luns", 0, 65535, 255, 0, SHOWN, CFG_RESTART, "Maximum allowed LUN"},
    {"enable_npiv", 0, 1, 1, 0, SHOWN, CFG_RESTART, "NPIV support"},
    {"enable_auth", 0, 1, 0, 0, SHOWN | CFG_IGNORE, CFG_DYNAMIC, "Authentication support"},
    {"use_msi", 0, 2, 0, 0, SHOWN, CFG_RESTART, "Use Message Signaled Interrupts (1) or MSI-X (2)"},
    {"", 0, 0, 0, 0, CFG_EXPORT, CFG_REBOOT, ""},
};

}  // namespace hcx
