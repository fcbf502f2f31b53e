// SPDX-License-Identifier: BSD-3-Clause
// Requests of the FC transport to remote ports: CT and ELS, and RNID on top of it. No state; any thread that
// holds no host lock.
#include <errno.h>

#include <algorithm>

#include "hcx_bsg_request.h"

namespace {

using hcx::bsg::default_timeout;
using hcx::bsg::Kind;
using hcx::bsg::Request;

constexpr uint32_t accepted = 0, rejected = 1;  // fc_bsg_ctels_reply.status

constexpr Kind els = {FC_BSG_RPT_ELS,           0, 20, 16, "%s - out of memory", "%s - ioctl failed x%08x",
                      "%s - reply result x%08x"};
constexpr Kind ct = {FC_BSG_RPT_CT, 0, 20, 16, "%s - out of memory", nullptr, "%s - reply result x%08x"};

constexpr uint8_t ELS_RNID = 0x78;
constexpr uint8_t RNID_GENERAL_TOPOLOGY = 0xdf;

// What an ELS request that got an answer came to.
struct ElsAnswer {
  uint32_t status;    // accepted or rejected
  uint32_t received;  // bytes in the caller's buffer
};

int ct_exchange(const char *caller, int fd, const uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                uint32_t outcnt, uint32_t timeout) {
  if ((!inbuf && incnt) || (!outbuf && outcnt) || outcnt > INT32_MAX) return -EINVAL;
  Request request(caller, ct);
  if (!request.prepare(timeout)) return -EINVAL;
  request.send(inbuf, incnt);
  request.receive(outbuf, outcnt);
  const int rc = request.exchange(fd);
  if (request.unanswered()) libhcx_syslog(LOG_ERROR, "%s - ioctl failed fd %d with rc x%08x", caller, fd, rc);
  if (rc < 0) return request.unanswered() ? rc : request.result();
  libhcx_syslog(LOG_BSG, "%s - receive length %d", caller, static_cast<int>(request.received()));
  return static_cast<int>(request.received());
}

int els_exchange(const char *caller, uint32_t board, const DestID &dest, const uint8_t *reqbuf,
                 uint32_t reqsize, uint8_t *rspbuf, uint32_t rspsize, ElsAnswer *answer) {
  Request request(caller, els);
  if (!request.prepare(default_timeout)) return -1;
  request.request()->rqst_data.r_els.els_code = reqbuf[0];
  request.send(reqbuf, reqsize);
  request.receive(rspbuf, rspsize);
  HBA_WWN wwn = dest.wwn;
  const hcx::Fd fd(dest.type == 1 ? map_did_to_bsg(static_cast<int>(board), static_cast<int>(dest.d_id))
                                  : map_wwn_to_bsg(static_cast<int>(board), wwn.wwn));
  if (!fd.ok()) return -1;
  const int rc = request.exchange(fd.get());
  const auto reply = request.answer<fc_bsg_ctels_reply>();
  if (rc != 0 && (request.unanswered() || reply.status != rejected)) return -1;
  *answer = {reply.status, request.received()};
  if (reply.status != rejected) return 0;
  libhcx_syslog(LOG_BSG, "%s - reply result FC_CTELS_STATUS_REJECT", caller);
  const uint8_t record[8] = {rejected,
                             0,
                             0,
                             0,
                             reply.rjt_data.action,
                             reply.rjt_data.reason_code,
                             reply.rjt_data.reason_explanation,
                             reply.rjt_data.vendor_unique};
  answer->received = std::min<uint32_t>(sizeof record, rspsize);
  if (answer->received) memcpy(rspbuf, record, answer->received);
  return 0;
}

}  // namespace

int send_bsg_ct(int fd, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf, uint32_t outcnt) {
  HCX_TRACE();
  return ct_exchange(__func__, fd, inbuf, incnt, outbuf, outcnt, default_timeout);
}

int send_bsg_ct_to_wwn(uint32_t board, uint8_t *wwn, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                       uint32_t outcnt, uint32_t tmo) {
  HCX_TRACE();
  const hcx::Fd fd(map_wwn_to_bsg(static_cast<int>(board), wwn));
  if (!fd.ok()) return fd.get();
  return ct_exchange("send_bsg_ct", fd.get(), inbuf, incnt, outbuf, outcnt, tmo ? tmo : default_timeout);
}

int send_bsg_ct_to_did(uint32_t board, uint32_t portid, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                       uint32_t outcnt) {
  HCX_TRACE();
  const hcx::Fd fd(map_did_to_bsg(static_cast<int>(board), static_cast<int>(portid)));
  if (!fd.ok()) return fd.get();
  return send_bsg_ct(fd.get(), inbuf, incnt, outbuf, outcnt);
}

int send_bsg_els(uint32_t board, DestID *destID, uint8_t *reqbuf, uint32_t reqsize, uint8_t *rspbuf,
                 uint32_t *rspsize) {
  HCX_TRACE();
  if (!destID || !reqbuf || !reqsize || !rspsize || (!rspbuf && *rspsize)) return -1;
  ElsAnswer answer;
  if (els_exchange(__func__, board, *destID, reqbuf, reqsize, rspbuf, *rspsize, &answer) != 0) return -1;
  if (answer.status == rejected) *rspsize = answer.received;
  return 0;
}

uint32_t send_bsg_els_rnid(uint32_t board, HBA_WWN *wwn, HBA_WWNTYPE wwntype, void *pRspBuffer,
                           HBA_UINT32 *RspBufferSize) {
  HCX_TRACE();
  if (!wwn || !RspBufferSize || (!pRspBuffer && *RspBufferSize)) return HBA_STATUS_ERROR;
  DestID dest = {};
  dest.type = 1;
  if (map_wwn_to_port_id(static_cast<int>(board), wwntype, wwn->wwn, &dest.d_id) != 0)
    return HBA_STATUS_ERROR;
  const uint8_t rnid[8] = {ELS_RNID, 0, 0, 0, RNID_GENERAL_TOPOLOGY};
  ElsAnswer answer;
  if (els_exchange(__func__, board, dest, rnid, sizeof rnid, static_cast<uint8_t *>(pRspBuffer),
                   *RspBufferSize, &answer) != 0) {
    return HBA_STATUS_ERROR;
  }
  *RspBufferSize = answer.received;
  return answer.status == accepted ? HBA_STATUS_OK : HBA_STATUS_ERROR;
}
