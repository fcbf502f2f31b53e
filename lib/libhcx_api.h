/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * libhcx: management of Fibre Channel and FCoE adapters of the "vosk" driver.
 *
 * This is the header to include; it brings the others with it.
 *
 * Boards: a call takes the board number that HCX_InitDiagEnv() gave an adapter port (0, 1, 2, ... by kernel host
 * number). Until HCX_InitDiagEnv() has run, no board has a number.
 * Ownership: every buffer and record passed in belongs to the caller.
 * Threads: start-up and teardown must not overlap any other call. All other calls may run in parallel; those on
 * different boards do not wait for each other.
 */
#ifndef LIBHCX_LIBHCX_API_H
#define LIBHCX_LIBHCX_API_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "hbaapi.h"
#include "hcx_api.h"
#include "hcx_bsg.h"
#include "hcx_mmm.h"
#include "hcx_util.h"
#include "sd_api.h"
#include "vosk_nl.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Start-up, teardown, version ---- */

/*
 * Starts the library and describes the boards.
 *
 * ba     out: one record for each adapter port, by kernel host number; may be null when count is 0
 * count  records at ba
 *
 * Returns the number of hosts found, which may exceed count: only the first `count` boards get a record and a number,
 * so clamp it before walking ba. 0: the driver's management version is not known, no host was found, none has a PCI
 * device, or the driver does not answer (everything is then taken down again).
 * On an inventory that is there already, from an earlier start or from a call that scanned on demand, nothing is
 * scanned anew: the boards are numbered again and described, and listeners stay as they are.
 * Reads the inventory's attributes and, for each board, "irq", "device" and "vendor" of the PCI device and
 * "vosk_drvr_version", "fwrev", "board_mode" and the size of "slimem" of the host; asks the driver for its management
 * revision (vendor command 6). Reads the log switch.
 * Blocks for as long as the scan and the driver's answer take. Must not overlap any other call.
 */
uint32_t HCX_InitDiagEnv(hcx_brdinfo *ba, uint32_t count);

/*
 * The same with the older board record.
 *
 * ba  out: room for 32 records; their a_rsvd1, a_rsvd2 and a_siglvl are left as they are
 *
 * Returns the number of records to look at, at most 32; 0 as above, for a null ba, and without memory. Hosts that got
 * no record count too: where some have no PCI device the last records are zero.
 * Blocks as HCX_InitDiagEnv() does.
 */
uint32_t InitDiagEnv(brdinfo *ba);

/*
 * Takes the library down: releases the inventory with every record that was handed out, and deletes the log switch
 * file, which ends logging in every process of the machine. May be called again.
 *
 * Returns 0.
 * Must not overlap any other call, and no host may be held.
 */
uint32_t HCX_FreeDiagEnv(void);

/* The same. Returns what HCX_FreeDiagEnv() does. */
uint32_t FreeDiagEnv(void);

/*
 * The library's version.
 *
 * ver  out: "4.2.17", terminated; room for 19 bytes
 */
void HCX_GetLibVer(uint8_t *ver);

/*
 * The host of a board number.
 *
 * list     head of a list of hosts, hcx_host_list for the inventory
 * brd_idx  board number
 *
 * Returns the first host with that number, its read lock held; null when there is none.
 * Reads memory only. Blocks while the host is being rescanned.
 */
hcx_host *hcx_host_find_by_idx(hcx_host *list, int brd_idx);

/* ---- Logging ----
 *
 * Lines go to the system log as "LIBHCX", facility user, priority info. Which ones is said by a mask of log_enable bits
 * in the file "/tmp/libhcx_syslog_enable": eight hexadecimal digits and a newline. Each process reads it at start-up
 * and again at its first log call after more than 20 seconds. Anything but a regular file there counts as no file.
 * All of these may be called from any thread, keep errno, and block no longer than the system log does.
 */

/* The mask in force; 0 is off. Written by the calls below and by the refresh. */
extern uint32_t libhcx_logging_enable;

/*
 * Logs a line.
 *
 * enabled  log_enable bits; the line is written when one of them is in the mask
 * format   as printf; by convention "%s - ..." with the caller's name first
 */
void libhcx_syslog(uint32_t enabled, const char *format, ...) __attribute__((format(printf, 2, 3)));

/*
 * Writes the switch file and makes it count at once in this process.
 *
 * enable  the new mask, 0 to 0x3ffff; a larger one is ignored
 */
void libhcx_syslog_enable(uint32_t enable);

/* Closes the connection to the system log and deletes the switch file. */
void libhcx_syslog_unlink(void);

/*
 * Logs the call stack, whatever the mask: the library's own frames and the first one of the application, at most ten,
 * as "stack(N) - NAME".
 */
void libhcx_backtrace(void);

/* ---- Reset and board mode ----
 *
 * The board is looked up among those that HCX_InitDiagEnv() numbered; only HCX_SetDumpEnv() scans an empty inventory.
 * A reset makes the link bounce: remote ports vanish for seconds and events follow. None of these calls waits for it.
 */

/*
 * Resets an adapter.
 *
 * board  board number
 * type   1 "selective", 2 "coordinated" (all ports of the card), 3 "fw_reset" (firmware)
 *
 * Returns 0 requested; 1 no such board, the driver's reset switch is off, or "board_mode" could not be opened or
 * refused a firmware reset; 4 unknown type. A firmware reset that the adapter does not support (EPERM) goes on as a
 * selective one, a refused coordinated one is tried again as selective. Except for a reset switch that is off, a
 * refusal by "issue_reset" is reported as 0 too: read the board mode to learn what became of it.
 * Writes "board_mode" (type 3), "issue_reset" (the others) of the host directory.
 * Blocks for as long as the driver takes to accept the request.
 */
uint32_t HCX_ResetAdapter(uint32_t board, uint32_t type);

/*
 * Sets and reads the mode of a board.
 *
 * board  board number
 * flag   a set_diag_commands value other than DDI_UNUSED; DDI_SHOW only reads
 *
 * Returns the mode in force: `flag` itself when the driver took it, the mode read back when it refused; 0 for no such
 * board, an unknown flag, a refused dump, or a mode that cannot be read.
 * Writes and reads "board_mode" of the host directory.
 * Blocks for as long as the driver takes to change the mode.
 */
uint32_t SetBrdEnv(uint32_t board, uint32_t flag);

/*
 * Sets the mode of every board, from board 0 up to the first that gives 0.
 *
 * flag  as for SetBrdEnv()
 *
 * Returns the last SetBrdEnv() result; 0 without any board.
 * Writes and reads "board_mode" of each host directory.
 * Blocks for as long as the driver takes to change the modes.
 */
uint32_t SetDiagEnv(uint32_t flag);

/*
 * SetBrdEnv() for dump tools, with "error" in the place of "offline".
 *
 * board  board number
 * flag   as for SetBrdEnv(); DDI_OFFDI requests "error"
 *
 * Returns as SetBrdEnv(), with 2 for "error"; 1 for no such board (also the number of "online").
 * Writes and reads "board_mode" of the host directory.
 * Blocks for as long as the driver takes to change the mode.
 */
uint32_t HCX_SetDumpEnv(uint32_t board, uint32_t flag);

/* ---- Driver parameters ---- */

/*
 * Lists the driver parameters with their current values.
 *
 * board     board number
 * cfgparam  out: room for 64 rows
 *
 * Returns the number of rows written (16); 0 for no such board, no PCI device, or a null pointer. A parameter that
 * the adapter lacks keeps its row, without CFG_APPLICABLE.
 * Reads "vosk_..." of the host directory, one attribute a row, and "device" of the PCI directory.
 * Does not block.
 */
uint32_t GetCfgParam(uint32_t board, CfgParam *cfgparam);

/*
 * Changes a driver parameter.
 *
 * board  board number
 * idx    row of GetCfgParam()'s list
 * value  new value; silently brought into the row's range
 *
 * Returns 0 set, or the row is CFG_IGNORE and nothing was done; 1 no such row, the row cannot be changed at run time,
 * or the write failed; 12 no such board.
 * Writes the row's attribute in the number format that it reads in: for a CFG_LINKRESET row first with "nolip " in
 * front, which leaves the link alone, and where the driver refuses that, without, which resets it.
 * Does not block.
 */
uint32_t SetCfgParam(uint32_t board, uint32_t idx, uint32_t value);

/* ---- Loopback ----
 *
 * HCX_ConfigLoopback(), any number of HCX_RunLoopbackTest(), HCX_EndLoopback(). The port carries no traffic from the
 * first until after the last, so end the loopback on every path.
 */

/*
 * Puts a port into loopback.
 *
 * board    board number
 * type     1 internal, with the bridge chip switched over where there is one; 2 external (loopback plug)
 * timeout  handed to the driver, milliseconds
 *
 * Returns 0 done; 1 no such board, no PCI device, no SLI mode, or the bridge refused; 3 unknown type; otherwise the
 * transport's result (a negative number in 32 bits).
 * Sends BSG vendor command 4; before it, on PCI device 0x7b05, the three bridge commands of ConfigTibraLoopback().
 * Blocks until the adapter answers, and a second more where there is a bridge chip.
 */
uint32_t HCX_ConfigLoopback(uint32_t board, uint32_t type, uint32_t timeout);

/*
 * Sends data through the loopback once.
 *
 * board      board number
 * pLoopback  in: length and both buffers; out: what came back, in RcvBuffer. Comparing it is the caller's business.
 *
 * Returns 0 data came back; 1 no such board, no SLI mode, a null pointer, or the test failed; 2 not an FC port.
 * Sends BSG vendor command 5.
 * Blocks until the data is back, at most 60 seconds.
 */
uint32_t HCX_RunLoopbackTest(uint32_t board, Loopback *pLoopback);

/*
 * Takes a port out of loopback.
 *
 * board  board number
 *
 * Returns 0 done; 1 no such board, no PCI device, no SLI mode, or (SLI-3) the link could not be reset; on SLI-4
 * otherwise the transport's result.
 * SLI-4: sends BSG vendor command 10. SLI-3: unConfigTibraLoopback() on PCI device 0x7b05, then writes "issue_lip"
 * of the fc_host directory.
 * Blocks until the adapter answers.
 */
uint32_t HCX_EndLoopback(uint32_t board);

/* ---- Bridge chip ----
 *
 * Commands are little-endian 32-bit words, the code first. Commands and responses are at most 0x54000 bytes.
 */

/*
 * Sends a command to the bridge chip.
 *
 * board     board number
 * cmd_buf   in: the command. 0x80000001 and 0x80000002 set an adapter variable by mailbox; 2 is a command of three
 *           words (the second is the length of the data) with the data behind; any other goes to the bridge as it is
 * cmd_size  its bytes
 * rsp_buf   out: the response
 * rsp_size  in: room in rsp_buf, at least 4; out: bytes received
 *
 * Returns 0 sent; 1 a null pointer, a buffer too short or too long, no such board, or (code 2) a length word that
 * does not agree with cmd_size, told only after the three words went out; otherwise the transport's result. With
 * code 2 the outcome of the data is told by the response alone. For the two variables 1 says that the adapter refused;
 * a failure on the way to it, such as no such board, is 0.
 * Sends BSG vendor commands 8 and 9, or MBX_SET_VARIABLE.
 * Blocks until the bridge answers, at most 60 seconds a phase.
 */
uint32_t HCX_SendTibraCommand(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf,
                              uint32_t *rsp_size);

/*
 * Sends one phase of a bridge command.
 *
 * board    board number
 * cmd_buf  in: `incnt` bytes
 * rsp_buf  out: the response; on failures of this call its first word (processor's order) is 1 for no such board,
 *          7 for more than 0x54000 bytes in either direction
 * outcnt   in: room in rsp_buf, at least 4; out: bytes received
 * xri      in/out: exchange id; the TIBRA_CMD phase gives it, the TIBRA_DATA phase takes it
 * type     a tibra_type
 *
 * Returns 0 sent; 1 as above, or a null pointer or too little room; otherwise the transport's result.
 * Sends BSG vendor command 8 (TIBRA_CMD) or 9 (TIBRA_DATA).
 * Blocks until the bridge answers, at most 60 seconds.
 */
uint32_t IssueTibra(uint32_t board, void *cmd_buf, uint32_t incnt, void *rsp_buf, uint32_t *outcnt,
                    uint32_t *xri, uint32_t type);

/*
 * Puts the bridge chip into loopback.
 *
 * board    board number
 * pci_dev  in: path of the port's PCI device with its closing "/"; the PCI function in it is the bridge port, 0 or 1
 *
 * Returns 0 done; 1 otherwise.
 * Sends three bridge commands: variable on, loopback of that port, variable off, in the processor's order.
 * Blocks until the bridge answers, and one second more for it to switch over.
 */
uint32_t ConfigTibraLoopback(uint32_t board, char *pci_dev);

/*
 * Takes the bridge chip out of loopback.
 *
 * board  board number
 *
 * Returns 0 done; 1 otherwise.
 * Sends one bridge command.
 * Blocks until the bridge answers.
 */
uint32_t unConfigTibraLoopback(uint32_t board);

/* ---- Registers, memory, PCI configuration ----
 *
 * For diagnosis by people who know the adapter: reading a register may clear it, writing one may stop the port.
 * Offsets and counts are bytes and are bounded by the driver alone.
 * Status of all: 0 done; 1 fewer bytes were transferred than asked for, or a null pointer; 12 no such board.
 */

/*
 * Reads a control register.
 *
 * board   board number
 * data    out: the word, as the driver gives it
 * offset  of the register
 *
 * Returns the status above; 1 also for an unknown SLI mode; 2 for SLI-4, whose registers are not served.
 * Reads "ctlreg" of the host directory.
 * Does not block.
 */
uint32_t ReadCtlReg(uint32_t board, uint32_t *data, uint32_t offset);

/*
 * Writes a control register.
 *
 * board   board number
 * data    in: the word, handed on as it is
 * offset  of the register
 *
 * Returns as ReadCtlReg().
 * Writes "ctlreg" of the host directory: the marker "ZOBT", then the word.
 * Does not block.
 */
uint32_t WriteCtlReg(uint32_t board, uint32_t *data, uint32_t offset);

/*
 * Reads SLI memory.
 *
 * board   board number
 * data    out: `cnt` bytes
 * offset  of the first byte
 * cnt     bytes
 *
 * Returns the status above.
 * Reads "slimem" of the host directory.
 * Does not block.
 */
uint32_t ReadMem(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt);

/*
 * Writes SLI memory.
 *
 * board   board number
 * data    in: `cnt` bytes
 * offset  of the first byte
 * cnt     bytes
 *
 * Returns the status above.
 * Writes "slimem" of the host directory.
 * Does not block.
 */
uint32_t WriteMem(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt);

/*
 * Reads PCI configuration space.
 *
 * board   board number
 * data    out: `cnt` bytes, little-endian as PCI has them
 * offset  of the first byte
 * cnt     bytes; without privileges the kernel shows the first 64 only
 *
 * Returns the status above.
 * Reads "config" of the PCI directory.
 * Does not block.
 */
uint32_t HCX_ReadPciCfg(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt);

/* The older name of HCX_ReadPciCfg(). */
uint32_t ReadPciCfg(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt);

/*
 * Would write PCI configuration space.
 *
 * board, data, offset, cnt  not looked at
 *
 * Returns 2, not supported, always.
 * Sends nothing.
 * Does not block.
 */
uint32_t WritePciCfg(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt);

/*
 * Reverses the bytes of each whole 32-bit word.
 *
 * buffer  in/out
 * size    bytes; what is left over beyond the last whole word stays as it is
 *
 * Returns nothing; a null pointer changes nothing.
 * Sends nothing.
 * Does not block.
 */
void swap32_buffer(void *buffer, uint32_t size);

/* ---- Driver interface ---- */

/*
 * Asks whether the driver's management interface answers. Nothing stays open.
 * Returns 0; 1 when there is no answer. Sends BSG vendor command 6; waits up to a minute.
 */
uint32_t open_voskhcx(void);

/*
 * Revision of the driver's management interface.
 * major, minor: out, untouched on failure. Returns 0; all ones (-1) no host or its node cannot be opened; -EIO no
 * answer, null pointer. Sends BSG vendor command 6 to board 0, or to the first physical host when boards are not
 * numbered yet; waits up to a minute.
 */
uint32_t GetMgmtRev(uint32_t *major, uint32_t *minor);

/* ---- Mailbox ---- */
/*
 * Results: 0 success; 1 the library or the driver failed (the block's status is then 252, but for null pointers and
 * an unknown SLI mode); 2 a status other than 0 stands in the block; 3 the command does not suit the adapter's SLI
 * mode, or a size is over its limit (block untouched); 5 an external buffer of an SLI-4 configuration command is
 * longer than 3840 bytes or leaves the caller's buffer.
 * A mailbox is big-endian (hcx_mbox_word()). The owner bit is cleared on the way to the adapter.
 * Commands that are sent: MBX_READ_NV, MBX_WRITE_NV, MBX_READ_STATUS, MBX_READ_REV, MBX_READ_LNK_STAT,
 * MBX_DUMP_MEMORY, MBX_RESTART, MBX_UPDATE_CFG, MBX_DOWN_LOAD, MBX_DEL_LD_ENTRY, MBX_SET_VARIABLE, MBX_BEACON,
 * MBX_WRITE_VPARMS, MBX_READ_EVENT_LOG_STATUS, MBX_READ_EVENT_LOG, MBX_LOAD_AREA, MBX_RUN_BIU_DIAG64,
 * MBX_SLI_CONFIG, MBX_LOAD_EXP_ROM.
 * Each exchange is BSG vendor command 7 to the host's node, under an exclusive flock(2) of the SCSI host's attribute
 * "mbox", and waits up to one minute; MBX_WRITE_NV, MBX_UPDATE_CFG, MBX_DOWN_LOAD, MBX_DEL_LD_ENTRY, MBX_LOAD_AREA,
 * MBX_LOAD_EXP_ROM and the exchanges of an extended command up to 330 seconds. Waiting for the lock has no limit.
 * May be called from any thread; commands of one port take turns, also between processes.
 */

/*
 * Issues a command once.
 * mb: 256 bytes, and what external data need behind them. incnt: words of mb that go along, at most 512. outcnt:
 * bytes that come back, at most 2048. With MBX_UPDATE_CFG and bit 5 of word 1 the data stand at byte 256 on SLI-4,
 * at the byte offset in word 5 on SLI-3, their length in word 4. Data of MBX_READ_EVENT_LOG and MBX_RUN_BIU_DIAG64
 * go to and from the addresses in the block.
 */
uint32_t IssueMboxGeneric(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt);

/* The same for adapters below SLI-4 only; else 3. */
uint32_t IssueMbox(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt);

/*
 * As IssueMbox(), and again while the status is 253 (busy): up to retrycnt more times.
 * mb: holds incnt words, at most 64 of which go along; outcnt bytes come back. retrydelay: milliseconds between
 * attempts, rounded up to whole seconds. The block is written back whatever the result.
 */
uint32_t HCX_IssueMboxWithRetry(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt,
                                uint32_t retrycnt, uint32_t retrydelay);

/*
 * The same with external data in a buffer of their own.
 * mb: words 0 to 31 go along and come back, no more. pMbExt: in inExtWLen words (at most 512), or as many bytes as
 * word 4 says for MBX_UPDATE_CFG with bit 5 of word 1, or word 2 for MBX_SLI_CONFIG, at most 2048 each; out
 * outExtWLen words (at most 512); may be null when none of these apply. mbOffset: word of the block after which the
 * data belong. retrydelay: milliseconds, rounded up to whole seconds above 1000.
 */
uint32_t HCX_IssueMboxWithRetryEx(uint32_t board, MAILBOX_t *mb, void *pMbExt, uint8_t mbOffset,
                                  uint32_t inExtWLen, uint32_t outExtWLen, uint32_t retrycnt,
                                  uint32_t retrydelay);

/*
 * Issues a command on an SLI-4 adapter, again while the status is 253 (busy).
 * pMb: wLen words, in and out: the block and the external data behind it. retryWait: milliseconds, rounded up to
 * whole seconds. MBX_SLI_CONFIG commands with external buffers take the way of IssueExtendedSLIConfig(), all others
 * that of IssueMboxGeneric() with its limits. Non-embedded configuration commands are sent for subsystem 0x0c with
 * operation 8 or 9, for subsystem 1 with 0x20 or 0x79, and for all other subsystems; else 1.
 */
uint32_t HCX_IssueMboxWithRetryV2(uint32_t board, MAILBOX_t *pMb, uint32_t wLen, uint32_t retryCnt,
                                  uint32_t retryWait);

/*
 * Issues an MBX_SLI_CONFIG command with external buffers once, one exchange for each buffer.
 * mb: wLen words: the block, then the buffers back to back. mode: a mailbox_type. cmd: a mailbox_format. At most 19
 * buffers (8 embedded) of at most 3840 bytes. No buffer at all: 0, nothing is sent.
 */
uint32_t IssueExtendedSLIConfig(uint32_t board, MAILBOX_t *mb, uint32_t mode, uint32_t cmd, uint32_t wLen);

/*
 * Reads the adapter's revision numbers (MBX_READ_REV).
 * mb: 256 bytes, out. Returns 3 also when there is no such board or its PCI device is unknown. Five retries.
 */
uint32_t readrev(uint32_t board, MAILBOX_t *mb);

/*
 * Sets an adapter variable in place of a bridge chip command.
 * cmd_buf: two little-endian words, command 0x80000001 or 0x80000002 and the value; any other command: 0, nothing
 * is sent. p: not looked at. Returns 1 when the mailbox command was refused or failed in the firmware, else 0.
 */
uint32_t TibraMBXvar(uint32_t board, void *cmd_buf, void *p);

/* ---- CT, ELS, RNID ---- */
/*
 * Each call rescans the board, so the thread may hold no host lock, and waits for the answer up to a minute.
 */

/*
 * Sends a CT request (FC-GS) to the well-known address of its GS type, byte 4: 0xfa, 0xfb, 0xfc or 0xfd; any other
 * goes to the directory server.
 * RspBufferSize: in room, out bytes received. Returns 0; 1 failure, request shorter than 5 bytes, null pointer.
 */
uint32_t SendCTPassThru(uint32_t board, void *pReqBuffer, uint32_t ReqBufferSize, void *pRspBuffer,
                        uint32_t *RspBufferSize);

/*
 * Sends a CT request (FC-GS) to a well-known address.
 * portid: 0xffff00 to 0xffffff; else -EINTR. Returns the bytes received; 0 or below as send_bsg_ct_to_did(). A
 * positive host status in the reply is passed through and cannot be told from a length.
 */
int GetCTInfo(uint32_t board, uint32_t portid, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
              uint32_t outcnt);

/*
 * Sends a CT request to the remote port with a port name.
 * outcnt: in room; out the bytes received, or a negative number (to be read as int) on failure. tmo: milliseconds, 0
 * for a minute. Always 0 (without outcnt nothing is sent).
 */
uint32_t SendMgmtCommand(uint32_t board, HBA_WWN *PortWWN, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                         uint32_t *outcnt, uint32_t tmo);

/*
 * Answers a CT request that came in.
 * tag: of the request. Returns 0; 255 the response is too long, 250 time-out, 253 refused, 252 any other failure.
 * Sends BSG vendor command 3.
 */
uint32_t SendMgmtResponse(uint32_t board, uint8_t *outbuf, uint32_t outcnt, uint32_t tag);

/* Sends an ELS request (FC-LS). Arguments and result as send_bsg_els(). */
uint32_t HCX_SendELSCmd(uint32_t board, DestID *destID, uint8_t *reqbuf, uint32_t reqsize, uint8_t *rspbuf,
                        uint32_t *rspsize);

/*
 * Asks a remote port for its node identification (FC-LS RNID, general topology data).
 * wwntype: 0 node name, 1 port name; else 1. pRspBuffer: the ELS answer, or the 8-byte reject record as in
 * send_bsg_els(). RspBufferSize: in room, out bytes received. Returns 0; 1 failure or reject.
 */
uint32_t SendRNID(uint32_t board, HBA_WWN *wwn, HBA_WWNTYPE wwntype, void *pRspBuffer,
                  HBA_UINT32 *RspBufferSize);

/*
 * What the adapter port tells about itself.
 * pInfo: the IP fields and `reserved` are not written. Returns 0; 1 no such board, null pointer. Reads the inventory.
 */
uint32_t GetRNIDMgmtInfo(uint32_t board, HBA_MGMTINFO *pInfo);

/* Accepted and not used. Always 0. */
uint32_t SetRNIDMgmtInfo(uint32_t board, HBA_MGMTINFO *pInfo);

/* ---- Events ---- */
/*
 * Events of an adapter port go two ways: into the board's ring of 128 entries (127 can be waiting), and to the
 * functions that were registered for them.
 *
 * Registered functions run in the library's listener thread, one at a time, with no lock held: they may register,
 * unregister (themselves too), call any board function, and take their time, but the next event waits for them. A
 * function that another thread unregisters while it runs may finish behind that call's back. SIGUSR1 belongs to the
 * library in a process that has started it. Registrations are per process and outlive HCX_FreeDiagEnv(); those for
 * CT requests have a child process each, which ends with the registration or with this process.
 * All calls may come from any thread.
 */

/*
 * Starts and stops the listener; HCX_InitDiagEnv() and HCX_FreeDiagEnv() do so by themselves.
 * net_link_init: 0 when it runs or already did; -1 the socket (netlink, SCSI transport), the signal handler or the
 * thread could not be had. net_link_exit waits until the thread has ended. It calls no further function, but a
 * function that is running may finish, for 10 seconds; then the thread is left to end by itself, and a host that the
 * function may still use is kept. Called by such a function it does not wait. Events that were not delivered yet are
 * after the next start.
 */
int net_link_init(void);
void net_link_exit(void);

#if defined(__GNUC__) && !defined(__cplusplus)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
#endif

/*
 * Registers a function.
 * mask: hcx_event_mask bits; the function is called for each event that has one of them. FC_REG_CT_EVENT cannot be
 * told apart from the others by its calls: register it alone. type: GS type of the wanted CT requests, else not
 * looked at. outsz: room for what comes with an event: the longest RSCN payload or CT request that func will see; for
 * link events alone it is taken for sizeof(LINKINFO). func: one of the callback types of hcx_api.h, by event.
 * ctx: kept with the registration.
 * Returns the registration's id, with FC_REG_ALL_PORTS that of the first board; 0 no such board (or one above 31), no
 * room (8 a board), no memory, unknown SLI mode, temperature events alone on a board without sensor, a mask without
 * any event, a null func. A call that fails on one board leaves nothing on the others.
 */
uint32_t HCX_RegisterForEvent(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz, void (*func)(),
                              void *ctx);

/* The same; status is not looked at. */
uint32_t RegisterForEvent(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz, void (*func)(),
                          void *ctx, uint32_t *status);

/*
 * Registers for the CT requests of one GS type, with room for 4096 bytes.
 * func: an hcx_ct_callback; status: not looked at. Returns the id, 0 on failure.
 */
uint32_t RegisterForCTEvents(uint32_t board, uint16_t gstype, void (*func)(), void *ctx, uint32_t *status);

#if defined(__GNUC__) && !defined(__cplusplus)
#pragma GCC diagnostic pop
#endif

/*
 * Takes registrations back, with the events that wait for them.
 * eventid: the id, whatever the board; of an FC_REG_ALL_PORTS registration that of the first takes all. 0: all of the
 * board. Returns 1; 0 unknown id, board above 31. Blocks for a CT registration until its child has gone, which can
 * take the minute that the child waits in the kernel.
 */
uint32_t HCX_unRegisterForEvent(uint32_t board, uint32_t eventid);
uint32_t unRegisterForEvent(uint32_t board, uint32_t eventid);

/* The same for a CT registration, by a pointer to its id. Returns 0; FC_ERROR_INVALID_TAG unknown id. */
uint32_t unRegisterForCTEvent(uint32_t board, uint32_t *eventid);

/*
 * Takes events out of the board's ring, oldest first.
 * eventcount: in room at eventbuffer, out entries filled. Reported are link up and down with the port's FC address,
 * RSCN with the affected page besides, and vendor events without data; all else is passed over.
 * Returns 0; 1 no such board; 4 null pointer.
 */
uint32_t GetEventBuffer(uint32_t board, HBA_EVENTINFO *eventbuffer, uint32_t *eventcount);

/*
 * What the listener does with an event; of use to an application that has a source of its own.
 * host_no: kernel host number. seq_num: kernel's number of the event. event_code: a vosk_host_event_code.
 * post_fc_event puts it into the ring; event_data: its first word. signal_async_event_handler queues it for the
 * registrations and wakes the listener; where none runs, the functions are called before it returns. event_data:
 * `length` bytes of words.
 */
void post_fc_event(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t event_data);
void signal_async_event_handler(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t *event_data,
                                uint32_t length);

/* ---- Driver and adapter information ---- */

/*
 * Describes the driver and the adapter port.
 * info: drvInfoVer holds the caller's record version (4) and is 4 afterwards; every text is terminated.
 * Returns 0; 4 for another record version (2 and 3: filled up to `hostname`, others: without it); 12 no such
 * board; 1 null pointer. Reads "vosk_drvr_version" and "vosk_stat_data_ctrl" of the SCSI host; the rest comes
 * from the inventory, which is not scanned. `reserved`, `rsvd` and `NPIVsupport` are not written.
 */
uint32_t HCX_GetDrvInfo(uint32_t board, HCXDrvInfo *info);

/*
 * Vital product data of the adapter.
 * vpdinfo: version must be 1; the texts are emptied, then filled.
 * Returns 0; 1 another version or a null pointer; 2 no such board.
 * Reads "modeldesc", "modelname", "programtype" and "portnum" of the SCSI host. The inventory is not scanned.
 */
uint32_t GetVPDInfo(uint32_t board, Vpd *vpdinfo);

/*
 * State of the link, with the map of a loop.
 * Returns 0; 12 no such board; 8 when the port's directory is gone or its state is "Not Present"; 1 null
 * pointer. Rescans the board and its remote ports, then reads the FC host, "link_state" or "state",
 * "mlomode", and the statistic "lip_count" or "nos_count". The loop map holds at most 126 addresses.
 */
uint32_t HCX_GetLinkInfo(uint32_t board, LinkInfo *info);

/* The same under its older name. */
uint32_t GetLinkInfo(uint32_t board, LinkInfo *info);

/*
 * Lists the ports that the adapter port sees, in inventory order; ports that cannot be read are left out.
 * nodeinfo: room for one entry per remote port; the call cannot know how much room there is.
 * Returns the number of entries written; -1 none, or a null pointer; -ENOMEM no such board.
 * Rescans the board and its remote ports; reads the attributes of each and "tgtid_bind_type" of the FC host.
 */
int GetNodeInfo(uint32_t board, NodeInfo *nodeinfo);

/*
 * Has the user taken the link down?
 * Returns 1 when "link_state" (or "state" where that is missing) of the SCSI host says so, else 0, also
 * without board.
 */
int linkDownUser(uint32_t board);

/*
 * Reads the adapter's control registers as the driver's dump region 0 (SLI-3 only).
 * identifier: 0. buff, buff_len: in the number of bytes wanted, at most 256; out 0 on 3, the bytes read on a
 * short read. Returns 0; 1 SLI mode unknown, short read or null pointer; 2 SLI-4 adapter or an identifier
 * above 7; 3 more than 256 bytes wanted; 4 identifiers 1 to 7; 12 no such board. Reads the SCSI host's binary
 * attribute "ctlreg" at offset 0.
 */
uint32_t HCX_GetDriverDumpRegion(uint32_t board, uint32_t identifier, uint8_t *buff, uint32_t *buff_len);

/* Not supported by any driver of this library. Always 2. */
uint32_t GetIOinfo(uint32_t board, void *ioinfo);

/*
 * Number of events that the board's ring has taken.
 * Returns 0; 12 no such board; 1 null pointer. Reads the inventory only.
 */
uint32_t GetEventsCount(uint32_t board, uint32_t *count);

/* Number of events lost because the board's ring was full. As GetEventsCount(). */
uint32_t GetMissedEventsCount(uint32_t board, uint32_t *count);

/* ---- Adapter and port attributes, statistics ---- */
/*
 * Results are HBA_STATUS numbers. A null pointer is HBA_STATUS_ERROR_ARG. A missing attribute leaves its
 * field 0 or empty and never fails a call. The port calls rescan the board and its remote ports first: no
 * host lock may be held.
 */

/*
 * Describes the adapter.
 * Returns 0; 12 no such board, or its PCI device is unknown (the record is then not touched).
 * Reads the SCSI host, "symbolic_name" of the FC host and "vendor" of the PCI device.
 */
uint32_t GetAdapterAttributes(uint32_t board, HBA_ADAPTERATTRIBUTES *hbaattributes);

/*
 * Attributes of the adapter port itself.
 * chan: 0. Returns 0; 1 for another chan; 12 no such board; 8 port not present.
 */
uint32_t GetAdapterPortAttributes(uint32_t board, uint32_t chan, HBA_PORTATTRIBUTES *attr);

/*
 * Attributes of the remote port at a position in the board's list. Type, symbolic name, speeds, FC-4 types
 * and fabric name are those of the adapter port. chan: 0. Returns 0; 1 for another chan or a position past
 * the end; 12 no such board; 8 port not present.
 */
uint32_t GetPortAttributesByIndex(uint32_t board, uint32_t chan, uint32_t port_idx, HBA_PORTATTRIBUTES *attr);

/* As GetPortAttributesByIndex(), but 12 for a position past the end. */
uint32_t GetDiscoveredPortAttributes(uint32_t board, uint32_t chan, uint32_t port_idx,
                                     HBA_PORTATTRIBUTES *attr);

/*
 * Attributes of the remote port with a port name.
 * Returns 0; 8 no such board, no such port, or port not present. The adapter port's own name is not found.
 */
uint32_t GetPortAttributesByWWN(uint32_t board, HBA_WWN PortWWN, HBA_PORTATTRIBUTES *attr);

/*
 * Counters of the adapter port since ResetStatistics(), or since the driver's start without it.
 * pidx: not looked at. pstat: all ones in LIPCount, NOSCount or DumpedFrames means that this is not counted.
 * Returns 0; 12 no such board; 1 the counters of an older driver could not be read.
 * Reads the 15 files in the FC host's "statistics" directory, with older kernels the SCSI host's "stats".
 * Does not scan.
 */
uint32_t GetPortStatistics(uint32_t board, uint32_t pidx, HBA_PORTSTATISTICS *pstat);

/*
 * Makes GetPortStatistics() count from now on, in this process; the adapter's counters cannot be cleared.
 * portindex: not looked at. Works only where the driver offers the SCSI host's attribute "stats"; a failure
 * ends an earlier reset and is visible in the log only.
 */
void ResetStatistics(uint32_t board, uint32_t portindex);

/* Reads the board and its remote ports afresh. Returns 0; 12 no such board. */
uint32_t RefreshInformation(uint32_t board);

/*
 * Attributes of a port record of the inventory, local or remote, whose host the caller has locked.
 * Returns 0; 8 when the port's directory is gone or its state is missing or "Not Present" (attr is then not
 * touched).
 */
uint32_t hcx_sysfs_read_port(hcx_port *port, HBA_PORTATTRIBUTES *attr);

/* "mlomode" of the port's host: 0 or 1, 0 without that attribute; 8 when the port's directory is gone. */
uint32_t hcx_sysfs_read_mlomode(hcx_port *port);

/* ---- Target mappings and bindings ---- */

/*
 * Lists the LUNs behind a board: operating system names beside fabric names.
 * mapping: NumberOfEntries holds the room behind it, afterwards the number of LUNs.
 * Returns 0, also without board (no entries); 7 more LUNs than room (the room is filled); 4 null pointer.
 * Rescans the board and its remote ports, then reads the inventory only.
 */
uint32_t GetFcpTargetMapping(uint32_t board, HBA_FCPTARGETMAPPING *mapping);

/*
 * The same with the first identification descriptor of each LUN.
 * hbaPortWWN: port name of the board, as a safeguard. mapping2: as above, but the entries are untouched on 7.
 * Returns 0; 1 no such board or no memory; 4 null pointer; 5 hbaPortWWN is another port; 7 more LUNs than
 * room. Sends INQUIRY page 0x83 (SPC) to each LUN without time limit, after all locks have been given back.
 */
uint32_t HCX_GetFcpTargetMappingV2(uint32_t board, HBA_WWN hbaPortWWN, HBA_FCPTARGETMAPPINGV2 *mapping2);

/*
 * Lists the remote ports that can be read, in the form of bindings.
 * bind_list: NumberOfEntries holds the room behind it, afterwards the number of ports.
 * Returns 0, also without board (no entries); 1 more ports than room; 4 null pointer.
 */
uint32_t GetFcpBindList(uint32_t board, HBA_BIND_LIST_PTR bind_list);

/* The driver binds by itself: no entries. Returns 0; 4 null pointer. */
uint32_t GetFcpPersistentBinding(uint32_t board, HBA_FCPBINDING *binding);

/* Not supported: always 2. */
uint32_t AddBind(uint32_t board, HBA_BINDTYPE bind_type, void *bind_id, HBA_SCSIID *scsi_id);
uint32_t DelBind(uint32_t board, HBA_BINDTYPE bind_type, void *bind_id);

/* ---- SCSI pass-through ---- */
/*
 * LUNs: lun_id is the 8-byte image as in HBA_FCPID.FcpLun, where not said otherwise.
 * Buffers: *data_size and *sense_size hold the room before, and what was transferred after a call that
 * returned 0. A null size counts as 0. The SCSI status is not looked at: a command that ends in CHECK
 * CONDITION returns 0 with sense. Results: 0 sent; 1 no such LUN, node could not be opened, command could not
 * be sent, size over its limit, null pointer; 3 the LUN has no node; 4 no port with the local, or no target
 * with the remote port name. Threads: may run in parallel. No time limit is set, and SIGUSR1 stays blocked in
 * the calling thread until the command has ended: it would cut the kernel's wait short while the device goes
 * on.
 */

/*
 * Sends a command to a SCSI generic (or block) node with the SG_IO ioctl.
 * data_dir: -2 to the device, -3 from the device. timeout: milliseconds. cmd_size: at most 16.
 */
uint32_t hcx_send_scsi_cmd(const char *file_name, int data_dir, unsigned timeout, uint8_t *cmd_blk,
                           size_t cmd_size, uint8_t *data_buff, uint32_t *data_size, uint8_t *sense_buff,
                           uint32_t *sense_size);
uint32_t hcx_send_bsg_scsi_cmd(const char *file_name, int data_dir, unsigned timeout, uint8_t *cmd_blk,
                               size_t cmd_size, uint8_t *data_buff, uint32_t *data_size, uint8_t *sense_buff,
                               uint32_t *sense_size);

/* Sends INQUIRY (SPC) to a node. evpd: not 0 for a vital product data page. At most 65535 bytes. */
uint32_t hcx_send_scsi_inq(const char *file_name, int evpd, unsigned page, uint8_t *data_buff,
                           uint32_t *data_size, uint8_t *sense_buff, uint32_t *sense_size);

/* The inventory's record of a LUN, null when there is none. A rescan in another thread may change it. */
hcx_lun *hcx_search_lun(uint32_t board, HBA_WWN *rwwpn, uint64_t lun_id);

/* The node for commands: SCSI generic, else block; null when the LUN has neither. Belongs to the record. */
char *hcx_lun_to_file_name(hcx_lun *lun);

/* INQUIRY (SPC) by board and remote port name. */
uint32_t SendScsiInquiry(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint8_t evpd, uint32_t pagecode,
                         void *data_buff, uint32_t *data_size, void *sense_buff, uint32_t *sense_size);

/* READ CAPACITY(10) (SBC) by board and remote port name. */
uint32_t SendReadCapacity(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, void *data_buff,
                          uint32_t *data_size, void *sense_buff, uint32_t *sense_size);

/*
 * REPORT LUNS (SPC) to LUN 0. Without a LUN 0 the answer is made of the inventory: 16 bytes of room at least
 * are needed (less: nothing is written and *data_size is 0), and less than 8 give 1.
 */
uint32_t SendReportLUNs(uint32_t board, HBA_WWN *wwpn, void *data_buff, uint32_t *data_size, void *sense_buff,
                        uint32_t *sense_size);

/* READ(10) and WRITE(10) (SBC) of whole 512-byte blocks, at most 65535 of them. sector: block address. */
uint32_t SendScsiRead(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t sector, void *data_buff,
                      uint32_t *data_size, void *sense_buff, uint32_t *sense_size);
uint32_t SendScsiWrite(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t sector, void *data_buff,
                       uint32_t *data_size, void *sense_buff, uint32_t *sense_size);

/* A 16-byte command of which only the operation code is not 0; data from the device. */
uint32_t SendScsiCDB(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t opcode, void *data_buff,
                     uint32_t *data_size, void *sense_buff, uint32_t *sense_size);

/*
 * The same by local and remote port name, for virtual ports too: sysfs is asked, not the inventory; `board`
 * is not looked at. lun_id of HCX_SendReadCapacityByWWN() is the LUN's number. HCX_SendReportLUNsByWWN()
 * makes the answer of sysfs when LUN 0 has no node; less than 8 bytes of room then give 1.
 */
uint32_t HCX_SendScsiInquiryByWWN(uint32_t board, HBA_WWN *lwwpn, HBA_WWN *rwwpn, uint64_t lun_id,
                                  uint8_t evpd, uint32_t pagecode, void *data_buff, uint32_t *data_size,
                                  void *sense_buff, uint32_t *sense_size);
uint32_t HCX_SendReadCapacityByWWN(uint32_t board, HBA_WWN *lwwpn, HBA_WWN *rwwpn, uint32_t lun_id,
                                   void *data_buff, uint32_t *data_size, void *sense_buff,
                                   uint32_t *sense_size);
uint32_t HCX_SendReportLUNsByWWN(uint32_t board, HBA_WWN *lwwpn, HBA_WWN *rwwpn, void *data_buff,
                                 uint32_t *data_size, void *sense_buff, uint32_t *sense_size);

/*
 * An FCP command (FCP-4), whose CDB is sent to the LUN's node.
 * cmd_buff: an FCP_CMND IU: LUN in bytes 0-7, direction in byte 11, CDB from byte 12, FCP_DL after it.
 * data_buff: at least FCP_DL bytes; *data_size afterwards is what was transferred.
 * fcp_rsp_buffer: at least 24 bytes; an FCP_RSP IU with SCSI status, residual and as much sense as there is
 * room for. timeout: seconds, 0 for none. Returns as the SCSI calls, and: 2 for what SG_IO cannot carry (task
 * management, both directions at once, a CDB over 16 bytes); 4 for an IU that is short or at odds with itself
 * or with the buffers.
 */
uint32_t SendFcpCmd(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size, void *data_buff,
                    uint32_t *data_size, void *fcp_rsp_buffer, uint32_t *fcp_rsp_size);
uint32_t SendFcpCmdEx(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size, void *data_buff,
                      uint32_t *data_size, void *fcp_rsp_buffer, uint32_t *fcp_rsp_size, uint32_t timeout);
uint32_t SendBSGFcpCmdEx(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size, void *data_buff,
                         uint32_t *data_size, void *fcp_rsp_buffer, uint32_t *fcp_rsp_size, uint32_t timeout);
/* By local and remote port name, without time limit. */
uint32_t HCX_SendFcpCmd(uint32_t board, HBA_WWN *lwwpn, HBA_WWN *rwwpn, void *cmd_buff, uint32_t cmd_size,
                        void *data_buff, uint32_t *data_size, void *fcp_rsp_buffer, uint32_t *fcp_rsp_size);

/* ---- Virtual ports ----
 *
 * Ports with names and FC addresses of their own behind one adapter port. The kernel shows each as a SCSI host of its
 * own, whose fc_host directory has no "issue_lip"; that host is in no board list. Present kernels have the class
 * "/sys/class/fc_vports", older ones leave it to the driver's files under scsi_host: every call looks which of them is
 * there. WWNs are 8 bytes in the order in which they are printed. A null record or name gives 1.
 * Calls that find a board rescan it first, with its lock given back meanwhile; they may run in parallel.
 */

/*
 * Lists the virtual ports of a board.
 * pVPEntryList: in: numberOfEntries, the room; out: so many entries at most, and numberOfEntries, all there are. A port
 * whose host has not appeared yet is not counted.
 * Returns 0; 1 out of memory; 7 there are more than there was room for; 12 no such board (numberOfEntries 0).
 * Reads "port_name", "node_name", "port_id" of fc_vports and fc_host (older kernels: of fc_host). Does not block.
 */
uint32_t HCX_VPGetList(uint32_t board, HCX_VPEntryList *pVPEntryList);

/*
 * Reads how many virtual ports and logins a board can have, and has.
 * Returns 0; 1 the driver does not tell all four counts; 3 no such board.
 * Reads "max_vpi", "used_vpi", "max_rpi", "used_rpi" of the host. Does not block.
 */
uint32_t HCX_VPGetResource(uint32_t board, HCX_VPResource *pVPRes);

/*
 * Reads a virtual port.
 * board: where the readiness is looked at; the port itself is searched for on all boards. pWWPN: its port name; may
 * lie in the record. pAttrib: in: ver; out: all but options, accessKey and the reserved fields.
 * Returns 0; 1 unknown record version, or out of memory; 4 no virtual port has that name (a physical one may have).
 * Reads fc_host, scsi_host and fc_vports attributes of the port; sends MBX_READ_REV to the board.
 * Blocks as readrev() does.
 */
uint32_t HCX_VPGetAttrib(uint32_t board, HBA_WWN *pWWPN, HCX_VPAttrib *pAttrib);

/*
 * Finds the board that a virtual port belongs to.
 * host_no: kernel SCSI host number, of a virtual or a physical port. brd_idx: out: board number (all ones before
 * HCX_InitDiagEnv()). bus: out: the board's own SCSI host number.
 * Returns 0; 1 a null pointer; 3 no such host, or not one of ours. Reads the host's link in the device tree.
 */
uint32_t vpGetPhys(uint32_t host_no, uint32_t *brd_idx, uint32_t *bus);

/*
 * Fills the name of a record by its wwpn and wwnn: "Quorva PPN-20:00:00:11:22:aa:bb:cc VPort-3 VName-db1".
 * host_dir_name: the port's directory under scsi_host with its trailing "/", where older kernels keep the name.
 * Reads "symbolic_name" of fc_vports, "npiv_info"; else "vosk_symbolic_name". Nothing found: the empty text.
 */
void get_vport_name(HCX_VPAttrib *pAttrib, char *host_dir_name);

/*
 * Reads the number of a virtual port on its adapter port.
 * vport_number: out: the number, 1 or above, or -1 when there is none. Returns the same.
 * Reads "npiv_info" of the host that has the port name.
 */
int get_vport_npiv_info(HBA_WWN *pWWPN, int *vport_number);

/* Target mappings of a virtual port. Returns 2: not supported, use HCX_GetFcpTargetMappingV2(). */
uint32_t HCX_GetFcpTargetMappingByWWN(uint32_t board, HBA_WWN *pWWPN, void *outbuf);

/*
 * Lists the FCP targets that a port sees.
 * board: not used. pWWPN: port name of a virtual or physical port. pNodeInfo: in: numberOfEntries, the room; out: the
 * entries (a_flag 0, a_state NODE_LOGOUT) and how many were made. What does not fit is left out.
 * Returns 0; 1 the remote ports cannot be listed; 4 no port has that name (numberOfEntries 0).
 * Reads "roles", "scsi_target_id", "port_id", "node_name", "port_name" of fc_remote_ports. Does not block.
 */
uint32_t HCX_GetAllNodeInfoByWWN(uint32_t board, HBA_WWN *pWWPN, HCX_GetNodeInfo *pNodeInfo);

/* Writes a WWN as 23 characters, "20:00:00:11:22:aa:bb:cc", and a terminating 0 to `buf`, which has 24 bytes. */
void mac_sprintf(HBA_WWN *IEEEp, char *buf);

/*
 * Creates a virtual port.
 * vname: symbolic name, null or empty for none. pAttrib: in: ver, options, and wwpn and wwnn unless the library
 * chooses: then the port name is the board's own with another third byte, and so is the node name, unless one is given;
 * out: the names, and on success what HCX_VPGetAttrib() fills.
 * Returns 0; 1 unknown record version, a name with control characters, or the driver refused (checklist then tells what
 * is missing); 2 the driver does not tell its capacity; 4 no room for another virtual port; 5 the port name is taken;
 * 6 names all zero, or the new port has not appeared yet; 11 no such board; 12 an option that is not supported.
 * Writes "WWPN:WWNN\n" to "vport_create" of the fc_host directory and the name to "symbolic_name" of fc_vports (older
 * kernels: "WWPN:WWNN NAME\n" to "vport_create" of the scsi_host directory).
 * Blocks for as long as the driver takes, and as HCX_VPGetAttrib() does.
 */
uint32_t HCX_VPCreate(uint32_t board, char *vname, HCX_VPAttrib *pAttrib);

/*
 * Deletes a virtual port.
 * board: the board that the port belongs to. options, pAccessKey: not used.
 * Returns 0; 1 the driver refused; 3 no such board; 4 no virtual port has that name; 15 the port is static.
 * Writes "WWPN:WWNN" to "vport_delete" of the fc_host directory (older kernels: scsi_host).
 * Blocks for as long as the driver takes, and as HCX_VPGetAttrib() does.
 */
uint32_t HCX_VPDeleteV2(uint32_t board, HBA_WWN *pWWPN, uint32_t options, uint8_t *pAccessKey);
/* HCX_VPDeleteV2() without access key. */
uint32_t HCX_VPDelete(uint32_t board, HBA_WWN *pWWPN, uint32_t options);

/*
 * Names a virtual port; on present kernels only.
 * Returns 0, also for a null or empty name; -1 no virtual port has that port name; 1 control characters in the name; 2
 * the attribute cannot be opened; else the errno of the write (names over 64 characters: EINVAL).
 * Writes "symbolic_name" of fc_vports.
 */
int hcx_set_vport_sybolic_name(HBA_WWN *pWWPN, char *vname);

/*
 * Looks at what a virtual port needs.
 * vport_state: what is known of one, a vport_state value: tells what the fabric can do.
 * Returns hcx_npiv_checklist bits; 3 when there is no such board.
 * Reads driver and transport attributes of the host; sends MBX_READ_REV. Holds the host's read lock and keeps event
 * callbacks off its thread all the while.
 * Blocks as readrev() does.
 */
uint32_t fill_npiv_checklist(uint32_t board, uint32_t vport_state);
/* Stores fill_npiv_checklist() without a known state in pChecklist. Returns 0; 1 for a null pointer. */
uint32_t HCX_NPIVReadyTest(uint32_t board, uint32_t *pChecklist);

/* ---- FC-SP authentication ----
 *
 * The configuration and the secrets of the authentication daemon, in "/etc/wardend.conf". The adapter port is found
 * by its local port name; the board number is not used. Every call but the password checks needs "vosk_enable_auth"
 * of the port's host to read other than 0. Messages for the operator go to standard output. A change rewrites the
 * file through "/etc/wardend.conf~" (the process's file creation mask is 066 afterwards) and runs
 * "/etc/init.d/wardend reload". All calls may be made from any thread; changes by several threads follow one another.
 * Other processes are not held off: two that change the file at once can lose a change.
 * A null record gives HCX_AUTH_BAD_CONFIG, a null password HCX_AUTH_BAD_PASSWORD.
 * Where the file cannot be opened, calls that first verify an authorising password report HCX_AUTH_BAD_CREDENTIALS
 * after the 3-second wait; the others report HCX_AUTH_ERROR.
 */

/*
 * Reads the configuration of a pair.
 * board: not used. config: in: local_entity, remote_entity; out: the rest. Values out of range are brought into
 * range with a message.
 * Returns HCX_AUTH_OK, HCX_AUTH_NO_ENTRY (no CONFIG line), HCX_AUTH_ERROR.
 * Reads "/etc/wardend.conf". Does not block.
 */
uint32_t HCX_GetAuthConfig(uint32_t board, KRX_FCSP_CONFIG *config);

/*
 * Writes the configuration of a pair, in place of the one it had or as a new line at the end.
 * config: values out of range are corrected in place. password: the pair's local password, which authorises the
 * change; a pair without a stored password accepts any well-formed one.
 * Returns HCX_AUTH_OK, HCX_AUTH_BAD_PASSWORD, HCX_AUTH_BAD_CREDENTIALS (after 3 seconds), HCX_AUTH_BAD_CONFIG,
 * HCX_AUTH_ERROR. On any failure the file is as it was.
 * Rewrites "/etc/wardend.conf". Blocks for the daemon's reload, and for 3 seconds on a wrong password.
 */
uint32_t HCX_SetAuthConfig(uint32_t board, KRX_FCSP_CONFIG *config, AUTH_PASSWD_INFO *password);

/*
 * Lists the remote entities that a local port has a configuration for.
 * board: not used. hba_wwpn: the local port. pList: in: numberOfEntries, the room in entity[]; out: as many entities
 * as fit, and in numberOfEntries how many there are.
 * Returns HCX_AUTH_OK, HCX_AUTH_NO_PORT (no port of that name), HCX_AUTH_ERROR.
 * Reads "/etc/wardend.conf". Does not block.
 */
uint32_t HCX_GetAuthConfigList(uint32_t board, HBA_WWN hba_wwpn, HCX_AUTHCONFIGLIST *pList);

/*
 * Removes the configuration and the passwords of a pair. A pair that has none is removed all the same.
 * password: as for HCX_SetAuthConfig().
 * Returns HCX_AUTH_OK, HCX_AUTH_BAD_PASSWORD, HCX_AUTH_BAD_CREDENTIALS (after 3 seconds), HCX_AUTH_ERROR.
 * Rewrites "/etc/wardend.conf". Blocks as HCX_SetAuthConfig() does.
 */
uint32_t HCX_DeleteAuthConfig(uint32_t board, HBA_WWN hba_wwpn, HBA_WWN tgt_wwpn, AUTH_PASSWD_INFO *password);

/*
 * Writes a CONFIG line to an open stream.
 * fp: the caller's stream. config: written as it stands.
 * Returns nothing; a stream error is left in the stream.
 */
void write_config(FILE *fp, KRX_FCSP_CONFIG *config);

/*
 * Tells which passwords a pair has. No password is handed out.
 * password: in: local_entity, remote_entity; out: the type of current_local_passwd and current_remote_passwd as
 * stored, the type of the new ones HCX_AUTH_PASSWD_IGNORE.
 * Returns HCX_AUTH_OK, HCX_AUTH_NO_ENTRY (no PASSWORD line), HCX_AUTH_ERROR.
 * Reads "/etc/wardend.conf". Does not block.
 */
uint32_t HCX_GetAuthPassword(uint32_t board, KRX_AUTH_PASSWD *password);

/*
 * Changes the password of one direction: the remote one when both local types are HCX_AUTH_PASSWD_IGNORE, else the
 * local one, for which both remote types must be that.
 * password: current_* authorises the change (any is accepted while nothing is stored), new_* is stored. A new text
 * may hold no blanks and no control characters. The record is not changed.
 * Returns HCX_AUTH_OK, HCX_AUTH_BAD_PASSWORD, HCX_AUTH_BAD_CREDENTIALS (after 3 seconds), HCX_AUTH_SAME_PASSWORD (the
 * new password is the other direction's), HCX_AUTH_ERROR (also: both directions given).
 * Rewrites "/etc/wardend.conf". Blocks as HCX_SetAuthConfig() does.
 */
uint32_t HCX_SetAuthPassword(uint32_t board, KRX_AUTH_PASSWD *password);

/*
 * Reads the driver's authentication status of a port towards the fabric.
 * pStatus: in: local_entity, remote_entity (all 0xff); out: auth_state and, by state, the reason of a failure or
 * what was negotiated. Fields whose attribute tells nothing stay as they were.
 * Returns HCX_AUTH_OK, HCX_AUTH_NO_PORT (another remote entity), HCX_AUTH_ERROR.
 * Reads "auth_state", "auth_protocol", "auth_dhgroup", "auth_hash", "auth_dir", "auth_last", "auth_next". Does not
 * block.
 */
uint32_t HCX_GetAuthStatus(uint32_t board, HCX_AUTHSTATUS *pStatus);

/*
 * Asks the driver to authenticate with a remote entity now.
 * board: not used. hba_wwpn: the local port. tgt_wwpn: the remote entity, all 0xff for the fabric.
 * Returns HCX_AUTH_OK when the driver took the request, else HCX_AUTH_ERROR.
 * Writes the remote name to "vosk_authenticate". Does not wait for the outcome.
 */
uint32_t HCX_InitiateAuthentication(uint32_t board, HBA_WWN hba_wwpn, HBA_WWN tgt_wwpn);

/*
 * Authentication is switched on and off with the driver parameter "vosk_enable_auth", not here.
 * board: not used.
 * Both return HCX_AUTH_NOT_SUPPORTED.
 */
uint32_t HCX_EnableAuthentication(uint32_t board);
uint32_t HCX_DisableAuthentication(uint32_t board);

/*
 * Checks that a password is well formed: a known type and, unless that is HCX_AUTH_PASSWD_IGNORE, 8 to 128 bytes.
 * password: its type and length are looked at, its bytes are not.
 * Returns 0 when it is, 1 when not, with a message. Reads nothing.
 */
int check_password(AUTH_PASSWD_INFO *password);

/*
 * Compares passwords with the stored ones of a pair.
 * hba_wwpn, tgt_wwpn: the names as numbers. lpassword, rpassword: what to compare with the local and the remote
 * password; null: not compared.
 * Returns 0 (match), HCX_AUTH_NO_ENTRY (none stored but one given), HCX_AUTH_BAD_CREDENTIALS, HCX_AUTH_ERROR (the
 * file cannot be opened). The time it takes does not tell where two passwords differ.
 * Reads "/etc/wardend.conf".
 */
int verify_password(uint64_t hba_wwpn, uint64_t tgt_wwpn, AUTH_PASSWD_INFO *lpassword,
                    AUTH_PASSWD_INFO *rpassword);

/*
 * Parses a PASSWORD line.
 * line: terminated text. password: out: the pair and, in current_local_passwd and current_remote_passwd, what the
 * line holds; values that are missing read as HCX_AUTH_PASSWD_IGNORE. The caller wipes the record.
 * Returns 0, or 1 when the line names no pair (the record is not changed then).
 */
int read_password(char *line, KRX_AUTH_PASSWD *password);

/*
 * Writes a PASSWORD line with the pair's new_local_passwd and new_remote_passwd to an open stream.
 * fp: the caller's stream; its buffer holds the secrets until it is closed. password: written as it stands.
 * Returns nothing; a stream error is left in the stream.
 */
void write_password(FILE *fp, KRX_AUTH_PASSWD *password);

/* ---- Configuration regions ---- */
/*
 * Regions of the adapter's flash. A region is written whole: what the adapter had stored in it before is gone.
 * Region 23 has 1024 bytes: "RG23", revision 1 and three zeros, then records of a type byte, a length in words of what
 * follows the record's first four bytes, and two bytes of its own; a record of the type 0xff ends them. Types: 0xa0 FIP
 * parameters, 0xa1 FCF connect list, 0xa2 drivers' record.
 * Results: 0; 1 error; 2 type not supported, or refused by the adapter; 3 wrong SLI mode, or a signature that is not
 * that of region 23; any other that a call names. The calls send MBX_DUMP_MEMORY or MBX_UPDATE_CFG, again once when
 * the adapter is busy, and wait as a mailbox command does. They may be called from any thread; reading, editing and
 * writing are separate commands, between which another process may write.
 */

/*
 * Reads bytes of a region, with as many commands as that takes.
 * type: of the dump, 2 for a whole region. region: its number. offset: where to begin, at most 65535. pBuffer, pLength:
 * room on input, at most 1792 bytes on SLI-4; the bytes read on output, also when the call fails. SLI-3 adapters
 * deliver whole words, so there only a multiple of 4 is read. mbStatus: out, mailbox status of the last command.
 * tContext1: context byte of the command, 0 (SLI-4 only).
 * Returns 0; 1 unknown SLI mode, a null pointer, or bytes that the adapter counted and the driver did not bring; else
 * the result of the mailbox command that failed.
 */
uint32_t getRegionData(uint32_t board, uint32_t type, uint32_t region, uint32_t offset, uint8_t *pBuffer,
                       uint32_t *pLength, uint16_t *mbStatus, uint32_t tContext1);

/*
 * The same on SLI-4 adapters, with the mailbox status as a result.
 * Returns also 3 for adapters below SLI-4 and unknown boards; 4 the region is not initialised; 5 it has no entry; 6 it
 * has no valid entry; 7 *pLength is 0.
 */
uint32_t HCX_IssueDumpMBox(uint32_t board, uint32_t type, uint32_t tContext1, uint32_t region,
                           uint32_t offset, uint8_t *pBuffer, uint32_t *pLength);

/*
 * Writes a region.
 * type: 2 (or 4). region_length: bytes of the region; pBuffer holds *pLength of them, zeros stand for the rest.
 * offset: not used. pLength: out, the bytes written. responseInfo: out, the adapter's response, 0 or negative.
 * pBuffer is not changed. Returns 0; 1 unknown SLI mode or a null pointer; 2 another type; else the result of the
 * mailbox command.
 */
uint32_t setRegionData(uint32_t board, uint32_t type, uint32_t region, uint32_t region_length,
                       uint32_t offset, uint8_t *pBuffer, uint32_t *pLength, int32_t *responseInfo);

/*
 * Writes a region on an SLI-4 adapter.
 * reqType: 2. Returns 0; 1 also for the types 1 and 3, and when not all bytes were written; 2 another type; 3 adapters
 * below SLI-4 and unknown boards.
 */
uint32_t HCX_IssueUpdateCfgMBox(uint32_t board, uint32_t reqType, uint32_t region, uint8_t *pBuffer,
                                uint32_t length, int32_t *pRespInfo);

/*
 * Reads region 23 and finds a record.
 * type: 0xa0, 0xa1, or 0xa2 for the record with this library's driver id, 0x0020. region_data: out, 1024 bytes.
 * offset: out, where the record begins; where the end mark stands when there is no such record; 0 for a region that
 * reads back empty; else -1. mbStatus: out, the mailbox status, or 0xfff7 for a region that reads back empty.
 * Returns 0; -2 no such record; -7 the records run out of the region; 1 the region is empty or shorter than 1024
 * bytes; 3 another signature; else the result of getRegionData().
 */
uint32_t get_r23_TLV(uint32_t board, uint32_t type, uint8_t *region_data, int32_t *offset,
                     uint16_t *mbStatus);

/*
 * Writes an empty region 23; what it held is lost.
 * region_data: out, its 1024 bytes. offset: out, 8, where its first record belongs; -1 when writing failed.
 * responseInfo: out, as from setRegionData(). Returns what that returns.
 */
uint32_t initRegion23(uint32_t board, uint8_t *region_data, int32_t *offset, int32_t *responseInfo);

/*
 * The steps below edit an image of region 23 in memory; none reads or writes outside of its 1024 bytes. option: 1 holds
 * the link down, any other value is normal. Each returns 0, or 1 and then, unless it says otherwise, has changed
 * nothing.
 *
 * Makes a drivers' record with a port status, and the end mark behind it, at the place of the end mark.
 */
uint32_t create_driver_specific(uint32_t option, int32_t offset, uint8_t *region_data);

/*
 * Writes the setting into the drivers' record at `offset`, which grows by a word when it has no port status yet; what
 * stands behind the record may be overwritten then. new_length: out, bytes of the record, also on failure.
 */
uint32_t rebuild_port_status(uint8_t *region_data, uint32_t option, int32_t offset, uint32_t *new_length);

/*
 * Copies an image without the drivers' record at `offset` to rebuild_data.
 * end_offset: out, the last place that looks like the end mark; offset + 4 on failure, after which rebuild_data may
 * hold a part only.
 */
uint32_t remove_driver_specific(uint8_t *region_data, uint8_t *rebuild_data, int32_t offset,
                                int32_t *end_offset);

/*
 * Appends the drivers' record at `offset` of region_data, driver_specific_length bytes, to rebuild_data at the place of
 * its end mark, and copies the whole back over region_data.
 * Returns 1 when record and end mark do not fit.
 */
uint32_t add_driver_specific(uint8_t *region_data, int32_t offset, uint8_t *rebuild_data,
                             int32_t rebuild_end_offset, uint32_t driver_specific_length);

/* ---- FCoE forwarders and parameters ---- */
/*
 * For FCoE ports. Records have the version 1; a call with another one sets it and returns 4. Results: 0; 1 error or
 * null pointer; 2 not an FCoE port; 3 no such board; 4 wrong version; 5 invalid flags; 7 more entries than there was
 * room for (or more than there may be). All but the first call read or write region 23, see there.
 */

/*
 * Lists the forwarders that the port knows.
 * pFCFList: in: version, numberOfEntries as room; out: the entries, how many there are, whether the port is logged in.
 * Returns 7 with the first entries when there are more. Reads the port's attributes, then sends one MBX_SLI_CONFIG
 * command (READ_FCF_TABLE) for each forwarder; a chain of forwarders that never ends is an error.
 */
uint32_t HCX_FCoEGetFCFList(uint32_t board, HCX_FCoEFCFList *pFCFList);

/*
 * Replaces the list of forwarders that the port may use.
 * pFCFConnectList: up to 16 entries with flags of 0x3f; none: any forwarder. vlanId goes into the region as it stands
 * in memory. Returns 5 for other flags, 7 for more entries (numberOfEntries is then 16); nothing is written then.
 */
uint32_t HCX_FCoESetFCFConnectList(uint32_t board, HCX_FCoEConnectList *pFCFConnectList);

/*
 * Reads that list. Entries come without flag 0x01; vlanId comes with its bytes exchanged against what was written.
 * A region that cannot be read, and one without list, gives no entries and 0.
 */
uint32_t HCX_FCoEGetFCFConnectList(uint32_t board, HCX_FCoEConnectList *pFCFConnectList);

/*
 * Writes the FIP parameters. VLanValid: VLAN_ID_VALID, or VLAN_ID_INVALID for no VLAN.
 */
uint32_t HCX_FCoESetParams(uint32_t board, HCX_FCoEParam *pParam);

/*
 * Reads the FIP parameters. VLanValid is always VLAN_ID_VALID, VLanId 0 where no VLAN is set. A region that cannot be
 * read, and one without parameters, gives the defaults (FC-MAP 0e fc 00) and 0.
 */
uint32_t HCX_FCoEGetParams(uint32_t board, HCX_FCoEParam *pParam);

/* ---- Persistent link down ---- */
/*
 * Whether a Fibre Channel port stays down across resets and reboots. Results: 0; 1 error or null pointer; 2 an FCoE
 * port, or one without a link of its own; 3 no such board, or its PCI device is unknown. Reads and writes region 23,
 * see there.
 */

/*
 * Writes the setting: 1 to hold the link down, 0 for normal.
 * A region 23 that was never written, or has another signature, is made anew and its contents are lost; all other
 * records are kept. An image that was not read whole, is damaged, or has no room, is not written.
 * Returns 4 for another value; else also the result of the mailbox command that wrote.
 */
uint32_t HCX_SetPersistLinkDown(uint32_t board, uint16_t linkDownConfig);

/*
 * Reads the setting, 0 where nothing is set.
 * Returns also 3 for a region of another signature, -7 where its records run out of it, and the result of the mailbox
 * command that failed.
 */
uint32_t HCX_GetPersistLinkDown(uint32_t board, uint16_t *linkDownConfig);

/* ---- FCP priority and quality of service ---- */
/*
 * Results: 0; 1 error, a null pointer, or a table of more than 64 KiB; 2 not supported; 3 no such board.
 */

/*
 * Replaces the priority table.
 * pQosConfig: in; out ordered from the most specific entry to the least (order_fcp_priority_list()).
 * Returns also what send_bsg_set_fcp_priority() returns.
 */
uint32_t HCX_QoSSetConfig(uint32_t board, HCX_QoSConfig *pQosConfig);

/*
 * Reads the priority table.
 * pQosConfig: in numberOfEntries as room; out the driver's count, and as many entries as there was room for.
 * Returns 7 when there are more; also what send_bsg_get_fcp_priority() returns.
 */
uint32_t HCX_QoSGetConfig(uint32_t board, HCX_QoSConfig *pQosConfig);

/* Switches priorities on (1) or off (0). Writes "vosk_enable_fcp_priority" of the SCSI host. */
uint32_t HCX_QoSSetGlobalFlag(uint32_t board, uint32_t flag);

/* Reads that switch. Returns 2 when the driver has none, 1 when it is neither 0 nor 1 (*pflag is set all the same). */
uint32_t HCX_QoSGetGlobalFlag(uint32_t board, uint32_t *pflag);

/*
 * Speed of the logical link as the adapter's description has it, a tenth of the number there; 0xffff: unknown.
 * Returns 2 for adapters other than SLI-4, 1 when the description is missing or has no number. Reads the inventory.
 */
uint32_t HCX_GetQoSLinkSpeed(uint32_t board, uint16_t *pQoSSpeed);

/*
 * Orders a table in place: fully specified entries, then those with an open LUN range, any LUN, any target, any source;
 * of one kind, the last one given comes first. Returns 0; 1 no memory, null pointer or too many entries.
 */
int order_fcp_priority_list(HCX_QoSConfig *pQosConfig);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
