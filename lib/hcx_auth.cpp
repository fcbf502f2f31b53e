// SPDX-License-Identifier: BSD-3-Clause
// FC-SP configuration: the CONFIG lines of the authentication daemon's file, one for each pair of local port
// and remote entity. Messages go to standard output, as administrators' scripts expect them there. No state;
// any thread.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "hcx_auth_call.h"
#include "libhcx.h"

namespace hcx::auth {
namespace {

constexpr int min_timeout = 20;
constexpr int max_timeout = 999;
constexpr uint32_t min_interval = 10;
constexpr uint32_t max_interval = 3600;
constexpr unsigned brake_us = 3000000;

// What the file holds may have been written by hand: bring it into range and say so.
void take_fields(const ConfigFields &fields, KRX_FCSP_CONFIG &config) {
  int timeout = fields.timeout;
  if (timeout < min_timeout || timeout > max_timeout) {
    printf("CFG FILE ERROR: Invalid Authentication Timeout\n");
    timeout = timeout < min_timeout ? min_timeout : max_timeout;
  }
  config.authentication_timeout = static_cast<uint16_t>(timeout);
  config.authentication_mode = static_cast<uint8_t>(fields.mode);
  config.bidirectional = fields.bidirectional & 1;
  uint32_t interval = static_cast<uint32_t>(fields.interval);
  if (interval != 0 && (interval < min_interval || interval > max_interval)) {
    printf("CFG FILE ERROR: Invalid Reauthentication interval\n");
    interval = interval < min_interval ? min_interval : max_interval;
  }
  config.reauthenticate_time_interval = interval;
  if (fields.type_count < 1) printf("CFG FILE ERROR: Must have 1-5 Authentication types\n");
  if (fields.hash_count < 1) printf("CFG FILE ERROR: Must have 1-5 Hash functions\n");
  if (fields.group_count < 1) printf("CFG FILE ERROR: Must have 1-8 DH groups\n");
  memcpy(config.authentication_type_priority, fields.types, sizeof(fields.types));
  memcpy(config.hash_priority, fields.hashes, sizeof(fields.hashes));
  memcpy(config.dh_group_priority, fields.groups, sizeof(fields.groups));
}

void adjust_scalars(KRX_FCSP_CONFIG &config) {
  if (config.authentication_timeout < min_timeout) {
    puts("Adjusting Authentication Timeout to Minimum value.");
    config.authentication_timeout = min_timeout;
  } else if (config.authentication_timeout > max_timeout) {
    puts("Adjusting Authentication Timeout to Maximum value.");
    config.authentication_timeout = max_timeout;
  }
  if (config.authentication_mode < 1 || config.authentication_mode > 3) {
    puts("Authentication Mode Invalid: Setting to default.");
    config.authentication_mode = 1;
  }
}

bool check_lists(const KRX_FCSP_CONFIG &config) {
  if (config.authentication_type_priority[0] == 0) {
    puts("ERROR:First Authentication Type Not Set.");
    return false;
  }
  for (uint8_t type : config.authentication_type_priority) {
    if (type <= 5) continue;
    puts("ERROR:Unknown Authentication Type.");
    return false;
  }
  if (config.hash_priority[0] == 0) {
    puts("ERROR:First Hash Not Set.");
    return false;
  }
  for (int i = 0; i < 4; ++i) {
    if (config.hash_priority[i] <= 2) continue;
    printf("ERROR:Unknown Hash. %d:%d\n", i, config.hash_priority[i]);
    return false;
  }
  // The first group is taken as it is: the daemon knows groups that we do not.
  for (int i = 1; i < 8; ++i) {
    if (config.dh_group_priority[i] <= 5) continue;
    puts("ERROR:Unknown DH Group.");
    return false;
  }
  return true;
}

void adjust_interval(KRX_FCSP_CONFIG &config) {
  uint32_t &interval = config.reauthenticate_time_interval;
  if (interval > 0 && interval < min_interval) {
    puts("Adjusting Re-Authentication Interval to MIN value.");
    interval = min_interval;
  } else if (interval > max_interval) {
    puts("Adjusting Re-Authentication Interval to MAX value.");
    interval = max_interval;
  }
}

class SetConfig final : public Editor {
 public:
  explicit SetConfig(const KRX_FCSP_CONFIG &config) : config_(config) {}

  uint32_t line(const ConfLine &line, Secret &out) override {
    if (line.kind != Kind::config || !line.of_pair(config_.local_entity, config_.remote_entity)) {
      return out.append(line.text) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
    }
    return put(out);
  }
  uint32_t end(Secret &out) override { return put(out); }

 private:
  // Once: further lines of the pair are dropped.
  uint32_t put(Secret &out) {
    if (done_) return HCX_AUTH_OK;
    done_ = true;
    return format_config(config_, out) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
  }

  const KRX_FCSP_CONFIG &config_;
  bool done_ = false;
};

class DeletePair final : public Editor {
 public:
  DeletePair(uint64_t local, uint64_t remote) : local_(local), remote_(remote) {}

  uint32_t line(const ConfLine &line, Secret &out) override {
    if (line.kind != Kind::other && line.of_pair(local_, remote_)) return HCX_AUTH_OK;
    return out.append(line.text) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
  }
  uint32_t end(Secret &) override { return HCX_AUTH_OK; }

 private:
  uint64_t local_;
  uint64_t remote_;
};

// A change needs the pair's local password.
uint32_t authorise(uint64_t local, uint64_t remote, AUTH_PASSWD_INFO *password) {
  if (check_password(password)) return HCX_AUTH_BAD_PASSWORD;
  return brake(verify_password(local, remote, password, nullptr));
}

}  // namespace

uint32_t brake(int verified) {
  if (verified == HCX_AUTH_OK || verified == HCX_AUTH_NO_ENTRY) return HCX_AUTH_OK;
  sysio::machine().sleep_us(brake_us);
  return HCX_AUTH_BAD_CREDENTIALS;
}

uint32_t find_auth_host(uint64_t local_entity, uint32_t no_host, uint32_t &host_no) {
  HBA_WWN wwpn;
  wwn_store(wwpn.wwn, local_entity);
  const int found = hcx_get_host_id(&wwpn);
  if (found < 0) return no_host;
  host_no = static_cast<uint32_t>(found);
  if (attr_read_uint(scsi_host_dir(host_no).c_str(), "vosk_enable_auth") == 0) return HCX_AUTH_ERROR;
  return HCX_AUTH_OK;
}

}  // namespace hcx::auth

using namespace hcx::auth;

uint32_t HCX_GetAuthConfig(uint32_t, KRX_FCSP_CONFIG *config) {
  HCX_TRACE();
  if (!config) return HCX_AUTH_BAD_CONFIG;
  uint32_t host_no;
  if (uint32_t result = find_auth_host(config->local_entity, HCX_AUTH_ERROR, host_no)) return result;
  hcx::Secret content;
  if (!load_or_complain(content)) return HCX_AUTH_ERROR;
  std::string_view rest = content.view();
  ConfLine line;
  ConfigFields fields;
  while (next_line(rest, line)) {
    if (line.kind != Kind::config || !line.of_pair(config->local_entity, config->remote_entity)) continue;
    if (!parse_config(line.text, fields)) continue;
    take_fields(fields, *config);
    return HCX_AUTH_OK;
  }
  return HCX_AUTH_NO_ENTRY;
}

uint32_t HCX_SetAuthConfig(uint32_t, KRX_FCSP_CONFIG *config, AUTH_PASSWD_INFO *password) {
  HCX_TRACE();
  if (!config) return HCX_AUTH_BAD_CONFIG;
  uint32_t host_no;
  if (uint32_t result = find_auth_host(config->local_entity, HCX_AUTH_ERROR, host_no)) return result;
  if (uint32_t result = authorise(config->local_entity, config->remote_entity, password)) return result;
  adjust_scalars(*config);
  if (!check_lists(*config)) return HCX_AUTH_BAD_CONFIG;
  adjust_interval(*config);
  SetConfig editor(*config);
  return rewrite(editor);
}

uint32_t HCX_GetAuthConfigList(uint32_t, HBA_WWN hba_wwpn, HCX_AUTHCONFIGLIST *pList) {
  HCX_TRACE();
  if (!pList) return HCX_AUTH_BAD_CONFIG;
  const uint64_t local = hcx::wwn_load(hba_wwpn.wwn);
  uint32_t host_no;
  if (uint32_t result = find_auth_host(local, HCX_AUTH_NO_PORT, host_no)) return result;
  hcx::Secret content;
  if (!load_or_complain(content)) return HCX_AUTH_ERROR;
  const uint32_t room = pList->numberOfEntries;
  HBA_WWN *entities = pList->entity;
  uint32_t count = 0;
  std::string_view rest = content.view();
  ConfLine line;
  while (next_line(rest, line)) {
    if (line.kind != Kind::config || !line.paired || line.local != local) continue;
    if (count < room) hcx::wwn_store(entities[count].wwn, line.remote);
    ++count;
  }
  pList->numberOfEntries = count;
  return HCX_AUTH_OK;
}

uint32_t HCX_DeleteAuthConfig(uint32_t, HBA_WWN hba_wwpn, HBA_WWN tgt_wwpn, AUTH_PASSWD_INFO *password) {
  HCX_TRACE();
  const uint64_t local = hcx::wwn_load(hba_wwpn.wwn);
  const uint64_t remote = hcx::wwn_load(tgt_wwpn.wwn);
  uint32_t host_no;
  if (uint32_t result = find_auth_host(local, HCX_AUTH_ERROR, host_no)) return result;
  if (uint32_t result = authorise(local, remote, password)) return result;
  DeletePair editor(local, remote);
  return rewrite(editor);
}

void write_config(FILE *fp, KRX_FCSP_CONFIG *config) {
  HCX_TRACE();
  if (!fp || !config) return;
  hcx::Secret line;
  if (format_config(*config, line)) fwrite(line.data(), 1, line.size(), fp);
}
