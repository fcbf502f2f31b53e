/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * SAN diagnostics: events that an adapter port sees in the fabric, and histograms of I/O latency that the driver
 * keeps for each target.
 *
 * Results: every HCX_SD_ call but HCX_SD_Get_Granularity() returns a SD_RETURN_CODES value. All of them return
 * SD_ERROR_LIB_NOT_INIT until HCX_InitDiagEnv() has run, and again after HCX_FreeDiagEnv().
 * Ports: port_id is a port name. Eight zero bytes stand for the board's own port; any other name must be that of a
 * SCSI host of this machine, a virtual port for example.
 * Units: base, step and bounds are nanoseconds, multiples of what HCX_SD_Get_Granularity() tells, at least of a
 * millisecond.
 * Threads: any. One lock serialises all calls and the delivery of events; a call waits while another one runs.
 * Ownership: buffers belong to the caller.
 */
#ifndef LIBHCX_SD_API_H
#define LIBHCX_SD_API_H

#include <stdint.h>

#include "hbaapi.h"
#include "hcx_api.h"
#include "hcx_util.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef enum SD_RETURN_CODES {
  SD_OK = 0,
  SD_ERROR_GENERIC = 1,
  SD_ERROR_INVALID_ARG = 2,
  SD_ERROR_INVALID_BOARD_ID = 3,
  SD_ERROR_INVALID_PORT = 4,
  SD_ERROR_NOT_SUPPORTED = 5,
  SD_ERROR_CATEGORY_NOT_SUPPORTED = 6,
  SD_ERROR_SUBCATEGORY_NOT_SUPPORTED = 7,
  SD_ERROR_MORE_DATA_AVAILABLE = 8,
  SD_ERROR_EVENT_ALREADY_REGISTERED = 9,
  SD_ERROR_NO_ACTIVE_REGISTRATION = 10,
  SD_ERROR_ARG_MISSING = 11,
  SD_ERROR_NO_MEMORY = 12,
  SD_ERROR_BUCKET_NOTSET = 13,
  SD_ERROR_REG_HANDLE = 14,
  SD_ERROR_INVALID_SEARCH_TYPE = 15,
  SD_ERROR_FUNCTION_NOT_SUPPORTED = 16,
  SD_ERROR_OUT_OF_HANDLES = 17,
  SD_ERROR_LIB_NOT_INIT = 18,
  SD_ERROR_DATA_COLLECTION_ACTIVE = 19,
  SD_ERROR_DATA_COLLECTION_NOT_ACTIVE = 20,
  SD_MAX_RETURN_CODES = 21 /* how many there are */
} SD_RETURN_CODES;

/* ---- Events ---- */

typedef enum sd_event_category {
  SD_CATEGORY_ELS = 1,     /* an extended link service request or reject has come in */
  SD_CATEGORY_FABRIC = 2,  /* busy answers, and FCP reads that do not add up */
  SD_CATEGORY_SCSI = 4,    /* conditions that a LUN or a target reported */
  SD_CATEGORY_BOARD = 8,   /* the adapter port */
  SD_CATEGORY_ADAPTER = 16 /* the adapter card */
} sd_event_category;

typedef enum sd_els_subcategory {
  SD_ELS_PLOGI = 1,
  SD_ELS_PRLO = 2,
  SD_ELS_ADISC = 4,
  SD_ELS_LSRJT = 8,
  SD_ELS_LOGO = 16
} sd_els_subcategory;

typedef enum sd_fabric_subcategory {
  SD_FABRIC_BUSY = 1,
  SD_FABRIC_PORT_BUSY = 2,
  SD_FABRIC_FCPRDCHKERR = 4 /* an FCP read whose data do not match its length */
} sd_fabric_subcategory;

/* 1, 2, 8 and 16 name the port and the LUN and nothing else, 32 comes without any record. */
typedef enum sd_scsi_subcategory {
  SD_SCSI_GENERIC_1 = 1,
  SD_SCSI_GENERIC_2 = 2,
  SD_SCSI_CHECK_CONDITION = 4,
  SD_SCSI_GENERIC_8 = 8,
  SD_SCSI_GENERIC_16 = 16,
  SD_SCSI_NO_DETAIL_32 = 32,
  SD_SCSI_VARQUEDEPTH = 64
} sd_scsi_subcategory;

/* The only subcategory of SD_CATEGORY_BOARD and of SD_CATEGORY_ADAPTER. */
enum { SD_SUBCATEGORY_ONLY = 1 };

/*
 * What a callback gets: a chain of records, of which each leads to the next. All versions are 0. The chain lies on the
 * stack of the calling thread and is gone when the callback returns.
 *
 *   SD_event -> SD_els_event_details_v0 -> sd_plogi_rcv_v0 (by subcategory)
 */
typedef struct SD_event {
  uint32_t sd_evt_version;
  uint32_t sd_evt_size; /* bytes of the whole chain, with the pointers that this platform has */
  void *sd_evt_payload; /* the record of the category; null when the event has no detail */
} SD_event;

typedef struct SD_els_event_details_v0 {
  uint32_t sd_els_version;
  void
      *sd_els_payload; /* sd_plogi_rcv_v0, sd_prlo_rcv_v0, sd_adisc_rcv_v0, sd_lsrjt_rcv_v0, sd_logo_rcv_v0 */
} SD_els_event_details_v0;

typedef struct SD_fabric_event_details_v0 {
  uint32_t sd_fabric_version;
  void *sd_fabric_payload; /* sd_pbsy_rcv_v0 for both kinds of busy, sd_fcprdchkerr_v0 */
} SD_fabric_event_details_v0;

typedef struct sd_scsi_event_details_v0 {
  uint32_t sd_scsi_version;
  void *sd_scsi_payload; /* SD_scsi_generic_v0, sd_scsi_checkcondition_v0, sd_scsi_varquedepth_v0 */
} sd_scsi_event_details_v0;

typedef struct SD_scsi_generic_v0 {
  uint32_t sd_scsi_generic_version;
  HBA_WWN sd_scsi_generic_rport;
  uint32_t sd_scsi_generic_lun;
} SD_scsi_generic_v0;

typedef struct sd_scsi_checkcondition_v0 {
  uint32_t sd_checkcondition_version;
  HBA_WWN sd_checkcondition_rport;
  uint32_t sd_checkcondition_lun;
  uint32_t sd_checkcondition_cmdcode; /* SCSI operation code */
  uint32_t sd_checkcondition_senskey; /* SPC sense key, additional sense code and its qualifier */
  uint32_t sd_checkcondition_asc;
  uint32_t sd_checkcondition_ascq;
} sd_scsi_checkcondition_v0;

/* The driver has changed the queue depth of a LUN. */
typedef struct sd_scsi_varquedepth_v0 {
  uint32_t sd_varquedepth_version;
  HBA_WWN sd_varquedepth_rport;
  uint32_t sd_varquedepth_lun;
  uint32_t sd_varquedepth_oldval;
  uint32_t sd_varquedepth_newval;
} sd_scsi_varquedepth_v0;

typedef struct sd_plogi_rcv_v0 {
  uint32_t sd_plogir_version;
  HBA_WWN sd_plogir_portname;
  HBA_WWN sd_plogir_nodename;
} sd_plogi_rcv_v0;

typedef struct sd_prlo_rcv_v0 {
  uint32_t sd_prlor_version;
  HBA_WWN sd_prlor_remoteport;
} sd_prlo_rcv_v0;

typedef struct sd_adisc_rcv_v0 {
  uint32_t sd_adiscr_version;
  HBA_WWN sd_adiscr_portname;
  HBA_WWN sd_adiscr_nodename;
} sd_adisc_rcv_v0;

typedef struct sd_lsrjt_rcv_v0 {
  uint32_t sd_lsrjtr_version;
  HBA_WWN sd_lsrjtr_remoteport;
  uint32_t sd_lsrjtr_original_cmd; /* ELS command that was rejected */
  uint32_t sd_lsrjtr_reasoncode;   /* FC-LS reason code and its explanation */
  uint32_t sd_lsrjtr_reasoncodeexpl;
} sd_lsrjt_rcv_v0;

typedef struct sd_logo_rcv_v0 {
  uint32_t sd_logo_version;
  HBA_WWN sd_logo_rportname;   /* who sent it */
  HBA_WWN sd_logo_payloadwwpn; /* whom it names */
} sd_logo_rcv_v0;

typedef struct sd_pbsy_rcv_v0 {
  uint32_t sd_pbsyr_version;
  HBA_WWN sd_pbsyr_rport;
} sd_pbsy_rcv_v0;

typedef struct sd_fcprdchkerr_v0 {
  uint32_t sd_fcprdchkerr_version;
  HBA_WWN sd_fcprdchkerr_rport;
  uint32_t sd_fcprdchkerr_lun;
  uint32_t sd_fcprdchkerr_opcode;    /* SCSI operation code */
  uint32_t sd_fcprdchkerr_fcpiparam; /* residual parameter of the adapter */
} sd_fcprdchkerr_v0;

/*
 * A function that is called for an event, with the values of its registration. It runs in the library's listener
 * thread, which holds the lock of the diagnostic service and the board's read lock meanwhile: copy what is needed and
 * return. A HCX_SD_ call from inside it returns SD_ERROR_GENERIC, and a call that reads the board's ports anew would
 * wait for ever. HCX_FreeDiagEnv() may be called, but leaves the memory of the boards allocated then.
 */
typedef void(sd_callback)(uint32_t board_id, HBA_WWN port_id, uint32_t event_category,
                          uint32_t event_subcategory, void *context, SD_event *event);

/*
 * Registers a function for one kind of event.
 * board_id: board number. port_id: zero for the board's own port. event_category: a sd_event_category.
 * event_subcategory: one value of the category. context: handed to func; must not be null. reg_handle: out: the
 * registration's handle, for HCX_SD_unRegisterForEvent(). func: the function.
 * Of several registrations that an event fits only the newest is called.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_ARG_MISSING (null pointer), SD_ERROR_CATEGORY_NOT_SUPPORTED,
 * SD_ERROR_SUBCATEGORY_NOT_SUPPORTED, SD_ERROR_INVALID_BOARD_ID, SD_ERROR_INVALID_PORT,
 * SD_ERROR_EVENT_ALREADY_REGISTERED (the same category, subcategory, board and port), SD_ERROR_NO_MEMORY,
 * SD_ERROR_GENERIC (lock, or called by a registered function).
 * Reads the "port_name" of the FC hosts to find port_id. Waits while a registered function runs.
 */
int32_t HCX_SD_RegisterForEvent(uint32_t board_id, HBA_WWN port_id, uint32_t event_category,
                                uint32_t event_subcategory, void *context, uint32_t *reg_handle,
                                sd_callback *func);

/*
 * Takes a registration back. When it returns the function is not running and will not be called again.
 * board_id, port_id: as registered. reg_handle: the handle.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_INVALID_BOARD_ID (no such number), SD_ERROR_REG_HANDLE (no such
 * registration), SD_ERROR_INVALID_PORT (registered with another port or board), SD_ERROR_GENERIC.
 * Reads nothing. Waits while a registered function runs.
 */
int32_t HCX_SD_unRegisterForEvent(uint32_t board_id, HBA_WWN port_id, uint32_t reg_handle);

/*
 * Decodes an event and calls the registered function; what the listener does with an event of the driver.
 * host_no: kernel host number. seq_num: kernel's number of the event. event_code: 0xffff, vendor unique; others are
 * refused. event_data: the driver's record (vosk_nl.h), `length` bytes in the processor's order; one that is too
 * short for its kind is not decoded.
 * Returns nothing. Reads the host's "port_name". Blocks as long as the function that it calls.
 */
void hcx_sd_async_event_handler(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t *event_data,
                                uint32_t length);

/*
 * Sets the service up for `count` boards; HCX_InitDiagEnv() does so. Again: takes the new count.
 * Returns SD_OK, SD_ERROR_INVALID_ARG (null table or zero count), SD_ERROR_GENERIC (lock).
 */
int32_t hcx_sd_init(hcx_brdinfo *ba, uint32_t count);

/*
 * Takes the service down and drops all registrations; HCX_FreeDiagEnv() does so. Again: does nothing.
 * Returns SD_OK, SD_ERROR_GENERIC (called by a registered function, lock). Waits while a registered function runs.
 */
int32_t hcx_sd_deinit(void);

/* Prints the registrations to standard output, one a line. Returns nothing. */
void hcx_sd_show_events(void);

/* ---- Latency statistics ---- */

/* The kinds of statistics. */
enum { SD_IO_LATENCY_TYPE = 1 };

typedef enum sd_search_type {
  SD_SEARCH_LINEAR = 1, /* bounds at base, base + step, base + 2 step, ... */
  SD_SEARCH_POWER_2 = 2 /* bounds at base + step, base + 2 step, base + 4 step, ... */
} sd_search_type;

enum { SD_BUCKETS = 20 };

typedef struct SD_time_stats_v0 {
  uint32_t sd_tstats_bucket_count; /* I/Os that took that long */
} SD_time_stats_v0;

/* The histogram of one target. Bucket n has the I/Os above bound n-1 up to bound n; the last one the rest. */
typedef struct SD_IO_Latency_Response {
  HBA_WWN sd_iolatency_target_wwpn;
  SD_time_stats_v0 sd_time_stats_array[SD_BUCKETS];
} SD_IO_Latency_Response;

/*
 * The unit of base and step.
 * Returns nanoseconds, whole milliseconds and at least one. Reads the resolution of the real-time clock.
 */
uint32_t HCX_SD_Get_Granularity(void);

/*
 * Defines the buckets, on every host; old counts are gone then.
 * type: SD_IO_LATENCY_TYPE. search_type: a sd_search_type. base, step: nanoseconds, multiples of the granularity;
 * step is not 0, nor is base for SD_SEARCH_LINEAR.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_NOT_SUPPORTED (type; or the driver refused, hosts before that one
 * have the new definition), SD_ERROR_INVALID_SEARCH_TYPE, SD_ERROR_INVALID_ARG (base or step),
 * SD_ERROR_DATA_COLLECTION_ACTIVE (on any host; no host was changed), SD_ERROR_GENERIC (lock).
 * Reads and writes "vosk_stat_data_ctrl" of the SCSI hosts.
 */
int32_t HCX_SD_Set_Bucket(uint16_t type, uint16_t search_type, uint32_t base, uint32_t step);

/*
 * Reads the definition, from the first host.
 * type: SD_IO_LATENCY_TYPE. search_type, base, step: out. values: out: the SD_BUCKETS bounds in nanoseconds.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_ARG_MISSING (null pointer), SD_ERROR_NOT_SUPPORTED (type; or no
 * state to be read), SD_ERROR_BUCKET_NOTSET, SD_ERROR_GENERIC (a state that cannot be understood: what was read before
 * that is stored; lock).
 * Reads "vosk_stat_data_ctrl" of the SCSI host.
 */
int32_t HCX_SD_Get_Bucket(uint16_t type, uint16_t *search_type, uint32_t *base, uint32_t *step,
                          uint64_t *values);

/*
 * Removes the definition from every host.
 * type: SD_IO_LATENCY_TYPE.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_NOT_SUPPORTED (type; or the driver refused),
 * SD_ERROR_DATA_COLLECTION_ACTIVE or SD_ERROR_BUCKET_NOTSET (on any host; no host was changed), SD_ERROR_GENERIC.
 * Reads and writes "vosk_stat_data_ctrl" of the SCSI hosts.
 */
int32_t HCX_SD_Destroy_Bucket(uint16_t type);

/*
 * Starts, stops and clears the counting on one host.
 * board_id: board number. port_id: zero, or another port of this machine. type: SD_IO_LATENCY_TYPE. arg: not used.
 * Returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_NOT_SUPPORTED (type; or the driver refused),
 * SD_ERROR_INVALID_BOARD_ID, SD_ERROR_INVALID_PORT, SD_ERROR_BUCKET_NOTSET, SD_ERROR_DATA_COLLECTION_ACTIVE (start),
 * SD_ERROR_DATA_COLLECTION_NOT_ACTIVE (stop), SD_ERROR_GENERIC (lock).
 * Reads and writes "vosk_stat_data_ctrl" of the SCSI host.
 */
int32_t HCX_SD_Start_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type, void *arg);
int32_t HCX_SD_Stop_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type);
int32_t HCX_SD_Reset_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type);

/*
 * Reads the histograms of a host's targets.
 * board_id, port_id, type: as above. target: out: how many targets there are, at most 65535. buf_size: bytes at buff
 * (taken as a signed number: above 2147483647 there is no room). buff: out: SD_IO_Latency_Response records, as many
 * as fit whole.
 * Returns SD_OK, SD_ERROR_MORE_DATA_AVAILABLE (buff is full; *target tells how many records there would be),
 * SD_ERROR_LIB_NOT_INIT, SD_ERROR_NOT_SUPPORTED (type), SD_ERROR_ARG_MISSING (null pointer),
 * SD_ERROR_INVALID_BOARD_ID, SD_ERROR_INVALID_PORT, SD_ERROR_BUCKET_NOTSET, SD_ERROR_GENERIC (the data cannot be read
 * or understood; *target tells how many records came before that; lock).
 * Reads "vosk_stat_data_ctrl" and "vosk_drvr_stat_data" of the SCSI host.
 */
int32_t HCX_SD_Get_Data(uint32_t board_id, HBA_WWN port_id, uint16_t type, uint16_t *target,
                        uint32_t buf_size, void *buff);

/*
 * The state of one host.
 * host_no: kernel host number. Returns 1 or 0, 0 also when the state cannot be read.
 * Reads "vosk_stat_data_ctrl" of the SCSI host, with no lock taken.
 */
int is_data_collection_started(uint32_t host_no);
int is_bucket_set(uint32_t host_no);

/* ---- Locks ---- */

/*
 * Takes and releases the lock of the service, which excludes all calls above in other threads and the delivery of
 * events.
 * get_sd_lock returns SD_OK with the lock held; SD_ERROR_LIB_NOT_INIT when the service is down or has no boards,
 * SD_ERROR_GENERIC when the thread has it already or it cannot be had. Waits.
 * free_sd_lock returns SD_OK, SD_ERROR_LIB_NOT_INIT, SD_ERROR_GENERIC (the thread does not have it).
 */
int32_t get_sd_lock(void);
int32_t free_sd_lock(void);

/*
 * Takes and releases the read side of a host's lock. Take the lock of the service, if at all, first.
 * host: a record of the inventory. Return SD_OK, SD_ERROR_GENERIC, SD_ERROR_ARG_MISSING (null pointer). Taking waits
 * while the host is read anew.
 */
int32_t get_host_lock(hcx_host *host);
int32_t free_host_lock(hcx_host *host);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
