/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Lists adapters, their remote ports and LUNs through the common HBA API wrapper alone: libhcx is one of the vendor
 * libraries that /etc/hba.conf names. Build: cc wrapper.c -lHBAAPI
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
/* The wrapper's header needs struct tm. */
#include <hbaapi.h>

static void print_wwn(const HBA_WWN *name) {
  for (int i = 0; i < 8; i++)
    printf("%s%02x", i ? ":" : "", name->wwn[i]);
}

static HBA_FCPTARGETMAPPING *target_mapping(HBA_HANDLE adapter) {
  HBA_UINT32 room = 16;
  for (;;) {
    HBA_FCPTARGETMAPPING *mapping = calloc(1, sizeof *mapping + room * sizeof mapping->entry[0]);
    if (!mapping) return NULL;
    mapping->NumberOfEntries = room;
    HBA_STATUS status = HBA_GetFcpTargetMapping(adapter, mapping);
    if (status == HBA_STATUS_OK) return mapping;
    room = mapping->NumberOfEntries; /* as many as there are now */
    free(mapping);
    if (status != HBA_STATUS_ERROR_MORE_DATA) return NULL;
  }
}

static void show(char *name) {
  HBA_ADAPTERATTRIBUTES adapter;
  HBA_PORTATTRIBUTES port;
  HBA_PORTSTATISTICS counters;
  HBA_HANDLE handle = HBA_OpenAdapter(name);
  if (handle == HBA_HANDLE_INVALID) return;
  if (HBA_GetAdapterAttributes(handle, &adapter) != HBA_STATUS_OK ||
      HBA_GetAdapterPortAttributes(handle, 0, &port) != HBA_STATUS_OK) {
    HBA_CloseAdapter(handle);
    return;
  }
  printf("%s: %s, firmware %s\n  port ", name, adapter.Model, adapter.FirmwareVersion);
  print_wwn(&port.PortWWN);
  printf(" %s state %u speed %u\n", port.OSDeviceName, port.PortState, port.PortSpeed);
  if (HBA_GetPortStatistics(handle, 0, &counters) == HBA_STATUS_OK)
    printf("  %lld frames sent, %lld received\n", counters.TxFrames, counters.RxFrames);
  for (HBA_UINT32 i = 0; i < port.NumberofDiscoveredPorts; i++) {
    HBA_PORTATTRIBUTES remote;
    if (HBA_GetDiscoveredPortAttributes(handle, 0, i, &remote) != HBA_STATUS_OK) continue;
    printf("  remote port %06x ", remote.PortFcId);
    print_wwn(&remote.PortWWN);
    printf("\n");
  }
  HBA_FCPTARGETMAPPING *mapping = target_mapping(handle);
  for (HBA_UINT32 i = 0; mapping && i < mapping->NumberOfEntries; i++) {
    printf("  LUN %u of ", mapping->entry[i].ScsiId.ScsiOSLun);
    print_wwn(&mapping->entry[i].FcpId.PortWWN);
    printf(" is %s\n", mapping->entry[i].ScsiId.OSDeviceName);
  }
  free(mapping);
  HBA_CloseAdapter(handle);
}

int main(void) {
  if (HBA_LoadLibrary() != HBA_STATUS_OK) {
    fprintf(stderr, "wrapper: no vendor library could be loaded, see /etc/hba.conf\n");
    return 1;
  }
  HBA_UINT32 count = HBA_GetNumberOfAdapters();
  for (HBA_UINT32 i = 0; i < count; i++) {
    char name[256];
    if (HBA_GetAdapterName(i, name) == HBA_STATUS_OK) show(name);
  }
  HBA_FreeLibrary();
  return 0;
}
