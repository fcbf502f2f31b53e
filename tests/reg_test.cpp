// SPDX-License-Identifier: BSD-3-Clause
// Registers, SLI memory, PCI configuration space: exact bytes, the SLI gate, short transfers.
#include <errno.h>

#include <cstring>

#include "control_machine.h"

namespace {

class Registers : public ControlTest {
 protected:
  void SetUp() override {
    machine.add_host({.sli = 3});
    machine.add_host({.sli = 4});
    machine.add_host({.sli = 0});
    start();
  }
};

TEST_F(Registers, WritesAreMarked) {
  uint32_t value;
  memcpy(&value, "\x11\x22\x33\x44", 4);  // the same bytes on every processor
  EXPECT_EQ(WriteCtlReg(0, &value, 0x10), 0U);
  ASSERT_EQ(machine.writes().size(), 1U);
  EXPECT_EQ(machine.writes()[0].text, std::string("ZOBT\x11\x22\x33\x44", 8));
  EXPECT_EQ(machine.vfs().find("/sys/class/scsi_host/host0/ctlreg")->stat_size(), 256);
  uint32_t back = 0;
  EXPECT_EQ(ReadCtlReg(0, &back, 0x10), 0U);
  EXPECT_EQ(back, value);
  EXPECT_EQ(ReadCtlReg(0, &back, 0x14), 0U);
  EXPECT_EQ(memcmp(&back, "\x14\x15\x16\x17", 4), 0);
}

TEST_F(Registers, FailuresAreToldApart) {
  uint32_t word = 7;
  const uint64_t opened = machine.calls(sim::Verb::open);
  EXPECT_EQ(ReadCtlReg(1, &word, 0), 2U);
  EXPECT_EQ(WriteCtlReg(1, &word, 0), 2U);
  EXPECT_EQ(machine.calls(sim::Verb::open), opened) << "an SLI-4 board is not touched";
  EXPECT_TRUE(machine.logged("ReadCtlReg - board 1 sliMode 4 too high"));
  EXPECT_EQ(ReadCtlReg(2, &word, 0), 1U);
  EXPECT_TRUE(machine.logged("ReadCtlReg - board 2 sliMode 0 too low"));
  EXPECT_EQ(ReadCtlReg(3, &word, 0), 12U);
  EXPECT_EQ(WriteCtlReg(3, &word, 0), 12U);
  EXPECT_TRUE(machine.logged("WriteCtlReg - board 3 no host"));
  EXPECT_EQ(word, 7U);
  EXPECT_EQ(ReadCtlReg(0, &word, 254), 1U);
  EXPECT_TRUE(machine.logged("ReadCtlReg - board 0 Error: ReadCtlReg: read wrong size 2 at offset 254n"));
  EXPECT_TRUE(machine.logged("ReadCtlReg - board = 0; data = 0x"));
  EXPECT_EQ(WriteCtlReg(0, &word, 256), 1U);
  EXPECT_TRUE(machine.logged("WriteCtlReg - board 0 host ctlreg write failed at offset 256"));
  EXPECT_EQ(ReadCtlReg(0, nullptr, 0), 1U);
  EXPECT_EQ(WriteCtlReg(0, nullptr, 0), 1U);
  machine.fail({.verb = sim::Verb::write, .path = "ctlreg", .short_count = 4});
  EXPECT_EQ(WriteCtlReg(0, &word, 0), 1U);
  expect_nothing_held();
}

TEST_F(Registers, MemoryMovesExactly) {
  uint8_t out[6] = {1, 2, 3, 4, 5, 6}, in[8] = {};
  EXPECT_EQ(WriteMem(0, out, 0x101, 6), 0U);
  EXPECT_EQ(ReadMem(0, in, 0x100, 8), 0U);
  EXPECT_EQ(memcmp(in, "\0\1\2\3\4\5\6\0", 8), 0);
  EXPECT_EQ(ReadMem(0, in, 16384 - 4, 8), 1U);
  EXPECT_TRUE(machine.logged("ReadMem - board 0 host slim read failed at offset 16380 count 8"));
  EXPECT_EQ(WriteMem(0, out, 16384 - 4, 6), 1U);
  EXPECT_TRUE(machine.logged("WriteMem - board 0 host slim write failed at offset 16380 count 6"));
  EXPECT_EQ(ReadMem(0, nullptr, 0, 4), 1U);
  EXPECT_EQ(WriteMem(0, nullptr, 0, 4), 1U);
  EXPECT_EQ(ReadMem(9, in, 0, 4), 12U);
  EXPECT_EQ(WriteMem(9, out, 0, 4), 12U);
  expect_nothing_held();
}

TEST_F(Registers, PciSpaceIsReadOnly) {
  uint8_t bytes[4] = {};
  for (auto *read : {HCX_ReadPciCfg, ReadPciCfg}) {
    EXPECT_EQ(read(1, bytes, 0, 4), 0U);
    EXPECT_EQ(bytes[0] | bytes[1] << 8, 0x1d5a) << "the vendor id, little-endian";
    EXPECT_EQ(read(1, bytes, 0x10000, 4), 1U);
    EXPECT_EQ(read(1, nullptr, 0, 4), 1U);
    EXPECT_EQ(read(3, bytes, 0, 4), 12U);
  }
  EXPECT_TRUE(machine.logged("HCX_ReadPciCfg - board 1 host pcireg read failed offset 65536 count 4"));
  EXPECT_EQ(WritePciCfg(0, bytes, 0, 4), 2U);
  EXPECT_EQ(WritePciCfg(9, nullptr, 0, 4), 2U);
  EXPECT_TRUE(machine.writes().empty());
}

TEST(Swap32Buffer, LeavesTheRest) {
  uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  swap32_buffer(bytes, 3);
  EXPECT_EQ(memcmp(bytes, "\1\2\3\4\5\6\7\10", 8), 0);
  swap32_buffer(bytes, 6);
  EXPECT_EQ(memcmp(bytes, "\4\3\2\1\5\6\7\10", 8), 0);
  swap32_buffer(bytes + 1, 4);  // no alignment is asked for
  EXPECT_EQ(memcmp(bytes, "\4\5\1\2\3\6\7\10", 8), 0);
  swap32_buffer(nullptr, 8);
}

}  // namespace
