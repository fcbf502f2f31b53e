// SPDX-License-Identifier: BSD-3-Clause
// Exported calls that decode what the driver, the adapter or a target answered, each with buffers on the heap that
// are exactly as long as promised, so that the sanitizers see one byte too many, read or written.
#include <memory>

#include "inventory.h"

namespace {

// A caller's buffer: `size` is what the call is told, and at most what is there.
struct Buffer {
  explicit Buffer(FuzzedDataProvider &input, size_t most = 5000)
      : size(static_cast<uint32_t>(input.ConsumeIntegralInRange<size_t>(0, most))),
        bytes(new uint8_t[size]()) {
    input.ConsumeData(bytes.get(), size);
  }
  uint8_t *get() const { return bytes.get(); }
  // After a call: it must not claim more than there is.
  void check(const char *call, uint32_t said) const {
    if (said > size) fuzz::fault("claims more than there is room for", call);
  }
  uint32_t size;
  std::unique_ptr<uint8_t[]> bytes;
};

template <class Record>
std::unique_ptr<Record> record() {
  return std::make_unique<Record>();
}

// A record with its number of entries in front and room for so many.
template <class List, class Entry>
struct Entries {
  explicit Entries(FuzzedDataProvider &input) : count(input.ConsumeIntegralInRange<uint32_t>(1, 4)) {
    block.reset(static_cast<List *>(calloc(1, sizeof(List) + (count - 1) * sizeof(Entry))));
    block->NumberOfEntries = count;
  }
  uint32_t count;
  std::unique_ptr<List, hcx::FreeDeleter> block;
};

// The same for lists whose count is called numberOfEntries.
template <class List, class Entry>
struct Counted {
  explicit Counted(FuzzedDataProvider &input) {
    const auto count = input.ConsumeIntegralInRange<uint32_t>(1, 4);
    block.reset(static_cast<List *>(calloc(1, sizeof(List) + (count - 1) * sizeof(Entry))));
    block->numberOfEntries = count;
  }
  std::unique_ptr<List, hcx::FreeDeleter> block;
};

struct Call {
  FuzzedDataProvider &input;
  uint32_t board;
  HBA_WWN wwpn;
  uint64_t lun;
};

using Invoke = void (*)(Call &);

const Invoke calls[] = {
    // Requests to the driver
    [](Call &) {
      uint32_t major = 0, minor = 0;
      send_bsg_get_mgmt_rev(&major, &minor);
      GetMgmtRev(&major, &minor);
    },
    [](Call &c) {
      Buffer in(c.input), out(c.input);
      uint32_t said = out.size;
      SendCTPassThru(c.board, in.get(), in.size, out.get(), &said);
      out.check("SendCTPassThru", said);
    },
    [](Call &c) {
      Buffer in(c.input), out(c.input);
      uint32_t said = out.size;
      SendMgmtCommand(c.board, &c.wwpn, in.get(), in.size, out.get(), &said, 10);
    },
    [](Call &c) {
      Buffer in(c.input), out(c.input);
      GetCTInfo(c.board, c.input.ConsumeIntegral<uint32_t>(), in.get(), in.size, out.get(), out.size);
    },
    [](Call &c) {
      Buffer in(c.input), out(c.input);
      uint32_t said = out.size;
      DestID to = {c.input.ConsumeIntegralInRange<uint32_t>(0, 2), c.input.ConsumeIntegral<uint32_t>(),
                   c.wwpn};
      HCX_SendELSCmd(c.board, &to, in.get(), in.size, out.get(), &said);
      out.check("HCX_SendELSCmd", said);
    },
    [](Call &c) {
      Buffer out(c.input);
      uint32_t said = out.size;
      SendRNID(c.board, &c.wwpn, c.input.ConsumeIntegralInRange<uint32_t>(0, 2), out.get(), &said);
      out.check("SendRNID", said);
    },
    [](Call &c) {
      auto info = record<HBA_MGMTINFO>();
      GetRNIDMgmtInfo(c.board, info.get());
      SetRNIDMgmtInfo(c.board, info.get());
    },
    [](Call &c) {
      Buffer out(c.input);
      uint32_t immediate = 0, type = 0;
      send_bsg_get_event(c.board, 1, 2, out.get(), out.size, &immediate, &type);
    },
    [](Call &c) {
      Buffer command(c.input), response(c.input);
      uint32_t said = response.size, xri = 0;
      send_bsg_tibra_command(c.board, command.get(), command.size, response.get(), &said, &xri,
                             c.input.ConsumeIntegralInRange(0, 3));
    },
    [](Call &c) {
      Buffer out(c.input), in(c.input, out.size);
      const uint32_t size = std::min(in.size, out.size);
      send_bsg_test_loopback(c.board, size, out.get(), in.get());
    },
    // The mailbox
    [](Call &c) {
      auto mb = record<MAILBOX_t>();
      c.input.ConsumeData(mb.get(), sizeof *mb);
      HCX_IssueMboxWithRetryV2(c.board, mb.get(), c.input.ConsumeIntegralInRange<uint32_t>(0, 64), 2, 1);
    },
    [](Call &c) {
      auto mb = record<MAILBOX_t>();
      c.input.ConsumeData(mb.get(), sizeof *mb);
      IssueMbox(c.board, mb.get(), c.input.ConsumeIntegralInRange<uint32_t>(0, 256),
                c.input.ConsumeIntegralInRange<uint32_t>(0, 256));
    },
    [](Call &c) {
      auto mb = record<MAILBOX_t>();
      readrev(c.board, mb.get());
    },
    // Flash regions, FCoE, priorities
    [](Call &c) {
      Buffer out(c.input);
      uint32_t said = out.size;
      uint16_t status = 0;
      getRegionData(c.board, 2, 23, c.input.ConsumeIntegral<uint32_t>(), out.get(), &said, &status, 0);
      out.check("getRegionData", said);
    },
    [](Call &c) {
      Buffer data(c.input, 2100);
      uint32_t said = data.size;
      int32_t info = 0;
      setRegionData(c.board, c.input.ConsumeBool() ? 2 : 4, 23, c.input.ConsumeIntegral<uint32_t>(), 0,
                    data.get(), &said, &info);
      HCX_IssueUpdateCfgMBox(c.board, 2, 23, data.get(), data.size, &info);
    },
    [](Call &c) {
      uint16_t setting = 0;
      HCX_SetPersistLinkDown(c.board, 1);
      HCX_GetPersistLinkDown(c.board, &setting);
    },
    [](Call &c) {
      auto list = record<HCX_FCoEFCFList>();
      list->version = list->numberOfEntries = 1;
      HCX_FCoEGetFCFList(c.board, list.get());
    },
    [](Call &c) {
      auto table = record<HCX_QoSConfig>();
      table->numberOfEntries = 1;
      HCX_QoSGetConfig(c.board, table.get());
      uint32_t flag = 0;
      HCX_QoSGetGlobalFlag(c.board, &flag);
      uint16_t speed = 0;
      HCX_GetQoSLinkSpeed(c.board, &speed);
    },
    // Attributes and statistics
    [](Call &c) {
      auto attributes = record<HBA_ADAPTERATTRIBUTES>();
      GetAdapterAttributes(c.board, attributes.get());
    },
    [](Call &c) {
      auto attributes = record<HBA_PORTATTRIBUTES>();
      GetAdapterPortAttributes(c.board, 0, attributes.get());
      GetDiscoveredPortAttributes(c.board, 0, c.input.ConsumeIntegralInRange<uint32_t>(0, 3),
                                  attributes.get());
      GetPortAttributesByWWN(c.board, c.wwpn, attributes.get());
    },
    [](Call &c) {
      auto statistics = record<HBA_PORTSTATISTICS>();
      GetPortStatistics(c.board, 0, statistics.get());
      ResetStatistics(c.board, 0);
      GetPortStatistics(c.board, 0, statistics.get());
    },
    [](Call &c) {
      Entries<HBA_FCPTARGETMAPPING, HBA_FCPSCSIENTRY> list(c.input);
      GetFcpTargetMapping(c.board, list.block.get());
    },
    [](Call &c) {
      Entries<HBA_FCPTARGETMAPPINGV2, HBA_FCPSCSIENTRYV2> list(c.input);
      HCX_GetFcpTargetMappingV2(c.board, c.wwpn, list.block.get());
    },
    [](Call &c) {
      Entries<HBA_BIND_LIST, HBA_BIND_ENTRY> list(c.input);
      GetFcpBindList(c.board, list.block.get());
    },
    // Queries
    [](Call &c) {
      auto info = record<HCXDrvInfo>();
      HCX_GetDrvInfo(c.board, info.get());
      linkDownUser(c.board);
    },
    [](Call &c) {
      auto info = record<LinkInfo>();
      HCX_GetLinkInfo(c.board, info.get());
    },
    [](Call &c) {
      auto vpd = record<Vpd>();
      GetVPDInfo(c.board, vpd.get());
    },
    [](Call &c) {
      Buffer out(c.input, 300);
      uint32_t said = out.size;
      HCX_GetDriverDumpRegion(c.board, c.input.ConsumeIntegralInRange<uint32_t>(0, 8), out.get(), &said);
      out.check("HCX_GetDriverDumpRegion", said);
    },
    // Virtual ports
    [](Call &c) {
      Counted<HCX_VPEntryList, HCX_VPEntry> list(c.input);
      HCX_VPGetList(c.board, list.block.get());
    },
    [](Call &c) {
      Counted<HCX_GetNodeInfo, NodeInfo> list(c.input);
      HCX_GetAllNodeInfoByWWN(c.board, &c.wwpn, list.block.get());
    },
    [](Call &c) {
      auto attrib = record<HCX_VPAttrib>();
      attrib->ver = HCX_VPATTRIB_VERSION;
      HCX_VPGetAttrib(c.board, &c.wwpn, attrib.get());
      HCX_VPDelete(c.board, &c.wwpn, 0);
    },
    [](Call &c) {
      auto attrib = record<HCX_VPAttrib>();
      c.input.ConsumeData(attrib.get(), sizeof *attrib);
      attrib->ver = HCX_VPATTRIB_VERSION;
      std::string name = c.input.ConsumeRandomLengthString(80);
      HCX_VPCreate(c.board, name.data(), attrib.get());
    },
    [](Call &) {
      auto attrib = record<HCX_VPAttrib>();
      char dir[] = "/sys/class/scsi_host/host5/";
      get_vport_name(attrib.get(), dir);
    },
    // SCSI
    [](Call &c) {
      Buffer out(c.input), sense(c.input, 300);
      uint32_t said = out.size, sensed = sense.size;
      SendScsiInquiry(c.board, &c.wwpn, c.lun, c.input.ConsumeBool(), c.input.ConsumeIntegral<uint8_t>(),
                      out.get(), &said, sense.get(), &sensed);
      out.check("SendScsiInquiry", said);
      sense.check("SendScsiInquiry", sensed);
    },
    [](Call &c) {
      Buffer out(c.input), sense(c.input, 300);
      uint32_t said = out.size, sensed = sense.size;
      SendReportLUNs(c.board, &c.wwpn, out.get(), &said, sense.get(), &sensed);
      out.check("SendReportLUNs", said);
      sense.check("SendReportLUNs", sensed);
    },
    [](Call &c) {
      Buffer out(c.input), sense(c.input, 300);
      uint32_t said = out.size, sensed = sense.size;
      SendReadCapacity(c.board, &c.wwpn, c.lun, out.get(), &said, sense.get(), &sensed);
      SendScsiRead(c.board, &c.wwpn, c.lun, 0, out.get(), &said, sense.get(), &sensed);
      SendScsiWrite(c.board, &c.wwpn, c.lun, 0, out.get(), &said, sense.get(), &sensed);
    },
    [](Call &c) {
      Buffer command(c.input, 64), data(c.input), response(c.input, 300);
      uint32_t said = data.size, responded = response.size;
      SendFcpCmd(c.board, &c.wwpn, command.get(), command.size, data.get(), &said, response.get(),
                 &responded);
      data.check("SendFcpCmd", said);
      response.check("SendFcpCmd", responded);
    },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  sysfs_ver = LK2_6_12;
  {
    const Invoke call = input.PickValueInArray(calls);
    fuzz::Inventory inventory;
    Call made = {input, 0, {}, 0};
    made.board = input.ConsumeIntegralInRange<uint32_t>(0, 2);
    made.lun = input.ConsumeIntegralInRange<uint64_t>(0, 3);
    input.ConsumeData(&made.wwpn, sizeof made.wwpn);
    // Mostly a port that is there, with the name by which it is known.
    if (hcx_host_list && hcx_host_list->port_list && input.ConsumeBool())
      memcpy(made.wwpn.wwn, hcx_host_list->port_list->wwpn, sizeof made.wwpn.wwn);
    call(made);
  }
  machine.check_nothing_left();
  return 0;
}
