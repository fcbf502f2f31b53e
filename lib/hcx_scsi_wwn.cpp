// SPDX-License-Identifier: BSD-3-Clause
// SCSI commands to a LUN given by local and remote port name. sysfs is asked instead of the inventory, so
// that LUNs behind virtual ports are found too; no host lock is taken.
#include <errno.h>

#include <string>
#include <vector>

#include "hcx_log.h"
#include "hcx_scsi_calls.h"
#include "libhcx.h"

namespace hcx {
namespace {

constexpr char kScsiDeviceDir[] = "/sys/class/scsi_device";

uint64_t image_of_number(uint32_t lun) {
  uint8_t bytes[8] = {};
  store_be32(bytes, lun << 16);
  return lun_image(bytes);
}

// The LUNs that the kernel shows below a target, in the order of their names, as REPORT LUNS data.
// A listing that fails must not look like a target without LUNs: a negated errno then.
int build_from_sysfs(const ScsiTarget &target, const ScsiBuffers &buffers) {
  const Text<32> prefix("%d:0:%d:", target.host_id, target.target_id);
  std::vector<std::string> names;
  const int listed =
      no_throw(-ENOMEM, [&] { return sysio::list_sorted(kScsiDeviceDir, prefix.c_str(), names); });
  if (listed < 0 && listed != -ENOENT) return listed;
  ReportLunsBuilder answer(buffers);
  for (const std::string &name : names) {
    long long lun;
    if (sscanf(name.c_str(), "%*d:0:%*d:%lld", &lun) != 1) continue;
    if (!answer.add(static_cast<uint64_t>(lun))) break;
  }
  answer.finish();
  return 0;
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t HCX_SendScsiInquiryByWWN(uint32_t /*board*/, HBA_WWN *lwwpn, HBA_WWN *rwwpn,
                                             uint64_t lun_id, uint8_t evpd, uint32_t pagecode,
                                             void *data_buff, uint32_t *data_size, void *sense_buff,
                                             uint32_t *sense_size) {
  HCX_TRACE();
  Path node;
  const uint32_t found = find_node(__func__, lwwpn, rwwpn, lun_id, node);
  if (found != kScsiSent) return found;
  return hcx_send_scsi_inq(node.c_str(), evpd, pagecode, static_cast<uint8_t *>(data_buff), data_size,
                           static_cast<uint8_t *>(sense_buff), sense_size);
}

extern "C" uint32_t HCX_SendReadCapacityByWWN(uint32_t /*board*/, HBA_WWN *lwwpn, HBA_WWN *rwwpn,
                                              uint32_t lun_id, void *data_buff, uint32_t *data_size,
                                              void *sense_buff, uint32_t *sense_size) {
  HCX_TRACE();
  Path node;
  const uint32_t found = find_node(__func__, lwwpn, rwwpn, image_of_number(lun_id), node);
  if (found != kScsiSent) return found;
  return send_read_capacity(node.c_str(), {data_buff, data_size, sense_buff, sense_size});
}

extern "C" uint32_t HCX_SendReportLUNsByWWN(uint32_t /*board*/, HBA_WWN *lwwpn, HBA_WWN *rwwpn,
                                            void *data_buff, uint32_t *data_size, void *sense_buff,
                                            uint32_t *sense_size) {
  HCX_TRACE();
  const ScsiBuffers buffers = {data_buff, data_size, sense_buff, sense_size};
  ScsiTarget target;
  const uint32_t found = find_target(__func__, lwwpn, rwwpn, target);
  if (found != kScsiSent) return found;
  Path node;
  if (hcx_get_lun_file_name(static_cast<uint32_t>(target.host_id), static_cast<uint32_t>(target.target_id), 0,
                            node.data()) == 0)
    return send_report_luns(node.c_str(), buffers);
  HCX_LOG(LOG_SCSI,
          "get lun file name failed on host_id %d target_id %d constructing our own report luns reponse",
          target.host_id, target.target_id);
  if (buffers.room() < kReportLunsEntry) {
    HCX_LOG(LOG_ERROR, "data_size %d less than %d", buffers.room(), kReportLunsEntry);
    return kScsiFailed;
  }
  if (build_from_sysfs(target, buffers) == 0) return kScsiSent;
  HCX_LOG(LOG_ERROR, "cannot list %s for host_id %d target_id %d", kScsiDeviceDir, target.host_id,
          target.target_id);
  return kScsiFailed;
}
