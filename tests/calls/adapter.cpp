// SPDX-License-Identifier: BSD-3-Clause
// Rows for the adapter's mailbox, registers, flash and loopback, its attributes, mappings and LUNs.
#include "calls.h"

namespace calls {
namespace {

#define BRIDGE_COMMAND \
  { 0x10, 0, 0, 0, 0, 0, 0, 0 }
// LUN 0, data in, INQUIRY of 96 bytes
#define FCP_COMMAND \
  { 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0x12, 0, 0, 0, 96, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 96 }

constexpr uint8_t kInquiry[] = {0x12, 0, 0, 0, 96, 0};
constexpr int32_t kFirstRecord = 8;

MAILBOX_t *mailbox(Arguments &a, uint8_t command, size_t size = sizeof(MAILBOX_t)) {
  uint8_t *block = a.bytes(size);
  hcx_mbox_set_command(block, command);
  return reinterpret_cast<MAILBOX_t *>(block);
}
// Not for calls that find lengths and addresses of the caller's memory in the block.
MAILBOX_t *any_mailbox(Arguments &a, uint8_t command) {
  MAILBOX_t *block = mailbox(a, command);
  a.scramble(block, sizeof *block);
  return block;
}

void end_loopback(Arguments &a) {
  HCX_EndLoopback(a.board);
}
void start_loopback(Arguments &a) {
  HCX_ConfigLoopback(a.board, 1, 1000);
}

// What all SCSI calls take behind their own arguments.
template <class Send>
Result scsi(Arguments &a, const char *name, Send send) {
  Buffer data(a, 512), sense(a, 64, 300);
  const Result result = outcome(send(data.data, &data.said, sense.data, &sense.said));
  if (result == 0) data.check(name);
  if (result == 0) sense.check(name);
  return result;
}

// The same for FCP commands.
template <class Send>
Result fcp(Arguments &a, const char *name, Send send) {
  Buffer command(a, FCP_COMMAND), data(a, 96), response(a, 64, 300);
  const Result result =
      outcome(send(command.data, command.size, data.data, &data.said, response.data, &response.said));
  data.check(name);
  response.check(name);
  return result;
}

HCX_FCoEConnectList *connect_list(Arguments &a) {
  auto *list = a.list<HCX_FCoEConnectList, HCX_FCoEFCFConnectEntry>(16);
  list->version = 1;
  list->numberOfEntries = 1;
  list->entries[0].flags = 0x3f;
  return list;
}
HCX_FCoEParam *parameters(Arguments &a) {
  auto *parameters = a.record<HCX_FCoEParam>();
  parameters->version = 1;
  parameters->VLanValid = VLAN_ID_VALID;
  parameters->VLanId = 1002;
  return parameters;
}
HCX_QoSConfig *priorities(Arguments &a) {
  auto *table = a.list<HCX_QoSConfig, HCX_QoSEntry>(3);
  table->numberOfEntries = 3;
  return table;
}
// An image of region 23 with a drivers' record in front of its end mark.
uint8_t *image(Arguments &a) {
  uint8_t *bytes = a.bytes(1024);
  memcpy(bytes, "RG23\x01", 5);
  bytes[kFirstRecord] = 0xff;
  create_driver_specific(1, kFirstRecord, bytes);
  a.scramble(bytes, 1024);
  return bytes;
}

const Call rows[] = {
    // Mailbox
    HCX_CALL(IssueMboxGeneric, IssueMboxGeneric(a.board, mailbox(a, MBX_READ_REV), 64, 256)),
    HCX_CALL(IssueMbox, IssueMbox(a.old_board, any_mailbox(a, MBX_READ_NV), a.number<uint32_t>(64, 0, 256),
                                  a.number<uint32_t>(256, 0, 256))),
    HCX_CALL(HCX_IssueMboxWithRetry,
             HCX_IssueMboxWithRetry(a.old_board, mailbox(a, MBX_READ_NV), 64, 256, 2, 1000)),
    HCX_CALL(HCX_IssueMboxWithRetryEx,
             HCX_IssueMboxWithRetryEx(a.old_board, mailbox(a, MBX_READ_NV), a.bytes(2048), 0, 0, 4, 2, 1000)),
    HCX_CALL(HCX_IssueMboxWithRetryV2, HCX_IssueMboxWithRetryV2(a.board, any_mailbox(a, MBX_READ_REV),
                                                                a.number<uint32_t>(64, 0, 64), 2, 1)),
    {"IssueExtendedSLIConfig",
     [](Arguments &a) -> Result {
       MAILBOX_t *block = mailbox(a, MBX_SLI_CONFIG, 256 + 16);
       hcx_mbox_set_word(block, 1, 1 << 3);
       hcx_mbox_set_word(block, 8, 16);
       return IssueExtendedSLIConfig(a.board, block, 0, 0, (256 + 16) / 4);
     }},
    HCX_CALL(readrev, readrev(a.board, a.record<MAILBOX_t>())),
    {"TibraMBXvar",
     [](Arguments &a) -> Result {
       uint8_t *command = a.bytes(8);
       command[0] = command[4] = 1;
       command[3] = 0x80;
       a.scramble(command, 8);
       return TibraMBXvar(a.board, command, nullptr);
     }},

    // Driver and adapter
    HCX_CALL(GetCfgParam, GetCfgParam(a.board, a.list<CfgParam, CfgParam>(64))),
    HCX_CALL(SetCfgParam, SetCfgParam(a.board, a.number<uint32_t>(0, 0, 63), 3)),
    {"HCX_GetDrvInfo",
     [](Arguments &a) -> Result {
       auto *info = a.record<HCXDrvInfo>();
       info->drvInfoVer = 4;
       return HCX_GetDrvInfo(a.board, info);
     }},
    {"GetVPDInfo",
     [](Arguments &a) -> Result {
       auto *vpd = a.record<Vpd>();
       vpd->version = 1;
       return GetVPDInfo(a.board, vpd);
     }},
    HCX_CALL(HCX_GetLinkInfo, HCX_GetLinkInfo(a.board, a.record<LinkInfo>())),
    HCX_CALL(GetLinkInfo, GetLinkInfo(a.board, a.record<LinkInfo>())),
    HCX_CALL(GetNodeInfo, GetNodeInfo(a.board, a.list<NodeInfo, NodeInfo>(16))),
    HCX_CALL(linkDownUser, linkDownUser(a.board)),
    {"HCX_GetDriverDumpRegion",
     [](Arguments &a) -> Result {
       Buffer out(a, 256, 300);
       const Result result = HCX_GetDriverDumpRegion(a.old_board, a.number<uint32_t>(0, 0, 8), out.data, &out.said);
       return out.check("HCX_GetDriverDumpRegion"), result;
     }},
    HCX_CALL(GetIOinfo, GetIOinfo(a.board, a.bytes(64))),
    HCX_CALL(GetEventsCount, GetEventsCount(a.board, a.record<uint32_t>())),
    HCX_CALL(GetMissedEventsCount, GetMissedEventsCount(a.board, a.record<uint32_t>())),

    // Loopback and bridge
    HCX_CALL(HCX_ConfigLoopback, HCX_ConfigLoopback(a.board, 1, 1000), 0, nullptr, end_loopback),
    {"HCX_RunLoopbackTest",
     [](Arguments &a) -> Result {
       Buffer out(a, 512);
       Loopback test = {out.size, out.data, a.bytes(out.size)};
       return HCX_RunLoopbackTest(a.board, &test);
     },
     0, start_loopback, end_loopback},
    HCX_CALL(HCX_EndLoopback, HCX_EndLoopback(a.board), 0, start_loopback, end_loopback),
    {"HCX_SendTibraCommand",
     [](Arguments &a) -> Result {
       Buffer command(a, BRIDGE_COMMAND), response(a, 64);
       return HCX_SendTibraCommand(a.board, command.data, command.size, response.data, &response.said);
     }},
    {"IssueTibra",
     [](Arguments &a) -> Result {
       Buffer command(a, BRIDGE_COMMAND), response(a, 64);
       return IssueTibra(a.board, command.data, command.size, response.data, &response.said,
                         a.record<uint32_t>(), TIBRA_CMD);
     }},
    HCX_CALL(ConfigTibraLoopback, ConfigTibraLoopback(a.board, a.text("/sys/devices/0000:05:00.0/"))),
    HCX_CALL(unConfigTibraLoopback, unConfigTibraLoopback(a.board)),

    // Registers
    HCX_CALL(ReadCtlReg, ReadCtlReg(a.old_board, a.record<uint32_t>(), 0)),
    HCX_CALL(WriteCtlReg, WriteCtlReg(a.old_board, a.record<uint32_t>(), 0)),
    HCX_CALL(ReadMem, ReadMem(a.old_board, a.bytes(64), 0, 64)),
    HCX_CALL(WriteMem, WriteMem(a.old_board, a.bytes(64), 0, 64)),
    HCX_CALL(HCX_ReadPciCfg, HCX_ReadPciCfg(a.board, a.bytes(64), 0, 64)),
    HCX_CALL(ReadPciCfg, ReadPciCfg(a.board, a.bytes(64), 0, 64)),
    HCX_CALL(WritePciCfg, WritePciCfg(a.board, a.bytes(64), 0, 64)),
    HCX_CALL(swap32_buffer, swap32_buffer(a.bytes(10), 10)),

    // Attributes, statistics, mappings
    HCX_CALL(GetAdapterAttributes, GetAdapterAttributes(a.board, a.record<HBA_ADAPTERATTRIBUTES>())),
    HCX_CALL(GetAdapterPortAttributes,
             GetAdapterPortAttributes(a.board, 0, a.record<HBA_PORTATTRIBUTES>())),
    HCX_CALL(GetPortAttributesByIndex,
             GetPortAttributesByIndex(a.board, 0, 0, a.record<HBA_PORTATTRIBUTES>())),
    HCX_CALL(GetDiscoveredPortAttributes,
             GetDiscoveredPortAttributes(a.board, 0, a.number<uint32_t>(0, 0, 3),
                                         a.record<HBA_PORTATTRIBUTES>())),
    HCX_CALL(GetPortAttributesByWWN,
             GetPortAttributesByWWN(a.board, a.target, a.record<HBA_PORTATTRIBUTES>())),
    HCX_CALL(GetPortStatistics, GetPortStatistics(a.board, 0, a.record<HBA_PORTSTATISTICS>())),
    {"ResetStatistics",
     [](Arguments &a) -> Result {
       ResetStatistics(a.board, 0);
       return GetPortStatistics(a.board, 0, a.record<HBA_PORTSTATISTICS>());
     }},
    HCX_CALL(RefreshInformation, RefreshInformation(a.board)),
    HCX_CALL(hcx_sysfs_read_port,
             a.ports() ? hcx_sysfs_read_port(a.ports(), a.record<HBA_PORTATTRIBUTES>()) : 0),
    HCX_CALL(hcx_sysfs_read_mlomode, a.ports() ? hcx_sysfs_read_mlomode(a.ports()) : 0),
    {"GetFcpTargetMapping",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint32_t>(4, 1, 4);
       auto *mapping = a.list<HBA_FCPTARGETMAPPING, HBA_FCPSCSIENTRY>(room);
       mapping->NumberOfEntries = room;
       return GetFcpTargetMapping(a.board, mapping);
     }},
    {"HCX_GetFcpTargetMappingV2",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint32_t>(4, 1, 4);
       auto *mapping = a.list<HBA_FCPTARGETMAPPINGV2, HBA_FCPSCSIENTRYV2>(room);
       mapping->NumberOfEntries = room;
       return HCX_GetFcpTargetMappingV2(a.board, a.local, mapping);
     }},
    {"GetFcpBindList",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint32_t>(8, 1, 8);
       auto *list = a.list<HBA_BIND_LIST, HBA_BIND_ENTRY>(room);
       list->NumberOfEntries = room;
       return GetFcpBindList(a.board, list);
     }},
    HCX_CALL(GetFcpPersistentBinding, GetFcpPersistentBinding(a.board, a.record<HBA_FCPBINDING>())),
    HCX_CALL(AddBind, AddBind(a.board, BIND_WWPN, &a.target, a.record<HBA_SCSIID>())),
    HCX_CALL(DelBind, DelBind(a.board, BIND_WWPN, &a.target)),

    // SCSI
    {"hcx_send_scsi_cmd",
     [](Arguments &a) {
       uint8_t *cdb = a.bytes(sizeof kInquiry);
       memcpy(cdb, kInquiry, sizeof kInquiry);
       return scsi(a, "hcx_send_scsi_cmd", [&](uint8_t *data, uint32_t *size, uint8_t *sense, uint32_t *sensed) {
         return hcx_send_scsi_cmd(kNode, -3, 1000, cdb, sizeof kInquiry, data, size, sense, sensed);
       });
     }},
    {"hcx_send_bsg_scsi_cmd",
     [](Arguments &a) {
       uint8_t *cdb = a.bytes(sizeof kInquiry);
       memcpy(cdb, kInquiry, sizeof kInquiry);
       return scsi(a, "hcx_send_bsg_scsi_cmd", [&](uint8_t *data, uint32_t *size, uint8_t *sense, uint32_t *sensed) {
         return hcx_send_bsg_scsi_cmd(kNode, -3, 1000, cdb, sizeof kInquiry, data, size, sense, sensed);
       });
     }},
#define SCSI_CALL(name, ...)                                                                           \
  {                                                                                                    \
#name, [](Arguments &a) {                                                                            \
      return scsi(a, #name, [&](uint8_t *data, uint32_t *size, uint8_t *sense, uint32_t *sensed) {       \
        return name(__VA_ARGS__, data, size, sense, sensed);                                             \
      });                                                                                                \
    } \
  }
    SCSI_CALL(hcx_send_scsi_inq, kNode, 0, 0),
    HCX_CALL(hcx_search_lun, hcx_search_lun(a.board, &a.target, a.lun_id)),
    HCX_CALL(hcx_lun_to_file_name, a.luns() ? hcx_lun_to_file_name(a.luns()) : nullptr),
    SCSI_CALL(SendScsiInquiry, a.board, &a.target, a.lun_id, a.number<uint8_t>(0, 0, 1), a.number<uint8_t>(0)),
    SCSI_CALL(SendReadCapacity, a.board, &a.target, a.lun_id),
    SCSI_CALL(SendReportLUNs, a.board, &a.target),
    SCSI_CALL(SendScsiRead, a.board, &a.target, a.lun_id, 0),
    SCSI_CALL(SendScsiWrite, a.board, &a.target, a.lun_id, 0),
    SCSI_CALL(SendScsiCDB, a.board, &a.target, a.lun_id, 0),
    SCSI_CALL(HCX_SendScsiInquiryByWWN, a.board, &a.local, &a.target, a.lun_id, 0, 0),
    SCSI_CALL(HCX_SendReadCapacityByWWN, a.board, &a.local, &a.target, 0),
    SCSI_CALL(HCX_SendReportLUNsByWWN, a.board, &a.local, &a.target),
#undef SCSI_CALL
#define FCP_CALL(name, names, ...)                                                                      \
  {                                                                                                     \
#name, [](Arguments &a) {                                                                             \
      return fcp(a, #name, [&](uint8_t *command, uint32_t size, uint8_t *data, uint32_t *said,            \
                               uint8_t *response, uint32_t *responded) {                                  \
        return name(a.board, names, command, size, data, said, response, responded __VA_OPT__(, )         \
                        __VA_ARGS__);                                                                     \
      });                                                                                                 \
    } \
  }
#define BOTH_NAMES &a.local, &a.target
    FCP_CALL(SendFcpCmd, &a.target),
    FCP_CALL(SendFcpCmdEx, &a.target, 1),
    FCP_CALL(SendBSGFcpCmdEx, &a.target, 1),
    FCP_CALL(HCX_SendFcpCmd, BOTH_NAMES),
#undef FCP_CALL

    // Flash
    {"getRegionData",
     [](Arguments &a) -> Result {
       Buffer out(a, 1024);
       const Result result = getRegionData(a.board, 2, 23, a.number<uint32_t>(0), out.data, &out.said,
                                           a.record<uint16_t>(), 0);
       return out.check("getRegionData"), result;
     }},
    {"HCX_IssueDumpMBox",
     [](Arguments &a) -> Result {
       Buffer out(a, 1024);
       const Result result =
           HCX_IssueDumpMBox(a.board, 2, 0, 23, a.number<uint32_t>(0), out.data, &out.said);
       return out.check("HCX_IssueDumpMBox"), result;
     }},
    {"setRegionData",
     [](Arguments &a) -> Result {
       Buffer data(a, 1024, 2100);
       return setRegionData(a.board, a.number<uint32_t>(2, 2, 4), 23, a.number<uint32_t>(1024), 0, data.data,
                            &data.said, a.record<int32_t>());
     }},
    {"HCX_IssueUpdateCfgMBox",
     [](Arguments &a) -> Result {
       Buffer data(a, 1024, 2100);
       return HCX_IssueUpdateCfgMBox(a.board, 2, 23, data.data, data.size, a.record<int32_t>());
     }},
    HCX_CALL(get_r23_TLV,
             get_r23_TLV(a.fcoe_board, 0xa0, a.bytes(1024), a.record<int32_t>(), a.record<uint16_t>())),
    HCX_CALL(initRegion23, initRegion23(a.board, a.bytes(1024), a.record<int32_t>(), a.record<int32_t>())),
    {"create_driver_specific",
     [](Arguments &a) -> Result {
       uint8_t *bytes = a.bytes(1024);
       bytes[kFirstRecord] = 0xff;
       return create_driver_specific(1, kFirstRecord, bytes);
     }},
    HCX_CALL(rebuild_port_status, rebuild_port_status(image(a), 0, kFirstRecord, a.record<uint32_t>())),
    HCX_CALL(remove_driver_specific,
             remove_driver_specific(image(a), a.bytes(1024), kFirstRecord, a.record<int32_t>())),
    {"add_driver_specific",
     [](Arguments &a) -> Result {
       uint8_t *region = image(a), *rebuilt = a.bytes(1024);
       rebuilt[kFirstRecord] = 0xff;
       return add_driver_specific(region, kFirstRecord, rebuilt, kFirstRecord, 8);
     }},
    HCX_CALL(HCX_SetPersistLinkDown, HCX_SetPersistLinkDown(a.board, 1)),
    HCX_CALL(HCX_GetPersistLinkDown, HCX_GetPersistLinkDown(a.board, a.record<uint16_t>())),

    // FCoE
    {"HCX_FCoEGetFCFList",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint16_t>(3, 1, 3);
       auto *list = a.list<HCX_FCoEFCFList, HCX_FCoEFCFInfo>(room);
       list->version = 1;
       list->numberOfEntries = room;
       return HCX_FCoEGetFCFList(a.fcoe_board, list);
     }},
    HCX_CALL(HCX_FCoESetFCFConnectList, HCX_FCoESetFCFConnectList(a.fcoe_board, connect_list(a))),
    HCX_CALL(HCX_FCoEGetFCFConnectList, HCX_FCoEGetFCFConnectList(a.fcoe_board, connect_list(a))),
    HCX_CALL(HCX_FCoESetParams, HCX_FCoESetParams(a.fcoe_board, parameters(a))),
    HCX_CALL(HCX_FCoEGetParams, HCX_FCoEGetParams(a.fcoe_board, parameters(a))),

    // FCP priority
    HCX_CALL(HCX_QoSSetConfig, HCX_QoSSetConfig(a.board, priorities(a))),
    HCX_CALL(HCX_QoSGetConfig, HCX_QoSGetConfig(a.board, priorities(a))),
    HCX_CALL(HCX_QoSSetGlobalFlag, HCX_QoSSetGlobalFlag(a.board, 1)),
    HCX_CALL(HCX_QoSGetGlobalFlag, HCX_QoSGetGlobalFlag(a.board, a.record<uint32_t>())),
    HCX_CALL(HCX_GetQoSLinkSpeed, HCX_GetQoSLinkSpeed(a.board, a.record<uint16_t>())),
    HCX_CALL(order_fcp_priority_list, order_fcp_priority_list(priorities(a))),
};

}  // namespace

std::span<const Call> adapter() {
  return rows;
}

}  // namespace calls
