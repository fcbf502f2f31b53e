// SPDX-License-Identifier: BSD-3-Clause
// Rows for events, CT and ELS, virtual ports, authentication and the SAN diagnostic service.
#include "calls.h"

namespace calls {
namespace {

#define CT_REQUEST \
  { 1, 0, 0, 0, 0xfc, 2, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0 }

constexpr uint16_t kLatency = SD_IO_LATENCY_TYPE;
constexpr uint32_t kMilliseconds = 1000000;
constexpr HBA_WWN kOwn = {};

uint32_t registration = 0;

void on_event(uint32_t, LINKINFO *) {}
void on_ct(uint32_t, void *, uint32_t, uint32_t, uint32_t) {}
void on_diagnosis(uint32_t, HBA_WWN, uint32_t, uint32_t, void *, SD_event *) {}

uint32_t listen(Arguments &a) {
  return HCX_RegisterForEvent(a.board, FC_REG_LINK_EVENT | FC_REG_RSCN_EVENT, 0, 64,
                              reinterpret_cast<void (*)()>(on_event), nullptr);
}
uint32_t listen_for_ct(Arguments &a) {
  return RegisterForCTEvents(a.board, 0xfa, reinterpret_cast<void (*)()>(on_ct), nullptr,
                             a.record<uint32_t>());
}
void listening(Arguments &a) {
  registration = listen(a);
}
void listening_for_ct(Arguments &a) {
  registration = listen_for_ct(a);
}
void unheard(Arguments &a) {
  HCX_unRegisterForEvent(a.board, 0);
}

// Takes the events out of the board's ring.
void drained(Arguments &a) {
  uint32_t count = HCX_EVENT_RING_SIZE;
  GetEventBuffer(a.board, a.list<HBA_EVENTINFO, HBA_EVENTINFO>(count), &count);
}

// Virtual ports
HCX_VPAttrib *attributes(Arguments &a) {
  auto *attributes = a.record<HCX_VPAttrib>();
  a.scramble(attributes, sizeof *attributes);
  attributes->ver = HCX_VPATTRIB_VERSION;
  attributes->wwpn = attributes->wwnn = a.vport;
  return attributes;
}
void made(Arguments &a) {
  HCX_VPCreate(a.board, a.text("db1"), attributes(a));
}
void unmade(Arguments &a) {
  HCX_VPDelete(a.board, &a.vport, 0);
}

// Authentication
constexpr char kSecret[] = "secretsecret";
AUTH_PASSWD_INFO *secret(Arguments &a, std::string_view text = kSecret) {
  auto *password = a.record<AUTH_PASSWD_INFO>();
  password->type = HCX_AUTH_PASSWD_TEXT;
  password->length = static_cast<uint16_t>(text.size());
  memcpy(password->password, text.data(), text.size());
  return password;
}
KRX_FCSP_CONFIG *config(Arguments &a) {
  auto *config = a.record<KRX_FCSP_CONFIG>();
  config->local_entity = kLocal;
  config->remote_entity = kTarget;
  config->authentication_timeout = 99;
  config->authentication_mode = 1;
  config->authentication_type_priority[0] = config->hash_priority[0] = config->dh_group_priority[0] = 1;
  return config;
}
KRX_AUTH_PASSWD *passwords(Arguments &a) {
  auto *record = a.record<KRX_AUTH_PASSWD>();
  record->local_entity = kLocal;
  record->remote_entity = kTarget;
  record->current_local_passwd = *secret(a);
  record->new_local_passwd = *secret(a, "changedsecret");
  record->current_remote_passwd.type = record->new_remote_passwd.type = HCX_AUTH_PASSWD_IGNORE;
  return record;
}
template <class Write>
Result to_stream(Write write) {
  FILE *stream = fopen("/dev/null", "w");
  if (!stream) return -1;
  write(stream);
  return fclose(stream);
}

// The diagnostic service
void diagnosing(Arguments &a) {
  hcx_sd_init(a.list<HCX_BRDINFO, HCX_BRDINFO>(2), 2);
}
void diagnosed(Arguments &) {
  hcx_sd_deinit();
}
void with_buckets(Arguments &a) {
  diagnosing(a);
  HCX_SD_Set_Bucket(kLatency, SD_SEARCH_LINEAR, 10 * kMilliseconds, 5 * kMilliseconds);
}
void collecting(Arguments &a) {
  with_buckets(a);
  HCX_SD_Start_Data_Collection(a.board, kOwn, kLatency, nullptr);
}
void without_buckets(Arguments &a) {
  HCX_SD_Stop_Data_Collection(a.board, kOwn, kLatency);
  HCX_SD_Destroy_Bucket(kLatency);
  hcx_sd_deinit();
}
Result watch(Arguments &a) {
  return HCX_SD_RegisterForEvent(a.board, kOwn, SD_CATEGORY_ELS, SD_ELS_PLOGI, &registration, &registration,
                                 on_diagnosis);
}
void watching(Arguments &a) {
  diagnosing(a);
  watch(a);
}
// PLOGI received: the driver's words for the category and the kind, then the names.
uint32_t *plogi(Arguments &a) {
  auto *words = reinterpret_cast<uint32_t *>(a.bytes(64));
  words[0] = 1;
  words[1] = SD_ELS_PLOGI;
  return words;
}
Result with_own_lock(Result (*body)()) {
  const Result result = get_sd_lock();
  if (result != SD_OK) return result;
  return body();
}

const Call rows[] = {
    // CT, ELS, RNID
    HCX_CALL(open_voskhcx, open_voskhcx()),
    HCX_CALL(GetMgmtRev, GetMgmtRev(a.record<uint32_t>(), a.record<uint32_t>())),
    {"SendCTPassThru",
     [](Arguments &a) -> Result {
       Buffer in(a, CT_REQUEST), out(a, 300);
       const Result result = SendCTPassThru(a.board, in.data, in.size, out.data, &out.said);
       return out.check("SendCTPassThru"), result;
     }},
    {"GetCTInfo",
     [](Arguments &a) -> Result {
       Buffer in(a, CT_REQUEST), out(a, 300);
       return GetCTInfo(a.board, a.number<uint32_t>(0xfffffc), in.data, in.size, out.data, out.size);
     }},
    {"SendMgmtCommand",
     [](Arguments &a) -> Result {
       Buffer in(a, CT_REQUEST), out(a, 300);
       SendMgmtCommand(a.board, &a.target, in.data, in.size, out.data, &out.said, 10);
       return static_cast<int32_t>(out.said);
     }},
    {"SendMgmtResponse",
     [](Arguments &a) -> Result {
       Buffer out(a, CT_REQUEST);
       return SendMgmtResponse(a.board, out.data, out.size, 1);
     }},
    {"HCX_SendELSCmd",
     [](Arguments &a) -> Result {
       Buffer in(a, {0x78, 0, 0, 0, 0xdf, 0, 0, 0}), out(a, 300);
       DestID to = {a.number<uint32_t>(1, 0, 2), a.number<uint32_t>(kTargetId), a.target};
       const Result result = HCX_SendELSCmd(a.board, &to, in.data, in.size, out.data, &out.said);
       return out.check("HCX_SendELSCmd"), result;
     }},
    {"SendRNID",
     [](Arguments &a) -> Result {
       Buffer out(a, 300);
       const Result result = SendRNID(a.board, &a.target, a.number<uint32_t>(1, 0, 2), out.data, &out.said);
       return out.check("SendRNID"), result;
     }},
    HCX_CALL(GetRNIDMgmtInfo, GetRNIDMgmtInfo(a.board, a.record<HBA_MGMTINFO>())),
    HCX_CALL(SetRNIDMgmtInfo, SetRNIDMgmtInfo(a.board, a.record<HBA_MGMTINFO>())),

    // Events
    HCX_CALL(HCX_RegisterForEvent, listen(a) != 0, kLasting, nullptr, unheard),
    HCX_CALL(RegisterForEvent,
             RegisterForEvent(a.board, FC_REG_DUMP_EVENT | FC_REG_ALL_PORTS, 0, 64,
                              reinterpret_cast<void (*)()>(on_event), nullptr, a.record<uint32_t>()) != 0,
             kLasting, nullptr,
             [](Arguments &a) {
               for (const uint32_t board : {a.board, a.old_board, a.fcoe_board})
                 HCX_unRegisterForEvent(board, 0);
             }),
    HCX_CALL(RegisterForCTEvents, listen_for_ct(a) != 0, kLasting, nullptr, unheard),
    HCX_CALL(HCX_unRegisterForEvent, HCX_unRegisterForEvent(a.board, registration), kLasting, listening, unheard),
    HCX_CALL(unRegisterForEvent, unRegisterForEvent(a.board, registration), kLasting, listening, unheard),
    HCX_CALL(unRegisterForCTEvent, unRegisterForCTEvent(a.board, &registration), kLasting, listening_for_ct,
             unheard),
    {"GetEventBuffer",
     [](Arguments &a) -> Result {
       uint32_t count = 4;
       const Result result = GetEventBuffer(a.board, a.list<HBA_EVENTINFO, HBA_EVENTINFO>(count), &count);
       return result * 100 + count;
     },
     kLasting,
     [](Arguments &) {
       post_fc_event(3, 1, VOSKH_EVT_LINKUP, 0);
       post_fc_event(3, 2, VOSKH_EVT_RSCN, 0x010203);
     },
     drained},
    HCX_CALL(post_fc_event, post_fc_event(3, 1, VOSKH_EVT_LINKUP, 0), kLasting, nullptr, drained),
    {"signal_async_event_handler",
     [](Arguments &a) -> Result {
       auto *words = reinterpret_cast<uint32_t *>(a.bytes(16));
       words[0] = 0x61040008;
       return signal_async_event_handler(3, 1, VOSKH_EVT_RSCN, words, 16), 0;
     },
     kLasting, listening, unheard},

    // Virtual ports
    {"HCX_VPGetList",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint32_t>(4, 1, 4);
       auto *list = a.list<HCX_VPEntryList, HCX_VPEntry>(room);
       list->numberOfEntries = room;
       const Result result = HCX_VPGetList(a.board, list);
       return result * 100 + list->numberOfEntries;
     },
     0, made, unmade},
    HCX_CALL(HCX_VPGetResource, HCX_VPGetResource(a.board, a.record<HCX_VPResource>())),
    HCX_CALL(HCX_VPGetAttrib, HCX_VPGetAttrib(a.board, &a.vport, attributes(a)), 0, made, unmade),
    HCX_CALL(vpGetPhys, vpGetPhys(3, a.record<uint32_t>(), a.record<uint32_t>())),
    HCX_CALL(get_vport_name, get_vport_name(attributes(a), a.text(kHostDir)), kVaries, made, unmade),
    HCX_CALL(get_vport_npiv_info, get_vport_npiv_info(&a.vport, a.record<int>()) > 0, kVaries, made, unmade),
    HCX_CALL(HCX_GetFcpTargetMappingByWWN, HCX_GetFcpTargetMappingByWWN(a.board, &a.vport, a.bytes(64))),
    {"HCX_GetAllNodeInfoByWWN",
     [](Arguments &a) -> Result {
       const auto room = a.number<uint32_t>(4, 1, 4);
       auto *list = a.list<HCX_GetNodeInfo, NodeInfo>(room);
       list->numberOfEntries = room;
       return HCX_GetAllNodeInfoByWWN(a.board, &a.local, list);
     }},
    HCX_CALL(mac_sprintf, mac_sprintf(&a.local, reinterpret_cast<char *>(a.bytes(24)))),
    HCX_CALL(HCX_VPCreate, HCX_VPCreate(a.board, a.text("db1"), attributes(a)), 0, nullptr, unmade),
    HCX_CALL(HCX_VPDeleteV2, HCX_VPDeleteV2(a.board, &a.vport, 0, a.bytes(32)), 0, made, unmade),
    HCX_CALL(HCX_VPDelete, HCX_VPDelete(a.board, &a.vport, 0), 0, made, unmade),
    HCX_CALL(hcx_set_vport_sybolic_name, hcx_set_vport_sybolic_name(&a.vport, a.text("db2")), 0, made, unmade),
    HCX_CALL(fill_npiv_checklist, fill_npiv_checklist(a.board, FC_VPORT_STATE_ACTIVE)),
    HCX_CALL(HCX_NPIVReadyTest, HCX_NPIVReadyTest(a.board, a.record<uint32_t>())),

    // Authentication
    HCX_CALL(HCX_GetAuthConfig, HCX_GetAuthConfig(a.board, config(a)), kPrints),
    HCX_CALL(HCX_SetAuthConfig, HCX_SetAuthConfig(a.board, config(a), secret(a)), kPrints),
    {"HCX_GetAuthConfigList",
     [](Arguments &a) -> Result {
       auto *list = a.list<HCX_AUTHCONFIGLIST, HBA_WWN>(4);
       list->numberOfEntries = 4;
       return HCX_GetAuthConfigList(a.board, a.local, list);
     },
     kPrints},
    HCX_CALL(HCX_DeleteAuthConfig, HCX_DeleteAuthConfig(a.board, a.local, a.target, secret(a)), kPrints),
    HCX_CALL(write_config, to_stream([&](FILE *stream) { write_config(stream, config(a)); })),
    HCX_CALL(HCX_GetAuthPassword, HCX_GetAuthPassword(a.board, passwords(a)), kPrints),
    HCX_CALL(HCX_SetAuthPassword, HCX_SetAuthPassword(a.board, passwords(a)), kPrints),
    {"HCX_GetAuthStatus",
     [](Arguments &a) -> Result {
       auto *status = a.record<HCX_AUTHSTATUS>();
       status->local_entity = a.local;
       memset(status->remote_entity.wwn, 0xff, sizeof status->remote_entity.wwn);
       return HCX_GetAuthStatus(a.board, status);
     },
     kPrints},
    HCX_CALL(HCX_InitiateAuthentication, HCX_InitiateAuthentication(a.board, a.local, a.target), kPrints),
    HCX_CALL(HCX_EnableAuthentication, HCX_EnableAuthentication(a.board)),
    HCX_CALL(HCX_DisableAuthentication, HCX_DisableAuthentication(a.board)),
    HCX_CALL(check_password, check_password(secret(a)), kPrints),
    HCX_CALL(verify_password, verify_password(kLocal, kTarget, secret(a), nullptr), kPrints),
    HCX_CALL(read_password,
             read_password(a.text("PASSWORD 10000000C9000003 5006016000000001 1 secretsecret 3 0\n"),
                           a.record<KRX_AUTH_PASSWD>()),
             kPrints),
    HCX_CALL(write_password, to_stream([&](FILE *stream) { write_password(stream, passwords(a)); })),

    // Diagnostics
    HCX_CALL(hcx_sd_init, hcx_sd_init(a.list<HCX_BRDINFO, HCX_BRDINFO>(2), 2), kLasting, nullptr, diagnosed),
    HCX_CALL(hcx_sd_deinit, hcx_sd_deinit(), kLasting, watching, diagnosed),
    HCX_CALL(HCX_SD_RegisterForEvent, watch(a), kLasting, diagnosing, diagnosed),
    HCX_CALL(HCX_SD_unRegisterForEvent, HCX_SD_unRegisterForEvent(a.board, kOwn, registration), kLasting, watching,
             diagnosed),
    HCX_CALL(hcx_sd_async_event_handler,
             hcx_sd_async_event_handler(3, 1, VOSKH_EVT_VENDOR_UNIQUE, plogi(a), 64), kLasting, watching,
             diagnosed),
    HCX_CALL(hcx_sd_show_events, hcx_sd_show_events(), kLasting | kPrints, watching, diagnosed),
    HCX_CALL(HCX_SD_Get_Granularity, HCX_SD_Get_Granularity()),
    HCX_CALL(HCX_SD_Set_Bucket,
             HCX_SD_Set_Bucket(kLatency, SD_SEARCH_LINEAR, 10 * kMilliseconds, 5 * kMilliseconds), kLasting,
             diagnosing, without_buckets),
    HCX_CALL(HCX_SD_Get_Bucket,
             HCX_SD_Get_Bucket(kLatency, a.record<uint16_t>(), a.record<uint32_t>(), a.record<uint32_t>(),
                               reinterpret_cast<uint64_t *>(a.bytes(SD_BUCKETS * 8))),
             kLasting, with_buckets, without_buckets),
    HCX_CALL(HCX_SD_Destroy_Bucket, HCX_SD_Destroy_Bucket(kLatency), kLasting, with_buckets, without_buckets),
    HCX_CALL(HCX_SD_Start_Data_Collection, HCX_SD_Start_Data_Collection(a.board, kOwn, kLatency, nullptr),
             kLasting, with_buckets, without_buckets),
    HCX_CALL(HCX_SD_Stop_Data_Collection, HCX_SD_Stop_Data_Collection(a.board, kOwn, kLatency), kLasting,
             collecting, without_buckets),
    HCX_CALL(HCX_SD_Reset_Data_Collection, HCX_SD_Reset_Data_Collection(a.board, kOwn, kLatency), kLasting,
             collecting, without_buckets),
    HCX_CALL(HCX_SD_Get_Data,
             HCX_SD_Get_Data(a.board, kOwn, kLatency, a.record<uint16_t>(), 512, a.bytes(512)), kLasting,
             collecting, without_buckets),
    HCX_CALL(is_data_collection_started, is_data_collection_started(3), kLasting, collecting, without_buckets),
    HCX_CALL(is_bucket_set, is_bucket_set(3), kLasting, with_buckets, without_buckets),
    HCX_CALL(get_sd_lock, with_own_lock([]() -> Result { return free_sd_lock(), 0; }), kLasting, diagnosing,
             diagnosed),
    HCX_CALL(free_sd_lock, with_own_lock([]() -> Result { return free_sd_lock(); }), kLasting, diagnosing,
             diagnosed),
    {"get_host_lock",
     [](Arguments &a) -> Result {
       const Result result = get_host_lock(a.host());
       if (result == SD_OK) pthread_rwlock_unlock(&a.host()->rwlock);
       return result;
     }},
    {"free_host_lock",
     [](Arguments &a) -> Result {
       const Result result = get_host_lock(a.host());
       return result == SD_OK ? free_host_lock(a.host()) : result;
     }},
};

}  // namespace

std::span<const Call> services() {
  return rows;
}

}  // namespace calls
