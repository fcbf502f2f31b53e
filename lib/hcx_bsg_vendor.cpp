// SPDX-License-Identifier: BSD-3-Clause
// The driver's vendor commands but for the mailbox: events, loopback, revision, bridge chip, FCP priority.
// Each is a row of sizes and wordings and a few lines for what it carries. No state; any thread that holds no
// host lock.
#include <errno.h>
#include <scsi/sg.h>

#include <cstddef>

#include "hcx_bsg_request.h"

namespace {

using hcx::bsg::default_timeout;
using hcx::bsg::Kind;
using hcx::bsg::no_node;
using hcx::bsg::Request;

constexpr char no_memory[] = "%s - out of memory";
constexpr char no_loopback_memory[] = "%s - req malloc failed";
constexpr char ioctl_failed[] = "%s - ioctl failed x%08x";
constexpr char bad_result[] = "%s - reply result x%08x";

constexpr Kind vendor(uint32_t command, uint32_t request_len, uint32_t reply_len,
                      const char *memory = no_memory, const char *ioctl = ioctl_failed,
                      const char *result = bad_result) {
  return {FC_BSG_HST_VENDOR, command, request_len, reply_len, memory, ioctl, result};
}

constexpr Kind set_event = vendor(VOSK_BSG_VENDOR_SET_CT_EVENT, 36, 24);
constexpr Kind get_event = vendor(VOSK_BSG_VENDOR_GET_CT_EVENT, 32, 24);
constexpr Kind mgmt_response =
    vendor(VOSK_BSG_VENDOR_SEND_MGMT_RESP, 28, 24, no_memory, "%s - ioctl failed with rc x%08x");
constexpr Kind set_loopback = vendor(VOSK_BSG_VENDOR_DIAG_MODE, 32, 16, no_loopback_memory);
constexpr Kind run_loopback = vendor(VOSK_BSG_VENDOR_DIAG_TEST, 24, 16, no_loopback_memory);
constexpr Kind end_loopback =
    vendor(VOSK_BSG_VENDOR_DIAG_MODE_END, 32, 16, no_loopback_memory, "%s - bsg ioctl failed x%08x");
constexpr Kind mgmt_rev =
    vendor(VOSK_BSG_VENDOR_GET_MGMT_REV, 24, 24, no_memory, ioctl_failed, "%s - result x%08x");
constexpr Kind bridge_command = vendor(VOSK_BSG_VENDOR_TIBRA_CMD, 28, 20);
constexpr Kind bridge_data = vendor(VOSK_BSG_VENDOR_TIBRA_DATA, 28, 20);
constexpr Kind get_priority = vendor(VOSK_BSG_VENDOR_GET_FCP_PRIORITY, 28, 16);
constexpr Kind set_priority = vendor(VOSK_BSG_VENDOR_SET_FCP_PRIORITY, 28, 16);

// Whether a bridge chip request is a command, whose answer brings an exchange number, or the data that go
// with one.
constexpr int command_phase = 0, data_phase = 1;

// Bytes of a priority table; more than 32 bits hold is refused by the callers.
uint64_t table_size(const HCX_QoSConfig &table) {
  return sizeof table.numberOfEntries + uint64_t{table.numberOfEntries} * sizeof(HCX_QoSEntry);
}
static_assert(sizeof(HCX_QoSEntry) == 36 && offsetof(HCX_QoSConfig, fcQoSEntry) == 4);

// Of the errno or result of a set-event request and the length in its reply.
int set_event_result(int error, uint32_t length) {
  if (error == -EAGAIN || error == -ETIMEDOUT) return -EAGAIN;
  if (error != 0) return -EIO;
  if (length == 0) return -EAGAIN;
  return length <= INT32_MAX ? static_cast<int>(length) : INT32_MAX;
}
constexpr size_t set_event_req_id =
    offsetof(fc_bsg_request, rqst_data.h_vendor.vendor_cmd) + offsetof(set_ct_event, ev_req_id);

// The node to ask for the revision: board 0's, or the first physical host's while no board has a number. Nothing of
// the inventory is asked for, so that it need not be fresh: start-up would read its first board twice.
int open_any_board() {
  if (const hcx::HostRef board = hcx::board_host(0)) {
    const int fd = map_host_to_bsg(board.get());
    return fd > 0 ? fd : no_node;
  }
  for (hcx_host *host = hcx::host_list(); host; host = host->next) {
    if (!hcx::is_physical_port(hcx::Text<20>("host%u", host->id).c_str())) continue;
    const int fd = map_host_to_bsg(host);
    return fd > 0 ? fd : no_node;
  }
  return no_node;
}

// The response and, on failure, what the driver said to it.
int answer_ct_request(const char *caller, uint32_t board, const uint8_t *outbuf, uint32_t outcnt,
                      uint32_t tag, int *error) {
  Request request(caller, mgmt_response);
  *error = EIO;
  if (!outbuf && outcnt) return -EIO;
  if (!request.prepare(default_timeout, send_mgmt_resp{mgmt_response.command, tag})) return -EIO;
  request.send(outbuf, outcnt);
  const int rc = request.exchange_on_board(board);
  if (request.error()) *error = -request.error();
  return rc;
}

}  // namespace

namespace hcx::bsg {

bool prepare(CtWait *wait, uint32_t gs_type, uint32_t ev_reg_id) {
  auto *request = reinterpret_cast<fc_bsg_request *>(wait->request);
  memset(wait, 0, sizeof *wait);
  if (bsg_init_header(&wait->header, request, reinterpret_cast<fc_bsg_reply *>(wait->reply),
                      static_cast<int>(set_event.code), static_cast<int>(set_event.command),
                      default_timeout) != 0) {
    return false;
  }
  static_assert(sizeof wait->request == set_event.request_len && sizeof wait->reply == set_event.reply_len);
  wait->header.request_len = set_event.request_len;
  request->msgcode = set_event.code;
  request->rqst_data.h_vendor.vendor_id = VOSK_BSG_VENDOR_ID;
  const set_ct_event record{set_event.command, gs_type, 0, ev_reg_id};
  memcpy(request->rqst_data.h_vendor.vendor_cmd, &record, sizeof record);
  return true;
}

int exchange(CtWait *wait, int fd, uint32_t ev_req_id) {
  // The block may have moved since it was prepared.
  memcpy(wait->request + set_event_req_id, &ev_req_id, sizeof ev_req_id);
  memset(wait->reply, 0, sizeof wait->reply);
  wait->header.request = reinterpret_cast<uintptr_t>(wait->request);
  wait->header.response = reinterpret_cast<uintptr_t>(wait->reply);
  const int rc = sysio::machine().ioctl(fd, SG_IO, &wait->header);
  fc_bsg_reply reply;
  memcpy(&reply, wait->reply, sizeof reply);
  const auto result = static_cast<int32_t>(reply.result);
  return set_event_result(rc < 0 ? rc : result, reply.reply_payload_rcv_len);
}

}  // namespace hcx::bsg

int send_bsg_set_event(int fd, uint32_t type_mask, uint32_t ev_req_id, uint32_t ev_reg_id) {
  HCX_TRACE();
  Request request(__func__, set_event);
  if (!request.prepare(default_timeout, set_ct_event{set_event.command, type_mask, ev_req_id, ev_reg_id}))
    return -EIO;
  const int rc = request.exchange(fd);
  const uint32_t length = request.reply()->reply_payload_rcv_len;
  if (rc == 0 && length == 0) {
    // The board is not known here; the descriptor tells the lines of two boards apart.
    HCX_LOG(LOG_ERROR, "board %d no reply payload length, try again", fd);
  }
  return set_event_result(rc, length);
}

int send_bsg_get_event(uint32_t board, uint32_t ev_reg_id, uint32_t ev_req_id, void *outbuf, uint32_t outsz,
                       uint32_t *immed_data, uint32_t *type) {
  HCX_TRACE();
  if ((!outbuf && outsz) || outsz > INT32_MAX || !immed_data || !type) return -EIO;
  Request request(__func__, get_event);
  if (!request.prepare(default_timeout, get_ct_event{get_event.command, ev_reg_id, ev_req_id})) return -EIO;
  request.receive(outbuf, outsz);
  const int rc = request.exchange_on_board(board);
  if (rc < 0) return rc;
  const auto reply = request.answer<get_ct_event_reply>();
  *immed_data = reply.immed_data;
  *type = reply.type;
  HCX_LOG(LOG_BSG, "outsize %d tag x%08x", static_cast<int>(request.received()), reply.immed_data);
  return static_cast<int>(request.received());
}

int send_bsg_mgmt_response(uint32_t board, uint8_t *outbuf, uint32_t outcnt, uint32_t tag) {
  HCX_TRACE();
  HCX_LOG(LOG_BSG, "outcnt %d tag x%08x", static_cast<int>(outcnt), tag);
  int error;
  const int rc = answer_ct_request(__func__, board, outbuf, outcnt, tag, &error);
  if (rc != 0) errno = error;
  return rc;
}

int send_bsg_config_loopback(uint32_t board, uint32_t type, uint32_t timeout) {
  HCX_TRACE();
  Request request(__func__, set_loopback);
  if (!request.prepare(timeout, diag_mode_set{set_loopback.command, type, timeout})) return -EIO;
  return request.exchange_on_board(board);
}

int send_bsg_test_loopback(uint32_t board, uint32_t bufSize, void *XmitBuffer, void *RcvBuffer) {
  HCX_TRACE();
  if (bufSize && (!XmitBuffer || !RcvBuffer)) return -EIO;
  Request request(__func__, run_loopback);
  if (!request.prepare(default_timeout, diag_mode_test{run_loopback.command})) return -EIO;
  request.send(XmitBuffer, bufSize);
  request.receive(RcvBuffer, bufSize);
  return request.exchange_on_board(board);
}

int send_bsg_sli4_endloopback(uint32_t board) {
  HCX_TRACE();
  Request request(__func__, end_loopback);
  if (!request.prepare(default_timeout, diag_mode_set{end_loopback.command, 0, default_timeout})) return -EIO;
  return request.exchange_on_board(board);
}

int send_bsg_get_mgmt_rev(uint32_t *major, uint32_t *minor) {
  HCX_TRACE();
  if (!major || !minor) return -EIO;
  Request request(__func__, mgmt_rev);
  if (!request.prepare(default_timeout, get_mgmt_rev{mgmt_rev.command})) return -EIO;
  request.reply()->reply_payload_rcv_len = mgmt_rev.reply_len;
  const hcx::Fd fd(open_any_board());
  if (!fd.ok()) return no_node;
  if (request.exchange(fd.get()) != 0) return -EIO;
  const MgmtRevInfo revision = request.answer<get_mgmt_rev_reply>().info;
  HCX_LOG(LOG_BSG, "major %d minor %d", static_cast<int>(revision.a_Major),
          static_cast<int>(revision.a_Minor));
  *major = revision.a_Major;
  *minor = revision.a_Minor;
  return 0;
}

int send_bsg_tibra_command(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf,
                           uint32_t *rsp_size, uint32_t *xri, int type) {
  HCX_TRACE();
  if ((!cmd_buf && cmd_size) || !rsp_size || (!rsp_buf && *rsp_size) || !xri) return -EIO;
  if (type != command_phase && type != data_phase) return -EIO;
  const Kind &kind = type == command_phase ? bridge_command : bridge_data;
  Request request(__func__, kind);
  if (!request.prepare(default_timeout, tibra_command{kind.command, *xri})) return -EIO;
  request.send(cmd_buf, cmd_size);
  request.receive(rsp_buf, *rsp_size);
  const int rc = request.exchange_on_board(board);
  if (rc < 0) return rc;
  *xri = request.answer<tibra_response>().xri;
  *rsp_size = request.received();
  HCX_LOG(LOG_BSG, "xri x%08x", *xri);
  return 0;
}

int send_bsg_get_fcp_priority(uint32_t board, HCX_QoSConfig *pQosConfig) {
  HCX_TRACE();
  if (!pQosConfig || table_size(*pQosConfig) > INT32_MAX) return -EIO;
  Request request(__func__, get_priority);
  if (!request.prepare(default_timeout,
                       get_vosk_fcp_pri_rules{get_priority.command, pQosConfig->numberOfEntries})) {
    return -EIO;
  }
  request.receive(pQosConfig, static_cast<uint32_t>(table_size(*pQosConfig)));
  return request.exchange_on_board(board);
}

int send_bsg_set_fcp_priority(uint32_t board, HCX_QoSConfig *pQosConfig) {
  HCX_TRACE();
  constexpr uint32_t padding = 4;  // the driver takes four bytes more than the table has
  if (!pQosConfig || table_size(*pQosConfig) + padding > INT32_MAX) return -EIO;
  const auto size = static_cast<uint32_t>(table_size(*pQosConfig));
  const auto table = hcx::heap_array<uint8_t>(size + padding);
  if (!table) {
    HCX_LOG(LOG_ERROR, "out of memory");
    return -EIO;
  }
  memcpy(table.get(), pQosConfig, size);
  Request request(__func__, set_priority);
  if (!request.prepare(default_timeout,
                       set_vosk_fcp_pri_rules{set_priority.command, pQosConfig->numberOfEntries})) {
    return -EIO;
  }
  request.send(table.get(), size + padding);
  return request.exchange_on_board(board);
}
