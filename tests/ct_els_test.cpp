// SPDX-License-Identifier: BSD-3-Clause
// CT, ELS and RNID: destinations, bytes on the wire in both orders, and how answers, rejects and failures reach the
// caller.
#include <errno.h>

#include <algorithm>

#include "transport_fixture.h"

namespace {

class CtElsTest : public TransportTest {
 protected:
  std::string node_of(uint32_t port_id) { return "/dev/bsg/" + m.host(3)->rport_by_port_id(port_id)->name(); }
};

TEST_F(CtElsTest, CtGoesToTheServerOfItsType) {
  m.bsg().on_ct([](sim::BsgCall &call) { call.data_in = "answer"; });
  const struct {
    uint8_t gs_type;
    uint32_t address;
  } rows[] = {{0xFA, 0xFFFFFA}, {0xFC, 0xFFFFFC}, {0xFD, 0xFFFFFD}, {0xF8, 0xFFFFFC}, {0x00, 0xFFFFFC}};
  for (const auto &row : rows) {
    sim::Rport *server = m.host(3)->rport_by_port_id(row.address);
    if (!server) server = &m.host(3)->add_rport({.port_id = row.address, .roles = "unknown"});
    uint8_t request[20] = {1, 0, 0, 0, row.gs_type, 2}, response[32];
    uint32_t size = sizeof response;
    m.clear_records();
    EXPECT_EQ(SendCTPassThru(0, request, sizeof request, response, &size), 0u);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(bytes_of(response, 6), "answer");
    EXPECT_TRUE(m.logged("SendCTPassThru - board 0 portid x00fffff"));
    EXPECT_TRUE(m.logged(" reqsize 20 respsize 6"));
    const sim::Request seen = only_request();
    EXPECT_EQ(seen.path, node_of(row.address));
    EXPECT_EQ(to_hex(seen.header), native("02000040 00000000000000000000000000000000",
                                          "40000002 00000000000000000000000000000000"));
    EXPECT_EQ(seen.data_out, bytes_of(request, sizeof request));
    EXPECT_EQ(seen.data_in_size, 32u);
    EXPECT_EQ(seen.timeout, 60000u);
  }
}

TEST_F(CtElsTest, CtFailures) {
  uint8_t request[20] = {}, response[32];
  uint32_t size = 32;
  m.clear_records();
  EXPECT_EQ(GetCTInfo(0, 0x010200, request, 20, response, 32), -EINTR);
  EXPECT_EQ(GetCTInfo(0, 0x1ffff00, request, 20, response, 32), -1);  // passes the mask, is no address
  EXPECT_EQ(SendCTPassThru(0, request, 4, response, &size), 1u);
  EXPECT_EQ(SendCTPassThru(0, nullptr, 20, response, &size), 1u);
  EXPECT_EQ(SendCTPassThru(0, request, 20, response, nullptr), 1u);
  EXPECT_TRUE(m.requests().empty());
  EXPECT_TRUE(m.logged("GetCTInfo - board 0 masked portid x00010200 should be x00ffff00"));
  EXPECT_TRUE(m.logged("SendCTPassThru - board 0 get ct info failed"));

  const struct {
    int error, result, expected;
  } rows[] = {{EIO, 0, -EIO}, {0, -EAGAIN, -EAGAIN}, {0, 0x70000, 0x70000}};
  for (const auto &row : rows) {
    m.bsg().on_ct([&](sim::BsgCall &call) {
      call.error = row.error;
      call.result = row.result;
    });
    EXPECT_EQ(GetCTInfo(0, 0xFFFFFC, request, 20, response, 32), row.expected);
    EXPECT_EQ(SendCTPassThru(0, request, 20, response, &size), 1u);
    EXPECT_EQ(size, 32u);
  }
  EXPECT_TRUE(m.logged("send_bsg_ct - reply result xfffffff5"));
  m.bsg().on_ct([](sim::BsgCall &call) { call.received = 0x7fffffff; });  // a length that cannot be
  EXPECT_EQ(GetCTInfo(0, 0xFFFFFC, request, 20, response, 32), 32);
}

TEST_F(CtElsTest, ManagementCommandsGoToAPortByName) {
  m.bsg().on_ct([](sim::BsgCall &call) { call.data_in = "ok"; });
  HBA_WWN name = wwn(other_name);
  uint8_t request[8] = {}, response[8];
  uint32_t count = 8;
  m.clear_records();
  EXPECT_EQ(SendMgmtCommand(0, &name, request, 8, response, &count, 0), 0u);
  EXPECT_EQ(count, 2u);
  const sim::Request seen = only_request();
  EXPECT_EQ(seen.path, node_of(0x010300));
  EXPECT_EQ(seen.timeout, 60000u);
  count = 8;
  EXPECT_EQ(SendMgmtCommand(0, &name, request, 8, response, &count, 2500), 0u);
  EXPECT_EQ(only_request().timeout, 2500u);
  name = wwn(0x1111);
  count = 8;
  EXPECT_EQ(SendMgmtCommand(0, &name, request, 8, response, &count, 0), 0u);
  EXPECT_EQ(static_cast<int>(count), -1);
  count = 8;
  EXPECT_EQ(SendMgmtCommand(0, nullptr, request, 8, response, &count, 0), 0u);
  EXPECT_EQ(static_cast<int>(count), -1);
  EXPECT_EQ(SendMgmtCommand(0, &name, request, 8, response, nullptr, 0), 0u);
}

TEST_F(CtElsTest, ElsByAddressAndByName) {
  m.bsg().on_els([](sim::BsgCall &call) { call.data_in = std::string("\x02\0\0\0data", 8); });
  uint8_t request[] = {0x10, 0, 0, 0, 'h', 'i'}, response[16] = {};
  uint32_t size = sizeof response;
  DestID by_address = {1, 0x010203, wwn(0)}, by_name = {0, 0, wwn(other_name)};
  m.clear_records();
  EXPECT_EQ(HCX_SendELSCmd(0, &by_address, request, sizeof request, response, &size), 0u);
  EXPECT_EQ(size, 16u);  // as it was
  EXPECT_EQ(bytes_of(response, 8), std::string("\x02\0\0\0data", 8));
  sim::Request seen = only_request();
  EXPECT_EQ(seen.path, node_of(0x010203));
  EXPECT_EQ(to_hex(seen.header),
            native("01000040 10000000000000000000000000000000", "40000001 10000000000000000000000000000000"));
  EXPECT_EQ(seen.data_out, bytes_of(request, sizeof request));
  EXPECT_EQ(seen.timeout, 60000u);
  EXPECT_EQ(send_bsg_els(0, &by_name, request, sizeof request, response, &size), 0);
  EXPECT_EQ(only_request().path, node_of(0x010300));
  by_name.wwn = wwn(0x1111);
  EXPECT_EQ(send_bsg_els(0, &by_name, request, sizeof request, response, &size), -1);
  EXPECT_EQ(send_bsg_els(0, &by_address, request, 0, response, &size), -1);
  EXPECT_EQ(send_bsg_els(0, &by_address, request, sizeof request, nullptr, &size), -1);
  EXPECT_EQ(send_bsg_els(0, nullptr, request, sizeof request, response, &size), -1);
  EXPECT_TRUE(m.requests().empty());
}

TEST_F(CtElsTest, RejectsAreRecords) {
  m.bsg().on_els([](sim::BsgCall &call) {
    call.reply_word(1);
    call.reply_data += std::string("\x0b\x03\x2a\x77", 4);
  });
  uint8_t request[4] = {0x78}, response[16];
  DestID dest = {1, 0x010203, wwn(0)};
  for (const uint32_t room : {16u, 8u, 5u, 0u}) {
    memset(response, 0xEE, sizeof response);
    uint32_t size = room;
    EXPECT_EQ(send_bsg_els(0, &dest, request, 4, response, &size), 0);
    const uint32_t copied = std::min(room, 8u);
    EXPECT_EQ(size, copied);
    EXPECT_EQ(to_hex(bytes_of(response, copied)), std::string("010000000b032a77").substr(0, 2 * copied));
    EXPECT_EQ(response[copied], 0xEE);
  }
  EXPECT_TRUE(m.logged("send_bsg_els - reply result FC_CTELS_STATUS_REJECT"));

  HBA_WWN name = wwn(target_name);
  uint32_t size = sizeof response;
  EXPECT_EQ(SendRNID(0, &name, 1, response, &size), 1u);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(to_hex(bytes_of(response, 8)), "010000000b032a77");
}

TEST_F(CtElsTest, RnidAsksForGeneralTopology) {
  m.bsg().on_els(
      [](sim::BsgCall &call) { call.data_in = std::string("\x02\0\0\0\xdf", 5) + std::string(71, 'n'); });
  HBA_WWN name = wwn(0x2000000000a1b2c3);
  uint8_t response[80];
  uint32_t size = sizeof response;
  m.clear_records();
  EXPECT_EQ(SendRNID(0, &name, 0, response, &size), 0u);
  EXPECT_EQ(size, 76u);
  const sim::Request seen = only_request();
  EXPECT_EQ(seen.path, node_of(0x010203));
  EXPECT_EQ(to_hex(seen.data_out), "78000000df000000");
  EXPECT_EQ(seen.command, 0x78u);
  EXPECT_EQ(SendRNID(0, &name, 1, response, &size), 1u);  // a node name is no port name
  expect_told(SendRNID(0, &name, 2, response, &size), 1, "SendRNID - board 0 wwntype 2 not node 0 or port 1");
  EXPECT_EQ(SendRNID(0, nullptr, 0, response, &size), 1u);
  EXPECT_EQ(SendRNID(0, &name, 0, response, nullptr), 1u);
  EXPECT_TRUE(m.requests().empty());
}

TEST_F(CtElsTest, OwnIdentificationKeepsTheCallersFields) {
  HBA_MGMTINFO info;
  memset(&info, 0xEE, sizeof info);
  EXPECT_EQ(GetRNIDMgmtInfo(0, &info), 0u);
  EXPECT_EQ(number(info.wwn), 0x2000000012345601u);
  EXPECT_EQ(info.unittype, 7u);
  EXPECT_EQ(info.PortId, 0x010200u);
  EXPECT_EQ(info.NumberOfAttachedNodes, 0u);
  EXPECT_EQ(info.TopologyDiscoveryFlags, 0u);
  EXPECT_EQ(info.IPVersion, 0xEEEEu);
  EXPECT_EQ(to_hex(bytes_of(info.IPAddress, 16)), "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee");
  expect_told(GetRNIDMgmtInfo(9, &info), 1, "GetRNIDMgmtInfo - no host on board 9");
  EXPECT_EQ(GetRNIDMgmtInfo(0, nullptr), 1u);
  EXPECT_EQ(SetRNIDMgmtInfo(0, nullptr), 0u);
}

}  // namespace
