// SPDX-License-Identifier: BSD-3-Clause
// BSG framing, nodes and vendor commands: the bytes of every request, what comes back, and what is left after
// failures.
#include <errno.h>
#include <linux/bsg.h>

#include <functional>
#include <vector>

#include "hcx_mmm_table.h"
#include "transport_fixture.h"

namespace {

class BsgTest : public TransportTest {};

void answer_nothing(sim::BsgCall &) {}

TEST_F(BsgTest, HeaderOfEveryRequest) {
  sg_io_v4 header;
  fc_bsg_request request;
  fc_bsg_reply reply;
  for (void *record : std::initializer_list<void *>{&header, &request, &reply})
    memset(record, 0xEE, 16);
  memset(&header, 0xEE, sizeof header);
  ASSERT_EQ(bsg_init_header(&header, &request, &reply, static_cast<int>(FC_BSG_HST_VENDOR), 7, 330000), 0);
  sg_io_v4 expected = {};
  expected.guard = 0x51;
  expected.subprotocol = 2;
  expected.request_len = 20;
  expected.request = reinterpret_cast<uintptr_t>(&request);
  expected.max_response_len = 16;
  expected.response = reinterpret_cast<uintptr_t>(&reply);
  expected.timeout = 330000;
  EXPECT_EQ(memcmp(&header, &expected, sizeof header), 0);
  EXPECT_EQ(bytes_of(&request, 20) + bytes_of(&reply, 16), std::string(36, '\0'));

  memset(&header, 0xEE, sizeof header);
  const std::string before = bytes_of(&header, sizeof header);
  for (const int command : {0, 11, 14})
    EXPECT_EQ(bsg_init_header(&header, &request, &reply, static_cast<int>(FC_BSG_HST_VENDOR), command, 1), 1);
  EXPECT_EQ(bsg_init_header(nullptr, &request, &reply, static_cast<int>(FC_BSG_HST_VENDOR), 7, 1), 1);
  EXPECT_EQ(bytes_of(&header, sizeof header), before);
}

// One vendor command: how to send it, and what the driver must see.
struct Sent {
  const char *name;
  std::function<int()> call;
  int result;
  const char *little, *big;  // the request
  const char *data_out_little, *data_out_big;
  uint32_t data_in_size;
  uint32_t timeout;
};

// Long: a table with a row for each command.
TEST_F(BsgTest, BytesOfEveryVendorCommand) {
  constexpr char vendor_le[] = "ff000080 5a1d000000000001", vendor_be[] = "800000ff 0100000000001d5a";
  for (const uint32_t command : {2u, 3u, 4u, 5u, 8u, 9u, 10u, 12u, 13u})
    m.bsg().on_vendor(command, answer_nothing);
  m.bsg().on_vendor(1, [](sim::BsgCall &call) { call.received = 24; });
  m.bsg().on_vendor(7, [](sim::BsgCall &call) { call.data_in = std::string(4096, 'r'); });

  uint8_t xmit[] = {0xa1, 0xa2, 0xa3}, rcv[3];
  uint8_t buffer[4096] = {1}, reply[4096];
  uint32_t one, two, size = 3, xri = 0xabcd;
  HCX_QoSConfig table = {1, {{{1, 2, 3, 4, 5, 6, 7, 8}, {}, {}, {}, 5, {}}}};
  HCX_QoSConfig room[2] = {{2, {}}, {}};
  const Sent table_of_commands[] = {
      {"set event",
       [&] {
         const int fd = map_board_to_bsg(0);
         const int rc = send_bsg_set_event(fd, 0xfa, 0x3039, 4);
         EXPECT_EQ(m.close(fd), 0);
         return rc;
       },
       24, "01000000 fa000000 39300000 04000000 00000000 00000000",
       "00000001 000000fa 00003039 00000004 00000000 00000000", "", "", 0, 60000},
      {"get event", [&] { return send_bsg_get_event(0, 4, 0x3039, rcv, 3, &one, &two); }, 0,
       "02000000 04000000 39300000 0000000000000000", "00000002 00000004 00003039 0000000000000000", "", "",
       3, 60000},
      {"management response", [&] { return send_bsg_mgmt_response(0, xmit, 3, 0x11223344); }, 0,
       "03000000 44332211 0000000000000000", "00000003 11223344 0000000000000000", "a1a2a3", "a1a2a3", 0,
       60000},
      {"set loopback", [&] { return send_bsg_config_loopback(0, 1, 10000); }, 0,
       "04000000 01000000 10270000 0000000000000000", "00000004 00000001 00002710 0000000000000000", "", "",
       0, 10000},
      {"run loopback", [&] { return send_bsg_test_loopback(0, 3, xmit, rcv); }, 0,
       "05000000 0000000000000000", "00000005 0000000000000000", "a1a2a3", "a1a2a3", 3, 60000},
      {"revision", [&] { return send_bsg_get_mgmt_rev(&one, &two); }, 0, "06000000 0000000000000000",
       "00000006 0000000000000000", "", "", 0, 60000},
      {"bridge command", [&] { return send_bsg_tibra_command(0, xmit, 3, rcv, &size, &xri, 0); }, 0,
       "08000000 cdab0000 0000000000000000", "00000008 0000abcd 0000000000000000", "a1a2a3", "a1a2a3", 3,
       60000},
      {"bridge data",
       [&] {
         size = 2;
         xri = 0x1234;
         return send_bsg_tibra_command(0, xmit, 3, rcv, &size, &xri, 1);
       },
       0, "09000000 34120000 0000000000000000", "00000009 00001234 0000000000000000", "a1a2a3", "a1a2a3", 2,
       60000},
      {"end loopback", [&] { return send_bsg_sli4_endloopback(0); }, 0,
       "0a000000 00000000 60ea0000 0000000000000000", "0000000a 00000000 0000ea60 0000000000000000", "", "",
       0, 60000},
      {"get priority", [&] { return send_bsg_get_fcp_priority(0, room); }, 0,
       "0c000000 02000000 0000000000000000", "0000000c 00000002 0000000000000000", "", "", 76, 60000},
      {"set priority", [&] { return send_bsg_set_fcp_priority(0, &table); }, 0,
       "0d000000 01000000 0000000000000000", "0000000d 00000001 0000000000000000",
       "01000000 0102030405060708 0000000000000000 0000000000000000 0000000000000000 05000000 00000000",
       "00000001 0102030405060708 0000000000000000 0000000000000000 0000000000000000 05000000 00000000", 0,
       60000},
      {"mailbox",
       [&] {
         hcx_host *host = lookup_hcx_host(0);
         const int rc =
             send_bsg_mbox_write_read_extended(host, buffer, reply, 5, 0x10, 0x20, 0x01020304, 2, 12345);
         pthread_rwlock_unlock(&host->rwlock);
         return rc;
       },
       4096, "07000000 05000000 10000000 20000000 04030201 02000000 0000000000000000",
       "00000007 00000005 00000010 00000020 01020304 00000002 0000000000000000", nullptr, nullptr, 4096,
       12345},
  };
  for (const Sent &row : table_of_commands) {
    SCOPED_TRACE(row.name);
    m.clear_records();
    EXPECT_EQ(row.call(), row.result);
    const sim::Request seen = only_request();
    EXPECT_EQ(seen.path, "/dev/bsg/fc_host3");
    EXPECT_EQ(to_hex(seen.header),
              native(vendor_le + std::string(row.little), vendor_be + std::string(row.big)));
    if (row.data_out_little) {
      EXPECT_EQ(to_hex(seen.data_out), native(row.data_out_little, row.data_out_big));
    }
    EXPECT_EQ(seen.data_in_size, row.data_in_size);
    EXPECT_EQ(seen.timeout, row.timeout);
    expect_nothing_left("after the command");
    if (row.result == 0) sweep_driver(seen.command, row.call, [](int rc) { return rc < 0; });
  }
}

TEST_F(BsgTest, AnswersReachTheCaller) {
  uint8_t buffer[4];
  uint32_t one = 0, two = 0, size = 4;
  m.bsg().on_vendor(2, [](sim::BsgCall &call) {
    call.reply_word(0x55);
    call.reply_word(0xfa);
    call.data_in = "abcdefgh";  // more than there is room for
    call.received = 8;
  });
  EXPECT_EQ(send_bsg_get_event(0, 1, 2, buffer, 4, &one, &two), 4);
  EXPECT_EQ(bytes_of(buffer, 4), "abcd");
  EXPECT_EQ(one, 0x55u);
  EXPECT_EQ(two, 0xfau);
  EXPECT_TRUE(m.logged("send_bsg_get_event - outsize 4 tag x00000055"));

  m.bsg().on_vendor(8, [](sim::BsgCall &call) {
    call.reply_word(0x77);
    call.data_in = "xy";
  });
  EXPECT_EQ(send_bsg_tibra_command(0, buffer, 4, buffer, &size, &one, 0), 0);
  EXPECT_EQ(size, 2u);
  EXPECT_EQ(one, 0x77u);
  EXPECT_TRUE(m.logged("send_bsg_tibra_command - xri x00000077"));

  m.driver_version(3, 7);
  EXPECT_EQ(send_bsg_get_mgmt_rev(&one, &two), 0);
  EXPECT_EQ(one, 3u);
  EXPECT_EQ(two, 7u);
}

// A child that waits for CT requests tells "nothing came" from "it does not work" by these results.
TEST_F(BsgTest, SetEventTellsNothingCameFromFailure) {
  const struct {
    int error, result;
    uint32_t received;
    int expected;
  } rows[] = {{0, 0, 16, 16},           {0, 0, 0, -EAGAIN},
              {EAGAIN, 0, 0, -EAGAIN},  {ETIMEDOUT, 0, 0, -EAGAIN},
              {0, -EAGAIN, 0, -EAGAIN}, {0, -ETIMEDOUT, 0, -EAGAIN},
              {ENODEV, 0, 0, -EIO},     {0, -EINVAL, 0, -EIO},
              {0, 0x70000, 0, -EIO}};
  const int fd = map_board_to_bsg(0);
  ASSERT_GT(fd, 2);
  for (const auto &row : rows) {
    m.bsg().on_vendor(1, [&](sim::BsgCall &call) {
      call.error = row.error;
      call.result = row.result;
      call.received = row.received;
    });
    EXPECT_EQ(send_bsg_set_event(fd, 0xfa, 1, 4), row.expected) << row.error << " " << row.result;
  }
  EXPECT_TRUE(m.logged("no reply payload length, try again"));
  m.close(fd);
}

// The driver's reason for refusing a response is in errno, wherever the kernel put it.
TEST_F(BsgTest, ManagementResponseLeavesTheReasonInErrno) {
  const struct {
    int error, result, expected;
    uint32_t mapped;
  } rows[] = {{ERANGE, 0, ERANGE, 255},  {0, -ERANGE, ERANGE, 255}, {ETIMEDOUT, 0, ETIMEDOUT, 250},
              {0, -EACCES, EACCES, 253}, {0, -ENODEV, ENODEV, 252}, {0, 0x70000, EIO, 252}};
  uint8_t data[1] = {};
  for (const auto &row : rows) {
    m.bsg().on_vendor(3, [&](sim::BsgCall &call) {
      call.error = row.error;
      call.result = row.result;
    });
    errno = ERANGE;  // stale
    EXPECT_EQ(send_bsg_mgmt_response(0, data, 1, 0), -EIO);
    EXPECT_EQ(errno, row.expected);
    EXPECT_EQ(SendMgmtResponse(0, data, 1, 0), row.mapped);
  }
  errno = ERANGE;
  EXPECT_EQ(SendMgmtResponse(9, data, 1, 0), 252u);
  m.bsg().on_vendor(3, answer_nothing);
  EXPECT_EQ(SendMgmtResponse(0, data, 1, 0), 0u);
}

TEST_F(BsgTest, MailboxTimeoutsByCommand) {
  m.bsg().on_vendor(7, [](sim::BsgCall &call) { call.data_in = std::string(256, '\0'); });
  hcx_host *host = lookup_hcx_host(0);
  ASSERT_NE(host, nullptr);
  uint8_t request[4096], reply[4096];
  std::vector<int> slow;
  for (int command = 0; command < 256; ++command) {
    memset(request, 0, sizeof request);
    request[2] = static_cast<uint8_t>(command);
    ASSERT_EQ(send_bsg_mbox_write_read(host, request, reply, 0, 0, 0), 256);
    const uint32_t timeout = only_request().timeout;
    if (timeout == 330000) slow.push_back(command);
    EXPECT_TRUE(timeout == 330000 || timeout == 60000);
  }
  EXPECT_EQ(slow, (std::vector<int>{0x03, 0x1b, 0x1c, 0x1d, 0x81, 0x98, 0x9c}));
  pthread_rwlock_unlock(&host->rwlock);
}

TEST_F(BsgTest, SwitchedOffCommandsOpenNothing) {
  m.driver_version(1, 0);
  ASSERT_EQ(get_vosk_management_version(), 1);
  m.clear_records();
  const uint64_t before = m.calls(sim::Verb::open);
  HCX_QoSConfig table = {};
  EXPECT_EQ(send_bsg_get_fcp_priority(0, &table), -EIO);
  EXPECT_EQ(send_bsg_set_fcp_priority(0, &table), -EIO);
  EXPECT_TRUE(m.requests().empty());
  EXPECT_EQ(m.calls(sim::Verb::open), before);
}

TEST_F(BsgTest, SwitchedOffNodeIsNeverDescriptorZero) {
  hcx::mmm_bsg_device_template[0].window.supported = 0;
  hcx::mmm_bsg_device_template[1].window.supported = 0;
  hcx_host *host = lookup_hcx_host(0);
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(map_host_to_bsg(host), 0);
  uint8_t buffer[4096] = {};
  const uint64_t ioctls = m.calls(sim::Verb::ioctl), closes = m.calls(sim::Verb::close);
  EXPECT_EQ(send_bsg_mbox_write_read(host, buffer, buffer, 0, 0, 0), -EIO);
  EXPECT_EQ(m.calls(sim::Verb::ioctl), ioctls);
  EXPECT_EQ(m.calls(sim::Verb::close), closes);
  pthread_rwlock_unlock(&host->rwlock);
  EXPECT_EQ(map_board_to_bsg(0), -1);
  EXPECT_EQ(map_did_to_bsg(0, 0x010203), -1);
  uint32_t one, two;
  EXPECT_EQ(send_bsg_get_mgmt_rev(&one, &two), -1);
}

TEST_F(BsgTest, RemotePortsAreFoundByTextOfTheirAttributes) {
  uint8_t name[8];
  hcx::wwn_store(name, target_name);
  m.clear_records();
  int fd = map_wwn_to_bsg(0, name);
  EXPECT_GT(fd, 2);
  m.close(fd);
  fd = map_did_to_bsg(0, 0x010203);
  EXPECT_GT(fd, 2);
  m.close(fd);

  EXPECT_EQ(map_wwn_to_bsg(1, name), -1);  // another host's
  EXPECT_TRUE(
      m.logged("map_rport_to_bsg - board 1 no match 0x1000000000a1b2c3 entry for filename port_name"));
  EXPECT_EQ(map_did_to_bsg(0, 0x1ffffff), -1);
  EXPECT_EQ(map_did_to_bsg(0, -1), -1);
  expect_told(map_wwn_to_bsg(7, name), -1, "map_rport_to_bsg - invalid board 7");
  EXPECT_TRUE(m.logged("lookup_hcx_host - board 7 : no host"));
  sim::Rport *target = m.host(3)->rport_by_wwpn(target_name);
  ASSERT_NE(target, nullptr);
  target->set("port_name", "0x1000000000A1B2C3");
  EXPECT_EQ(map_wwn_to_bsg(0, name), -1);

  uint32_t did = 0;
  hcx::wwn_store(name, 0x20060160000000aa);
  EXPECT_EQ(map_wwn_to_port_id(0, 0, name, &did), 0);
  EXPECT_EQ(did, 0x010300u);
  EXPECT_EQ(map_wwn_to_port_id(0, 1, name, &did), -1);
  EXPECT_EQ(map_wwn_to_port_id(0, 2, name, &did), -1);
}

TEST_F(BsgTest, FailuresOfNodesAreNamed) {
  m.fail({.path = "/dev/bsg/", .error = EACCES});
  EXPECT_EQ(map_board_to_bsg(0), -EACCES);
  EXPECT_TRUE(m.logged("map_board_to_bsg - open failed: board 0 pathname /dev/bsg/fc_host3"));
  m.clear_faults();
  m.fail({.path = "/dev/bsg/", .error = ENXIO});
  EXPECT_EQ(map_did_to_bsg(0, 0x010203), -ENXIO);
  EXPECT_TRUE(m.logged("map_rport_to_bsg - open failed: board 0 path /dev/bsg/rport-3:0-"));
  m.clear_faults();
  m.vfs().remove("/sys/class/fc_remote_ports");
  EXPECT_EQ(map_did_to_bsg(0, 0x010203), -1);
  EXPECT_TRUE(m.logged("map_rport_to_bsg - failed to open dir /sys/class/fc_remote_ports"));
}

TEST_F(BsgTest, RefusesWhatItWasNotGiven) {
  uint8_t a[4] = {};
  uint32_t one = 0, two = 0, size = 4;
  HCX_QoSConfig table = {0x10000000, {}};
  m.clear_records();
  EXPECT_EQ(send_bsg_get_event(0, 1, 1, nullptr, 4, &one, &two), -EIO);
  EXPECT_EQ(send_bsg_get_event(0, 1, 1, a, 4, nullptr, &two), -EIO);
  EXPECT_EQ(send_bsg_mgmt_response(0, nullptr, 4, 1), -EIO);
  EXPECT_EQ(send_bsg_test_loopback(0, 4, a, nullptr), -EIO);
  EXPECT_EQ(send_bsg_get_mgmt_rev(nullptr, &two), -EIO);
  EXPECT_EQ(send_bsg_tibra_command(0, a, 4, a, nullptr, &one, 0), -EIO);
  EXPECT_EQ(send_bsg_tibra_command(0, a, 4, a, &size, &one, 2), -EIO);
  EXPECT_EQ(send_bsg_get_fcp_priority(0, nullptr), -EIO);
  EXPECT_EQ(send_bsg_get_fcp_priority(0, &table), -EIO);  // 36 bytes each: more than 32 bits
  EXPECT_EQ(send_bsg_set_fcp_priority(0, &table), -EIO);
  EXPECT_EQ(send_bsg_mbox_write_read(nullptr, a, a, 0, 0, 0), -EIO);
  EXPECT_EQ(map_host_to_bsg(nullptr), -EINVAL);
  EXPECT_EQ(map_wwn_to_bsg(0, nullptr), -1);
  EXPECT_TRUE(m.requests().empty());
}

}  // namespace
