// SPDX-License-Identifier: BSD-3-Clause
// The vendor library of the HBA API wrapper, through the tables that it registers: handles, what is refused, and what
// it makes of the library's results.
#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "board_fixture.h"
#include "hba_vendor.h"

namespace {

constexpr uint64_t kPort = 0x10000000c9a1b2c3, kOther = 0x10000000c9a1b2c4, kNode = 0x20000000c9a1b2c3;
constexpr uint64_t kTarget = 0x50060160aabb0001;

class Vendor : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    sim::Host &host = m.add_host({.number = 3, .wwpn = kPort, .wwnn = kNode});
    board = &host;
    host.set_scsi("modelname", "QF16002");
    sim::Rport &target = host.add_rport({.wwpn = kTarget});
    target.add_lun({.lun = 0});
    target.add_lun({.lun = 5});
    m.add_host({.number = 4, .wwpn = kOther, .wwnn = kNode});  // one node, two ports
    ASSERT_EQ(HBA_RegisterLibraryV2(&v2), 0u);
    ASSERT_EQ(v1.LoadLibraryHandler(), 0u);
    handle = open();
    ASSERT_NE(handle, 0u);
  }
  void TearDown() override {
    v1.FreeLibraryHandler();
    BoardTest::TearDown();
  }
  HBA_HANDLE open() {
    char name[256];
    return v1.GetAdapterNameHandler(0, name) == 0 ? v1.OpenAdapterHandler(name) : 0;
  }
  static uint64_t lun_image(uint8_t number) {
    const uint8_t bytes[8] = {0, number};
    uint64_t image;
    memcpy(&image, bytes, sizeof image);
    return image;
  }

  HBA_ENTRYPOINTSV2 v2 = {};
  HBA_ENTRYPOINTS &v1 = v2.v1;
  HBA_HANDLE handle = 0;
  sim::Host *board = nullptr;
};

TEST_F(Vendor, TablesAgreeAndRefuseNull) {
  HBA_ENTRYPOINTS first = {};
  ASSERT_EQ(HBA_RegisterLibrary(&first), 0u);
  EXPECT_EQ(bytes_of(&first, sizeof first), bytes_of(&v1, sizeof v1));
  EXPECT_EQ(HBA_RegisterLibrary(nullptr), 4u);
  EXPECT_EQ(HBA_RegisterLibraryV2(nullptr), 4u);
  EXPECT_EQ(v1.GetVersionHandler(), 2u);
  HBA_LIBRARYATTRIBUTES library;
  EXPECT_EQ(v2.GetVendorLibraryAttributesHandler(&library), 2u);
  EXPECT_STREQ(library.VVersion, "4.2.17");
}

TEST_F(Vendor, AdaptersByNameAndByWwn) {
  char name[256] = "?";
  EXPECT_EQ(v1.GetNumberOfAdaptersHandler(), 2u);
  EXPECT_EQ(v1.GetAdapterNameHandler(0, name), 0u);
  EXPECT_STREQ(name, "vosk-QF16002-0");
  EXPECT_EQ(v1.GetAdapterNameHandler(2, name), 6u);
  EXPECT_EQ(v1.GetAdapterNameHandler(0, nullptr), 4u);
  EXPECT_EQ(v1.OpenAdapterHandler(name + 1), 0u);
  EXPECT_EQ(v1.OpenAdapterHandler(nullptr), 0u);
  const struct {
    uint64_t name;
    HBA_STATUS status;
    HBA_HANDLE opened;
  } rows[] = {{kPort, 0, 1}, {kOther, 0, 2}, {kNode, 16, 0}, {kTarget, 5, 0}};
  for (const auto &row : rows) {
    HBA_HANDLE opened = 77;
    EXPECT_EQ(v2.OpenAdapterByWWNHandler(&opened, wwn(row.name)), row.status) << std::hex << row.name;
    EXPECT_EQ(opened, row.opened) << std::hex << row.name;
  }
  EXPECT_EQ(v2.OpenAdapterByWWNHandler(nullptr, wwn(kPort)), 4u);
}

// Every call on a handle that was never given out, was closed, or whose library was unloaded.
TEST_F(Vendor, HandlesAreChecked) {
  std::array<uint64_t, 512> room = {};
  void *any = room.data();
  HBA_UINT32 size = 64;
  HBA_UINT8 status = 0;
  const HBA_WWN name = wwn(kPort);
  const std::function<HBA_STATUS(HBA_HANDLE)> calls[] = {
      [&](HBA_HANDLE h) {
        return v1.GetAdapterAttributesHandler(h, static_cast<HBA_ADAPTERATTRIBUTES *>(any));
      },
      [&](HBA_HANDLE h) {
        return v1.GetAdapterPortAttributesHandler(h, 0, static_cast<HBA_PORTATTRIBUTES *>(any));
      },
      [&](HBA_HANDLE h) {
        return v1.GetDiscoveredPortAttributesHandler(h, 0, 0, static_cast<HBA_PORTATTRIBUTES *>(any));
      },
      [&](HBA_HANDLE h) {
        return v1.GetPortAttributesByWWNHandler(h, name, static_cast<HBA_PORTATTRIBUTES *>(any));
      },
      [&](HBA_HANDLE h) { return v1.GetPortStatisticsHandler(h, 0, static_cast<HBA_PORTSTATISTICS *>(any)); },
      [&](HBA_HANDLE h) { return v1.SendCTPassThruHandler(h, any, 20, any, 64); },
      [&](HBA_HANDLE h) {
        return v1.GetFcpTargetMappingHandler(h, static_cast<HBA_FCPTARGETMAPPING *>(any));
      },
      [&](HBA_HANDLE h) { return v1.GetFcpPersistentBindingHandler(h, static_cast<HBA_FCPBINDING *>(any)); },
      [&](HBA_HANDLE h) { return v1.GetEventBufferHandler(h, static_cast<HBA_EVENTINFO *>(any), &size); },
      [&](HBA_HANDLE h) { return v1.GetRNIDMgmtInfoHandler(h, static_cast<HBA_MGMTINFO *>(any)); },
      [&](HBA_HANDLE h) { return v1.SendRNIDHandler(h, name, 1, any, &size); },
      [&](HBA_HANDLE h) { return v1.ScsiInquiryHandler(h, wwn(kTarget), 0, 0, 0, any, 36, any, 0); },
      [&](HBA_HANDLE h) { return v1.ReportLUNsHandler(h, wwn(kTarget), any, 64, any, 0); },
      [&](HBA_HANDLE h) { return v1.ReadCapacityHandler(h, wwn(kTarget), 0, any, 8, any, 0); },
      [&](HBA_HANDLE h) {
        return v2.GetFcpTargetMappingV2Handler(h, name, static_cast<HBA_FCPTARGETMAPPINGV2 *>(any));
      },
      [&](HBA_HANDLE h) { return v2.SendCTPassThruV2Handler(h, name, any, 20, any, &size); },
      [&](HBA_HANDLE h) {
        return v2.GetPersistentBindingV2Handler(h, name, static_cast<HBA_FCPBINDING2 *>(any));
      },
      [&](HBA_HANDLE h) { return v2.SendRNIDV2Handler(h, name, wwn(kTarget), 0, 0xdf, any, &size); },
      [&](HBA_HANDLE h) {
        return v2.ScsiInquiryV2Handler(h, name, wwn(kTarget), 0, 0, 0, any, &size, &status, any, nullptr);
      },
      [&](HBA_HANDLE h) {
        return v2.ScsiReportLUNsV2Handler(h, name, wwn(kTarget), any, &size, &status, any, nullptr);
      },
      [&](HBA_HANDLE h) {
        return v2.ScsiReadCapacityV2Handler(h, name, wwn(kTarget), 0, any, &size, &status, any, nullptr);
      },
      [&](HBA_HANDLE h) {
        return v2.GetFC4StatisticsHandler(h, name, 8, static_cast<HBA_FC4STATISTICS *>(any));
      },
  };
  auto refused = [&](HBA_HANDLE wrong) {
    for (size_t i = 0; i < std::size(calls); ++i)
      EXPECT_EQ(calls[i](wrong), 3u) << "call " << i << ", handle " << wrong;
  };
  for (HBA_HANDLE wrong : {0u, 2u, 3u, 0xffffffffu})
    refused(wrong);
  ASSERT_EQ(open(), handle);  // opened twice: good until it was closed twice
  v1.CloseAdapterHandler(handle);
  EXPECT_EQ(calls[0](handle), 0u);
  v1.CloseAdapterHandler(handle);
  v1.CloseAdapterHandler(handle);
  refused(handle);
  ASSERT_EQ(open(), handle);
  EXPECT_EQ(v1.FreeLibraryHandler(), 0u);
  EXPECT_EQ(v1.GetNumberOfAdaptersHandler(), 0u);
  refused(handle);
  EXPECT_EQ(v1.FreeLibraryHandler(), 0u);
  EXPECT_EQ(v1.LoadLibraryHandler(), 0u);
  EXPECT_EQ(v1.GetNumberOfAdaptersHandler(), 2u);
}

TEST_F(Vendor, PortsAreNamedAndCounted) {
  HBA_PORTATTRIBUTES port;
  ASSERT_EQ(v1.GetAdapterPortAttributesHandler(handle, 0, &port), 0u);
  EXPECT_STREQ(port.OSDeviceName, "/sys/class/scsi_host/host3");
  EXPECT_EQ(port.NumberofDiscoveredPorts, 1u);
  ASSERT_EQ(v1.GetPortAttributesByWWNHandler(handle, wwn(kPort), &port), 0u);
  EXPECT_STREQ(port.OSDeviceName, "/sys/class/scsi_host/host3");
  for (const bool by_name : {false, true}) {
    memset(&port, 0xee, sizeof port);
    ASSERT_EQ(by_name ? v1.GetPortAttributesByWWNHandler(handle, wwn(kTarget), &port)
                      : v1.GetDiscoveredPortAttributesHandler(handle, 0, 0, &port),
              0u);
    EXPECT_EQ(number(port.PortWWN), kTarget);
    EXPECT_EQ(bytes_of(port.OSDeviceName, 256), std::string(256, '\0'));
  }
  EXPECT_EQ(v1.GetAdapterPortAttributesHandler(handle, 1, &port), 6u);
  EXPECT_EQ(v1.GetDiscoveredPortAttributesHandler(handle, 1, 0, &port), 6u);
  EXPECT_EQ(v1.GetDiscoveredPortAttributesHandler(handle, 0, 1, &port), 6u);
  EXPECT_EQ(v1.GetPortAttributesByWWNHandler(handle, wwn(kOther), &port), 5u);
  EXPECT_EQ(v1.GetAdapterPortAttributesHandler(handle, 0, nullptr), 4u);
  EXPECT_EQ(v1.GetPortAttributesByWWNHandler(handle, wwn(kTarget), nullptr), 4u);
  HBA_PORTSTATISTICS counters;
  EXPECT_EQ(v1.GetPortStatisticsHandler(handle, 1, &counters), 6u);
  HBA_FC4STATISTICS fcp;
  EXPECT_EQ(v2.GetFC4StatisticsHandler(handle, wwn(kPort), 0x08, &fcp), 0u);
  EXPECT_EQ(v2.GetFC4StatisticsHandler(handle, wwn(kPort), 0x20, &fcp), 28u);
  EXPECT_EQ(v2.GetFC4StatisticsHandler(handle, wwn(kOther), 0x08, &fcp), 5u);
  HBA_MGMTINFO info;
  memset(&info, 0xee, sizeof info);
  EXPECT_EQ(v1.GetRNIDMgmtInfoHandler(handle, &info), 0u);
  EXPECT_EQ(info.reserved, 0u);
  EXPECT_EQ(number(info.wwn), kNode);
}

TEST_F(Vendor, ScsiCommandsBringStatusAndSense) {
  uint8_t data[64], sense[18];
  HBA_UINT8 status;
  HBA_UINT32 size, sense_size;
  auto inquiry = [&](uint64_t target, uint64_t lun, uint8_t byte1, uint8_t page, HBA_UINT32 room,
                     uint64_t port = kPort) {
    memset(data, 0xee, sizeof data);
    size = room;
    sense_size = sizeof sense;
    status = 0xee;
    return v2.ScsiInquiryV2Handler(handle, wwn(port), wwn(target), static_cast<HBA_UINT64>(lun), byte1, page,
                                   data, &size, &status, sense, &sense_size);
  };
  ASSERT_EQ(inquiry(kTarget, lun_image(5), 0, 0, 36), 0u);
  EXPECT_EQ(size, 36u);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(sense_size, 0u);
  EXPECT_EQ(data[0], 0u);     // a disk
  EXPECT_EQ(data[36], 0xee);  // nothing beyond the room
  EXPECT_EQ(inquiry(kTarget, lun_image(5), 1, 0xee, 36), 9u) << "no such page: CHECK CONDITION";
  EXPECT_EQ(status, 2u);
  ASSERT_GE(sense_size, 14u);
  EXPECT_EQ(sense[2] & 0x0f, 5) << "ILLEGAL REQUEST";
  sense_size = 0;
  EXPECT_EQ(inquiry(kTarget, lun_image(7), 0, 0, 36), 14u);
  EXPECT_EQ(inquiry(kTarget + 7, lun_image(5), 0, 0, 36), 5u);
  EXPECT_EQ(inquiry(kTarget, lun_image(5), 0, 0, 36, kOther), 5u);
  EXPECT_EQ(inquiry(kTarget, lun_image(5), 2, 0, 36), 2u) << "a bit that is gone";
  EXPECT_EQ(inquiry(kTarget, lun_image(5), 0, 0, 0), 4u);

  uint8_t capacity[8];
  EXPECT_EQ(v1.ReadCapacityHandler(handle, wwn(kTarget), static_cast<HBA_UINT64>(lun_image(5)), capacity, 8,
                                   sense, 18),
            0u);
  EXPECT_EQ(bytes_of(capacity + 4, 4), std::string("\0\0\2\0", 4));  // blocks of 512
  EXPECT_EQ(v1.ReadCapacityHandler(handle, wwn(kTarget), 0, capacity, 7, sense, 18), 7u);
  EXPECT_EQ(v1.ScsiInquiryHandler(handle, wwn(kTarget), 0, 0, 0x100, data, 36, sense, 18), 4u);
  EXPECT_EQ(v1.ScsiInquiryHandler(handle, wwn(kTarget), 0, 0, 0, nullptr, 36, sense, 18), 4u);
  EXPECT_EQ(v1.ScsiInquiryHandler(handle, wwn(kTarget), 0, 0, 0, data, 36, nullptr, 18), 4u);
  uint8_t luns[24];
  ASSERT_EQ(v1.ReportLUNsHandler(handle, wwn(kTarget), luns, sizeof luns, sense, 18), 0u);
  EXPECT_EQ(bytes_of(luns, 24), std::string("\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\5\0\0\0\0\0\0", 24));
}

// What callbacks were told, in order.
struct Told {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> lines;

  static void hear(void *data, HBA_WWN port, HBA_UINT32 event, HBA_UINT32 page) {
    char line[80];
    snprintf(line, sizeof line, "%s %02x %x %06x", static_cast<const char *>(data), port.wwn[7], event, page);
    const std::lock_guard guard(told.mutex);
    told.lines.emplace_back(line);
    told.changed.notify_all();
  }
  std::vector<std::string> wait(size_t count) {
    std::unique_lock guard(mutex);
    changed.wait_for(guard, std::chrono::seconds(20), [&] { return lines.size() >= count; });
    return std::exchange(lines, {});
  }
  static Told told;
};
Told Told::told;

TEST_F(Vendor, CallbacksOfAPort) {
  using Lines = std::vector<std::string>;
  char a[] = "a";
  char b[] = "b";
  HBA_CALLBACKHANDLE one = nullptr;
  HBA_CALLBACKHANDLE two = nullptr;
  auto &listen = v2.RegisterForAdapterPortEventsHandler;
  EXPECT_EQ(listen(Told::hear, a, handle + 7, wwn(kPort), &one), 3u);
  EXPECT_EQ(listen(Told::hear, a, handle, wwn(kOther), &one), 5u);
  EXPECT_EQ(listen(nullptr, a, handle, wwn(kPort), &one), 4u);
  EXPECT_EQ(listen(Told::hear, a, handle, wwn(kPort), nullptr), 4u);
  ASSERT_EQ(listen(Told::hear, a, handle, wwn(kPort), &one), 0u);
  ASSERT_EQ(listen(Told::hear, b, handle, wwn(kPort), &two), 0u);
  m.events().link_down(*board);
  EXPECT_EQ(Told::told.wait(2), (Lines{"a c3 201 000000", "b c3 201 000000"}));
  EXPECT_EQ(v2.RemoveCallbackHandler(one), 0u);
  EXPECT_EQ(v2.RemoveCallbackHandler(one), 3u);
  m.events().link_up(*board);
  m.events().rscn(*board, {0x010500, 0x010600});
  EXPECT_EQ(Told::told.wait(3), (Lines{"b c3 202 000000", "b c3 204 010500", "b c3 204 010600"}));
  // A board has room for eight listeners of libhcx: callbacks come and go without using them up.
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(v2.RemoveCallbackHandler(two), 0u);
    ASSERT_EQ(listen(Told::hear, b, handle, wwn(kPort), &two), 0u);
  }
  v1.FreeLibraryHandler();
  EXPECT_EQ(v2.RemoveCallbackHandler(two), 3u) << "unloading removes them";
}

}  // namespace
