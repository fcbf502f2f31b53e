// SPDX-License-Identifier: BSD-3-Clause
// What the parts of discovery share: directory listings that one scan reads once, and the walk along an old list
// while the new one is built.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "libhcx.h"

namespace hcx {

// The names in a class directory that begin with a prefix: listed at first use, then shared by everything that one
// scan looks up there. Belongs to one scan in one thread.
class ClassListing {
 public:
  explicit ClassListing(const char *dir, const char *prefix = "") : dir_(dir), prefix_("%s", prefix) {}
  // A second directory that is listed where the first does not exist.
  ClassListing(const char *dir, const char *fallback, const char *prefix)
      : dir_(dir), fallback_(fallback), prefix_("%s", prefix) {}

  // The directory that was listed.
  const char *dir();
  // The names that begin with `prefix`, in bytewise order, up to the one that does not begin with it.
  struct Range {
    const std::string *first = nullptr;
    const std::string *last = nullptr;
    const std::string *begin() const { return first; }
    const std::string *end() const { return last; }
  };
  // False when the directory exists but could not be read: what is known then stays as it is.
  bool find(const char *prefix, Range *range);

 private:
  void load();

  const char *dir_;
  const char *fallback_ = nullptr;
  Path prefix_;
  bool loaded_ = false;
  int error_ = 0;
  std::vector<std::string> names_;
};

// The layout generation of the tree as it stands, a sysfs_tree_ver; sysfs_ver holds that of the last scan.
int tree_generation();
// The number of an entry that is "host" and nothing but digits; -1 for any other.
int host_number(const std::string &name);
// How the names of a host's remote ports begin: "rport-3:0-", in old trees those of its targets, "target3:0:".
Path rport_prefix(bool old, uint32_t host_no);
// Remote ports by name; in old trees without that class the transport's targets.
ClassListing remote_port_listing(bool old, const char *prefix);

// Takes records out of an old sorted list, for keys that come in ascending order: one walk for all of them.
template <class Node>
class OldList {
 public:
  explicit OldList(Node *list) : list_(list) {}
  // The first record with that key, no longer in the list; null when there is none.
  template <class Unlink>
  Node *take(decltype(Node::id) key, Unlink unlink) {
    Node *at = before_ ? before_->next : list_;
    while (at && at->id < key)
      at = (before_ = at)->next;
    if (!at || at->id != key) return nullptr;
    unlink(&list_, before_, at);
    return at;
  }
  Node *rest() const { return list_; }
  Node **head() { return &list_; }

 private:
  Node *list_;
  Node *before_ = nullptr;
};

// The exported routines of the same name with listings that a larger scan already has. Same name, because their log
// lines carry it.
void hcx_sysfs_scan_rports(hcx_host *host, ClassListing &rports, ClassListing &devices);
void hcx_sysfs_scan_rport(hcx_port *port, ClassListing &devices);
void hcx_sysfs_scan_luns(hcx_port *rport, ClassListing &devices);

}  // namespace hcx
