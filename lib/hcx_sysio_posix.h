// SPDX-License-Identifier: BSD-3-Clause
// The larger verbs of PosixMachine, each family in a file of its own. Their contracts stand in hcx_sysio.h.
#pragma once

#include "hcx_sysio.h"

namespace hcx::sysio::posix {

Netlink *netlink_alloc();
int netlink_connect(Netlink *socket, int protocol, uint32_t groups);
int netlink_wait(Netlink *socket, const sigset_t *mask);
ssize_t netlink_receive(Netlink *socket, Datagram *datagram);
void netlink_wake(Netlink *socket);
void netlink_done(Netlink *socket);
bool netlink_wait_done(Netlink *socket, int milliseconds);
void netlink_close(Netlink *socket);
void netlink_free(Netlink *socket);

int spawn(int (*body)(void *arg, int pid), void *arg);
void syslog_direct(const char *ident, int priority, const char *text);

}  // namespace hcx::sysio::posix
