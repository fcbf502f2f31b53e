// SPDX-License-Identifier: BSD-3-Clause
// The words that the driver writes into its attributes and the numbers they stand for, and the routines that
// go from one to the other. Constant data; any thread.
//
// Rows are matched by prefix and in order, and several words may share a number: that is how the driver's
// words are folded into the smaller sets of the interface.
#include <cstring>

#include "libhcx.h"

namespace hcx {

const named_const rport_role_names[] = {
    {"FCP Target", FC_RPORT_ROLE_FCP_TARGET},
    {"FCP Initiator", FC_RPORT_ROLE_FCP_INITIATOR},
    {"IP Port", FC_RPORT_ROLE_IP_PORT},
    {"Fabric Port", FC_FPORT_ROLE_FABRIC},
    {"Fabric Controller", FC_FPORT_ROLE_FABCTLR},
    {"Directory Server", FC_FPORT_ROLE_DIRSRVR},
    {"Time Server", FC_FPORT_ROLE_TIMESRVR},
    {"Management Server", FC_FPORT_ROLE_MGMTSRVR},
    {"Unknown Fabric Entity", FC_FPORT_ROLE_UNKNFABRIC},
    {"unknown", FC_RPORT_ROLE_UNKNOWN},
    {nullptr, FC_RPORT_ROLE_UNKNOWN},
};

const named_const yes_no_names[] = {
    {"0", 0},
    {"1", 1},
    {nullptr, 0},
};

const named_const port_state_names[] = {
    {"Unknown", 1},     {"Not Present", 1}, {"Online", 2}, {"Offline", 3},  {"Blocked", 1}, {"Bypassed", 4},
    {"Diagnostics", 5}, {"Linkdown", 6},    {"Error", 7},  {"Loopback", 8}, {"Deleted", 1}, {nullptr, 1},
};

const named_const class_names[] = {
    {"Class 1", 0x2}, {"Class 2", 0x4}, {"Class 3", 0x8}, {"Class 4", 0x10}, {"Class 6", 0x40}, {nullptr, 0},
};

const named_const port_type_names[] = {
    {"Unknown", 1},
    {"Other", 2},
    {"Not Present", 3},
    {"NPort", 5},
    {"NLPort", 6},
    {"FLPort", 7},
    {"FPort", 8},
    {"EPort", 9},
    {"GPort", 0xa},
    {"LPort", 0x14},
    {"Point-To-Point", 0x15},
    {nullptr, 1},
};

const named_const port_speed_names[] = {
    {"1 Gbit", 0x1},
    {"2 Gbit", 0x2},
    {"4 Gbit", 0x8},
    {"8 Gbit", 0x10},
    {"10 Gbit", 0x4},
    {"16 Gbit", 0x20},
    {"Not Negotiated", 0x8000},
    {nullptr, 0},
};

const named_const bind_type_names[] = {
    {"none", 0x0},
    {"wwpn (World Wide Port Name)", 0x200},
    {"wwnn (World Wide Node Name)", 0x400},
    {"port_id (FC Address)", 0x800},
    {nullptr, 0},
};

const named_const reset_type_names[] = {
    {"selective", 1},
    {"coordinated", 2},
    {"fw_reset", 3},
    {nullptr, 0},
};

const named_const board_mode_names[] = {
    {"online", 1}, {"offline", 2}, {"warm", 3}, {"dump", 4}, {"error", 5}, {nullptr, 0},
};

const named_const vport_state_names[] = {
    {"Unknown", 0},
    {"Linkdown", 1},
    {"Initializing", 2},
    {"No Fabric Support", 3},
    {"No Fabric Resources", 4},
    {"Fabric Logout", 5},
    {"Fabric Rejected WWN", 6},
    {"VPort Failed", 7},
    {"Active", 8},
    {"Auth Failed", 9},
    {"Disabled", 0xa},
    {nullptr, 0},
};

const named_const link_state_names[] = {
    {"Link Up - Unknown", 0},
    {"Link Up - Configuring Link", 0},
    {"Link Up - Discovery", 0},
    {"Link Down", 0},
    {"Link Up - Failed", 7},
    {"Link Up - Ready", 8},
    {nullptr, 0},
};

namespace {

const char *skip_blanks(const char *text) {
  return text + strspn(text, " \t");
}

bool begins_with(const char *text, const char *name) {
  return strncmp(text, name, strlen(name)) == 0;
}

// Copies as much of `name` as fits with its NUL; true when all of it did.
bool append(char *str, size_t str_len, size_t *length, const char *name) {
  const size_t room = str_len - 1 - *length;
  const size_t wanted = strlen(name);
  const size_t taken = wanted < room ? wanted : room;
  memcpy(str + *length, name, taken);
  *length += taken;
  str[*length] = '\0';
  return taken == wanted;
}

}  // namespace
}  // namespace hcx

uint32_t str2enum(const char *str, const named_const *descr) {
  if (!descr || !descr->name) return 0;
  const char *word = hcx::skip_blanks(str ? str : "");
  for (; descr->name; ++descr) {
    if (hcx::begins_with(word, descr->name)) return descr->val;
  }
  return descr->val;
}

int enum2str(char *str, size_t str_len, uint32_t val, const named_const *descr) {
  if (!str || str_len == 0 || !descr) return 0;
  for (; descr->name; ++descr) {
    if (descr->val != val) continue;
    size_t length = 0;
    hcx::append(str, str_len, &length, descr->name);
    return static_cast<int>(length);
  }
  return 0;
}

uint32_t str2bitfield(const char *str, char sep, const named_const *descr) {
  if (!str || !descr) return 0;
  uint32_t bits = 0;
  for (const char *part = str; part && *part != '\0';) {
    const char *word = hcx::skip_blanks(part);
    for (const named_const *row = descr; row->name; ++row) {
      if (hcx::begins_with(word, row->name)) bits |= row->val;
    }
    const char *end = sep == '\0' ? nullptr : strchr(part, sep);
    part = end ? end + 1 : nullptr;
  }
  return bits;
}

int bitfield2str(char *str, size_t str_len, uint32_t val, char sep, const named_const *descr) {
  if (!str || str_len == 0) return 0;
  str[0] = '\0';
  size_t length = 0;
  const char separator[] = {sep, ' ', '\0'};
  for (const named_const *row = descr; row && row->name; ++row) {
    if ((row->val & val) == 0) continue;
    if (length > 0 && str_len - length > 2) hcx::append(str, str_len, &length, separator);
    if (!hcx::append(str, str_len, &length, row->name)) break;
  }
  return static_cast<int>(length);
}
