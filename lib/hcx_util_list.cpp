// SPDX-License-Identifier: BSD-3-Clause
// The three sorted lists of the inventory: inserting, unlinking, finding, releasing and printing their
// records. Hosts belong to hcx_host_list, remote ports to their host, LUNs to their port. The lists carry no
// lock: that of a host is written at start-up and teardown only, those below a host under the write side of
// the host's lock. Records that discovery leaves out while other threads may still hold them are set aside
// here until teardown.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "libhcx.h"

// The eight arguments that print a world wide name.
#define HCX_NAME_BYTES(name) \
  (name)[0], (name)[1], (name)[2], (name)[3], (name)[4], (name)[5], (name)[6], (name)[7]

namespace {

using namespace hcx;

// Behind its equals, so that equal keys keep their order of arrival. `last` shortens the way for a caller
// that inserts in ascending order.
template <class Node>
void insert_sorted(Node **list, Node *last, Node *node) {
  if (!*list || (*list)->id > node->id) {
    node->next = *list;
    *list = node;
    return;
  }
  Node *at = last && last->id <= node->id ? last : *list;
  while (at->next && at->next->id <= node->id)
    at = at->next;
  node->next = at->next;
  at->next = node;
}

// True when the node was in the list; *before is its former predecessor.
template <class Node>
bool unlink_node(Node **list, Node *last, Node *node, Node **before) {
  *before = nullptr;
  if (*list == node) {
    *list = node->next;
    node->next = nullptr;
    return true;
  }
  Node *at = last && last->next == node ? last : *list;
  while (at && at->next != node)
    at = at->next;
  if (!at) return false;
  at->next = node->next;
  node->next = nullptr;
  *before = at;
  return true;
}

template <class Node, class Match>
Node *find_node(Node *list, Match match) {
  while (list && !match(list))
    list = list->next;
  return list;
}

bool same_name(const uint8_t *a, const uint8_t *b) {
  return a && b && memcmp(a, b, 8) == 0;
}

// Every finder of hosts hands the host out with its read lock held; a host that cannot be locked (by its writer, or
// with too many readers) is not found.
template <class Match>
hcx_host *find_host(hcx_host *list, Match match) {
  hcx_host *host = find_node(list, match);
  return host && pthread_rwlock_rdlock(&host->rwlock) == 0 ? host : nullptr;
}

void release(char **text) {
  free(*text);
  *text = nullptr;
}

// Records that are in no list any more, but may still be held. Their `next` is null: whoever goes on from one comes to
// an end instead of into another port's records.
template <class Node>
class Attic {
 public:
  void keep(Node *node) {
    node->next = nullptr;
    try {
      nodes_.push_back(node);
    } catch (...) {
      // Without memory for the list there is only the link.
      node->next = std::exchange(linked_, node);
    }
  }
  template <class Destroy>
  void clear(Destroy destroy) {
    for (Node *node : nodes_)
      destroy(node);
    nodes_.clear();
    while (Node *node = linked_) {
      linked_ = std::exchange(node->next, nullptr);
      destroy(node);
    }
  }

 private:
  std::vector<Node *> nodes_;
  Node *linked_ = nullptr;
};

struct Retired {
  std::mutex lock;
  Attic<hcx_port> ports;
  Attic<hcx_lun> luns;
};
// Never destroyed: an application may end while one of its threads is still inside a call.
Retired &retired() {
  static Retired &instance = *new Retired;
  return instance;
}

const char *shown(const char *text) {
  return text ? text : "(null)";
}

}  // namespace

namespace hcx {

void destroy_lun(hcx_lun *lun) {
  release(&lun->tape_dev);
  hcx_lun_free(lun);
}

void destroy_port(hcx_port *port) {
  while (hcx_lun *lun = port->lun_list) {
    hcx_port_remove_lun(&port->lun_list, nullptr, lun);
    destroy_lun(lun);
  }
  hcx_port_free(port);
}

void retire_port(hcx_port *port) {
  std::lock_guard guard(retired().lock);
  retired().ports.keep(port);
}

void retire_luns(hcx_lun *list) {
  std::lock_guard guard(retired().lock);
  while (list) {
    hcx_lun *lun = std::exchange(list, list->next);
    retired().luns.keep(lun);
  }
}

void free_retired_records() {
  std::lock_guard guard(retired().lock);
  retired().ports.clear(destroy_port);
  retired().luns.clear(destroy_lun);
}

}  // namespace hcx

hcx_host *hcx_host_insert(hcx_host **list, hcx_host *last, hcx_host *new_host) {
  if (list && new_host) insert_sorted(list, last, new_host);
  return new_host;
}

hcx_host *hcx_host_remove(hcx_host **list, hcx_host *last, hcx_host *host) {
  hcx_host *before = nullptr;
  if (list && host && !host->port_list) unlink_node(list, last, host, &before);
  return before;
}

hcx_port *hcx_host_insert_port(hcx_host *host, hcx_port *last, hcx_port *new_port) {
  if (!host || !new_port) return nullptr;
  if (new_port->next) {
    HCX_LOG(LOG_ERROR, "board index %d new hcx_port next not empty", host->brd_idx);
    return nullptr;
  }
  insert_sorted(&host->port_list, last, new_port);
  new_port->host = host;
  return new_port;
}

hcx_port *hcx_host_remove_port(hcx_port **list, hcx_port *last, hcx_port *port) {
  hcx_port *before = nullptr;
  if (list && port && unlink_node(list, last, port, &before)) port->host = nullptr;
  return before;
}

hcx_lun *hcx_port_insert_lun(hcx_port *port, hcx_lun *last, hcx_lun *new_lun) {
  if (!port || !new_lun) return nullptr;
  insert_sorted(&port->lun_list, last, new_lun);
  new_lun->port = port;
  return new_lun;
}

hcx_lun *hcx_port_remove_lun(hcx_lun **lun_list, hcx_lun *last, hcx_lun *lun) {
  hcx_lun *before = nullptr;
  if (lun_list && lun) unlink_node(lun_list, last, lun, &before);
  return before;
}

hcx_port *hcx_port_find_by_id(hcx_port *list, uint32_t id) {
  return find_node(list, [=](const hcx_port *port) { return port->id == id; });
}

hcx_port *hcx_port_find_by_target_id(hcx_port *list, uint32_t scsi_target_id) {
  return find_node(list, [=](const hcx_port *port) { return port->scsi_target_id == scsi_target_id; });
}

hcx_port *hcx_port_find_by_port_id(hcx_port *list, uint32_t port_id) {
  return find_node(list, [=](const hcx_port *port) { return port->port_id == port_id; });
}

hcx_port *hcx_port_find_by_wwpn(hcx_port *list, const uint8_t *wwpn) {
  return find_node(list, [=](const hcx_port *port) { return same_name(port->wwpn, wwpn); });
}

hcx_port *hcx_port_find_by_wwnn(hcx_port *list, const uint8_t *wwnn) {
  return find_node(list, [=](const hcx_port *port) { return same_name(port->wwnn, wwnn); });
}

hcx_lun *hcx_lun_find_by_id(hcx_lun *list, uint64_t lun_id) {
  return find_node(list, [=](const hcx_lun *lun) { return lun->id == lun_id; });
}

hcx_host *hcx_host_find_by_idx(hcx_host *list, int brd_idx) {
  return find_host(list, [=](const hcx_host *host) { return host->brd_idx == brd_idx; });
}

hcx_host *hcx_host_find_by_id(hcx_host *list, uint32_t id) {
  return find_host(list, [=](const hcx_host *host) { return host->id == id; });
}

hcx_host *hcx_host_find_by_port_id(hcx_host *list, uint32_t port_id) {
  return find_host(list, [=](const hcx_host *host) { return host->port.port_id == port_id; });
}

hcx_host *hcx_host_find_by_wwpn(hcx_host *list, const uint8_t *wwpn) {
  return find_host(list, [=](const hcx_host *host) { return same_name(host->port.wwpn, wwpn); });
}

hcx_host *hcx_host_find_by_wwnn(hcx_host *list, const uint8_t *wwnn) {
  return find_host(list, [=](const hcx_host *host) { return same_name(host->port.wwnn, wwnn); });
}

void hcx_lun_free(hcx_lun *lun) {
  if (!lun) {
    HCX_LOG(LOG_ERROR, "no lun");
    return;
  }
  if (lun->next) HCX_LOG(LOG_ERROR, "lun next not empty");
  free(lun->serial_number);
  free(lun->generic_scsi_dev);
  free(lun->block_dev);
  free(lun);
}

void hcx_port_free(hcx_port *port) {
  if (!port) {
    HCX_LOG(LOG_ERROR, "no port");
    return;
  }
  if (port->next) HCX_LOG(LOG_ERROR, "port next not empty");
  if (port->host) HCX_LOG(LOG_ERROR, "port host not empty");
  if (port->lun_list) HCX_LOG(LOG_ERROR, "port lun_list not empty");
  free(port);
}

void hcx_host_free(hcx_host *host) {
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host");
    return;
  }
  if (host->next) HCX_LOG(LOG_ERROR, "host %d next not empty", host->brd_idx);
  if (host->port_list) HCX_LOG(LOG_ERROR, "host %d port_list not empty", host->brd_idx);
  if (host->next || host->port_list) return;
  hcx_host_clean(host);
  for (host_event &event : host->hbaevt.buf)
    free(event.data_buffer);
  pthread_rwlock_destroy(&host->rwlock);
  free(host);
}

void hcx_host_clean(hcx_host *host) {
  if (!host) return;
  for (char **text : {&host->pci_dev, &host->info, &host->serial_number, &host->hardware_version,
                      &host->firmware_revision, &host->option_rom_version, &host->protocol, &host->npiv_info})
    release(text);
  free(host->stat_reset);
  host->stat_reset = nullptr;
}

void hcx_lun_clean(hcx_lun *lun) {
  if (!lun) {
    HCX_LOG(LOG_ERROR, "no lun");
    return;
  }
  release(&lun->generic_scsi_dev);
  release(&lun->block_dev);
}

void hcx_host_logdump(hcx_host *host) {
  if (!host) return;
  printf("Host: id:       %d\n", static_cast<int>(host->id));
  printf("      vend_idx: %d\n", host->vend_idx);
  printf("      brd_idx:  %d\n", host->brd_idx);
  printf("      wwnn[8]:  %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", HCX_NAME_BYTES(host->port.wwnn));
  printf("      wwpn[8]:  %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", HCX_NAME_BYTES(host->port.wwpn));
  printf("      port_id: 0x%x\n", host->port.port_id);
}

void hcx_port_logdump(hcx_port *port) {
  if (!port) return;
  printf("      Port:  id: %d\n", static_cast<int>(port->id));
  printf("      Port: target id: %d\n", static_cast<int>(port->scsi_target_id));
  printf("             wwnn[8]:   %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", HCX_NAME_BYTES(port->wwnn));
  printf("             wwpn[8]:   %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", HCX_NAME_BYTES(port->wwpn));
  printf("             port_id:   0x%x\n", port->port_id);
}

void hcx_lun_logdump(hcx_lun *lun) {
  if (!lun) return;
  printf("            Lun:  id:          %lld\n", static_cast<long long>(lun->id));
  printf("                  sn_len:      %zd\n", static_cast<ssize_t>(lun->serial_number_len));
  printf("                  sn:          %s\n", shown(lun->serial_number));
  printf("                  generic_dev: %s\n", shown(lun->generic_scsi_dev));
  printf("                  block_dev:   %s\n", shown(lun->block_dev));
}
