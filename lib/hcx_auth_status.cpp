// SPDX-License-Identifier: BSD-3-Clause
// FC-SP status as the driver tells it, and the request to authenticate now. No state; any thread.
#include <cstring>

#include "hcx_auth_call.h"
#include "hcx_util_attr.h"
#include "libhcx.h"

namespace hcx::auth {
namespace {

struct StateWord {
  const char *begins;
  uint8_t state;
  uint8_t reason;  // 0: not written
};

// Searched in this order, by how the driver's text begins: "LS_RJT Busy" is reported as "LS_RJT".
constexpr StateWord state_words[] = {
    {"Not Authenticated", 1, 0},
    {"Authenticating", 2, 0},
    {"Authenticated", 3, 0},
    {"Failed - ELS Timeout", 4, 2},
    {"Failed - Transaction Timeout", 4, 3},
    {"Failed - LS_RJT", 4, 4},
    {"Failed - LS_RJT Busy", 4, 5},
    {"Failed - AUTH RJT", 4, 6},
    {"", 4, 1},
};

bool begins(const char *text, const char *with) {
  return strncmp(text, with, strlen(with)) == 0;
}

const StateWord &state_of(const char *text) {
  const StateWord *word = state_words;
  while (!begins(text, word->begins))
    ++word;
  return *word;
}

// What was negotiated. A field whose attribute tells nothing known stays as the caller had it.
void read_negotiated(const char *dir, HCX_AUTHSTATUS &status) {
  Text<128> text;
  const auto read = [&](const char *file) {
    attr_read_str(dir, file, text.data(), text.size());
    return text.c_str();
  };
  if (read("auth_protocol")[0] == '1') status.auth_type = 1;
  const char group = read("auth_dhgroup")[0];
  if (group >= '0' && group <= '4') status.dhGroup = static_cast<uint8_t>(group - '0' + 1);
  const char hash = read("auth_hash")[0];
  if (hash == '5' || hash == '6') status.hash = hash == '5' ? 1 : 2;
  const char *direction = read("auth_dir");
  if (begins(direction, "Local") || begins(direction, "Bidi")) status.localAuth = 1;
  if (begins(direction, "Remote") || begins(direction, "Bidi")) status.remoteAuth = 1;
  if (const auto seconds = scan_decimal(read("auth_last"))) status.time_from_last_auth = *seconds;
  if (const auto seconds = scan_decimal(read("auth_next"))) status.time_until_next_auth = *seconds;
}

}  // namespace
}  // namespace hcx::auth

using namespace hcx::auth;

uint32_t HCX_GetAuthStatus(uint32_t, HCX_AUTHSTATUS *pStatus) {
  HCX_TRACE();
  if (!pStatus) return HCX_AUTH_BAD_CONFIG;
  uint32_t host_no;
  if (uint32_t result = find_auth_host(hcx::wwn_load(pStatus->local_entity.wwn), HCX_AUTH_ERROR, host_no)) {
    return result;
  }
  pStatus->auth_state = 1;
  if (hcx::wwn_load(pStatus->remote_entity.wwn) != UINT64_MAX) return HCX_AUTH_NO_PORT;
  const hcx::Path dir = hcx::scsi_host_dir(host_no);
  hcx::Text<128> text;
  hcx::attr_read_str(dir.c_str(), "auth_state", text.data(), text.size());
  const StateWord &word = state_of(text.c_str());
  pStatus->auth_state = word.state;
  if (word.reason) pStatus->auth_failReason = word.reason;
  if (word.state == 3) read_negotiated(dir.c_str(), *pStatus);
  return HCX_AUTH_OK;
}

uint32_t HCX_InitiateAuthentication(uint32_t, HBA_WWN hba_wwpn, HBA_WWN tgt_wwpn) {
  HCX_TRACE();
  uint32_t host_no;
  if (uint32_t result = find_auth_host(hcx::wwn_load(hba_wwpn.wwn), HCX_AUTH_ERROR, host_no)) return result;
  const hcx::Text<20> name("%llX", static_cast<unsigned long long>(hcx::wwn_load(tgt_wwpn.wwn)));
  const int rc = hcx::attr_write_str(hcx::scsi_host_dir(host_no).c_str(), "vosk_authenticate", name.c_str());
  return rc == 0 ? HCX_AUTH_OK : HCX_AUTH_ERROR;
}

uint32_t HCX_EnableAuthentication(uint32_t) {
  HCX_TRACE();
  return HCX_AUTH_NOT_SUPPORTED;
}

uint32_t HCX_DisableAuthentication(uint32_t) {
  HCX_TRACE();
  return HCX_AUTH_NOT_SUPPORTED;
}
