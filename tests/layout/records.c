/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Layouts of the public records, counted by hand: compiled, never run, for this machine and for a 32-bit big-endian
 * one. Records with pointers or with a lock have a size of their own there, all others are the same everywhere.
 */
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "libhcx_api.h"
#include "vosk_bsg.h"
#include "vosk_nl.h"

#if UINTPTR_MAX == 0xffffffff
#define BY_POINTER(wide, narrow) (narrow)
#else
#define BY_POINTER(wide, narrow) (wide)
#endif
#define SIZE(record, bytes) _Static_assert(sizeof(record) == (bytes), #record)
#define AT(record, field, bytes) _Static_assert(offsetof(record, field) == (bytes), #record "." #field)

/* The common HBA API */
SIZE(HBA_WWN, 8);
SIZE(HBA_ADAPTERATTRIBUTES, 2192);
AT(HBA_ADAPTERATTRIBUTES, NodeWWN, 640);
AT(HBA_ADAPTERATTRIBUTES, VendorSpecificID, 1928);
SIZE(HBA_PORTATTRIBUTES, 632);
AT(HBA_PORTATTRIBUTES, PortSymbolicName, 96);
AT(HBA_PORTATTRIBUTES, FabricName, 620);
SIZE(HBA_OSDN, 116);
SIZE(HBA_PORTSTATISTICS, 120);
SIZE(HBA_SCSIID, 268);
SIZE(HBA_FCPID, 32);
AT(HBA_FCPID, FcpLun, 24);
SIZE(HBA_LUID, 256);
SIZE(HBA_FCPSCSIENTRY, 304);
AT(HBA_FCPSCSIENTRY, FcpId, 272);
SIZE(HBA_FCPSCSIENTRYV2, 560);
SIZE(HBA_FCPTARGETMAPPING, 312);
SIZE(HBA_FCPTARGETMAPPINGV2, 568);
AT(HBA_FCPTARGETMAPPINGV2, entry, 8);
SIZE(HBA_BIND_ENTRY, 32);
SIZE(HBA_BIND_LIST, 36);
SIZE(HBA_FCPBINDINGENTRY, 312);
SIZE(HBA_FCPBINDING, 320);
SIZE(HBA_MGMTINFO, 44);
SIZE(HBA_EVENTINFO, 20);

/* Boards, driver, link */
SIZE(HCX_BRDINFO, 108);
AT(HCX_BRDINFO, a_ddi, 42);
AT(HCX_BRDINFO, a_wwpn, 100);
SIZE(BRDINFO, 100);
SIZE(CFGPARAM, 132);
SIZE(HCXDRVINFO, 152);
AT(HCXDRVINFO, featureList, 144);
SIZE(VPD, 616);
SIZE(LINKINFO, 168);
AT(LINKINFO, a_alpaMap, 24);
SIZE(NODEINFO, 28);
SIZE(LOOPBACK, BY_POINTER(24, 12));
AT(LOOPBACK, RcvBuffer, BY_POINTER(16, 8));
SIZE(MAILBOX_t, 256);
SIZE(DestID, 16);

/* FCP priority, FCoE */
SIZE(HCX_QoSEntry, 36);
SIZE(HCX_QoSConfig, 40);
SIZE(HCX_FCOEFCFINFO, 552);
AT(HCX_FCOEFCFINFO, vlanBitmap, 24);
AT(HCX_FCOEFCFINFO, lkaPeriod, 540);
SIZE(HCX_FCOEFCFLIST, 560);
SIZE(HCX_FCOEFCFCONNECTENTRY, 22);
SIZE(HCX_FCOEFCFCONNECTLIST, 26);
SIZE(HCX_FCOEPARAM, 10);

/* Virtual ports, authentication */
SIZE(HCX_VPENTRY, 20);
SIZE(HCX_VPENTRYLIST, 24);
SIZE(HCX_VPRESOURCE, 16);
SIZE(HCX_VPATTRIB, 344);
AT(HCX_VPATTRIB, options, 276);
AT(HCX_VPATTRIB, buf, 288);
AT(HCX_VPATTRIB, accessKey, 308);
SIZE(HCX_GETNODEINFO, 32);
SIZE(KRX_FCSP_CONFIG, 40);
AT(KRX_FCSP_CONFIG, authentication_type_priority, 20);
AT(KRX_FCSP_CONFIG, reauthenticate_time_interval, 36);
SIZE(HCX_AUTHCONFIGLIST, 12);
SIZE(AUTH_PASSWD_INFO, 132);
SIZE(KRX_AUTH_PASSWD, 544);
SIZE(HCX_AUTHSTATUS, 40);

/* The inventory */
SIZE(named_const, BY_POINTER(16, 8));
SIZE(host_event, BY_POINTER(56, 40));
AT(host_event, wwpn, BY_POINTER(48, 32));
SIZE(hcx_lun, BY_POINTER(64, 40));
AT(hcx_lun, id, BY_POINTER(16, 8));
AT(hcx_lun, tape_dev, BY_POINTER(56, 32));
SIZE(hcx_port, BY_POINTER(72, 52));
AT(hcx_port, wwnn, BY_POINTER(36, 24));
AT(hcx_port, serial_number, BY_POINTER(56, 44));
SIZE(hcx_rwlock, BY_POINTER(56, 32));
AT(hcx_host, id, BY_POINTER(72, 40));
AT(hcx_host, port, BY_POINTER(88, 52));
AT(hcx_host, hbaevt, BY_POINTER(248, 156));
SIZE(hcx_host, BY_POINTER(7440, 5296));

/* Capability templates */
SIZE(MMM_WINDOW, 100);
SIZE(MMM_SYSFS, 612);
SIZE(MMM_NETLINK, 108);
SIZE(MMM_BSG_IOCTL, 108);
SIZE(MMM_BSG_DEV, 612);

/* Diagnostics */
SIZE(SD_event, BY_POINTER(16, 12));
SIZE(SD_els_event_details_v0, BY_POINTER(16, 8));
SIZE(SD_fabric_event_details_v0, BY_POINTER(16, 8));
SIZE(sd_scsi_event_details_v0, BY_POINTER(16, 8));
SIZE(SD_scsi_generic_v0, 16);
SIZE(sd_scsi_checkcondition_v0, 32);
SIZE(sd_scsi_varquedepth_v0, 24);
SIZE(sd_plogi_rcv_v0, 20);
SIZE(sd_prlo_rcv_v0, 12);
SIZE(sd_lsrjt_rcv_v0, 24);
SIZE(sd_logo_rcv_v0, 20);
SIZE(sd_pbsy_rcv_v0, 12);
SIZE(sd_fcprdchkerr_v0, 24);
SIZE(SD_IO_Latency_Response, 88);

/* The driver's */
SIZE(struct fc_bsg_request, 20);
SIZE(struct fc_bsg_reply, 16);
SIZE(struct fc_nl_event, 40);
AT(struct fc_nl_event, host_no, 24);
AT(struct fc_nl_event, event_data, 36);
