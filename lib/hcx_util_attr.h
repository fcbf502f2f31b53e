// SPDX-License-Identifier: BSD-3-Clause
// One attribute, opened, used and closed: what the exported sysfs routines and their ungated twins share.
// Nothing in here asks the capability templates; that is decided before. No state; any thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "hcx_guard.h"

namespace hcx {

// An attribute, and the routine whose name its log lines carry. `dir` ends in "/"; neither text is null.
struct Attr {
  const char *caller;
  const char *dir;
  const char *file;
};

// Logs the path, opens it; a failure is logged too. An Fd that is not ok() holds nothing to close.
Fd attr_open(const Attr &attr, int flags);
// Up to size-1 bytes, terminated, until the first line is complete, or with `skip_empty_lines` the first line
// with a text, as a number scan needs it. The length or a negated errno.
ssize_t attr_fill(int fd, char *text, size_t size, bool skip_empty_lines);

char *attr_str(const Attr &attr, char *text, size_t size);
int attr_int(const Attr &attr);
uint32_t attr_uint(const Attr &attr);
uint32_t attr_hex32(const Attr &attr);
uint64_t attr_hex64(const Attr &attr);
int attr_write(const Attr &attr, const char *text);
bool attr_test(const Attr &attr);
// The bytes read, 0 for what cannot be opened or has no such offset, a negated errno when the read itself failed.
ssize_t attr_read_some(const Attr &attr, void *buff, off_t offset, size_t count);
size_t attr_read_bin(const Attr &attr, void *buff, off_t offset, size_t count);
size_t attr_write_bin(const Attr &attr, const void *buff, off_t offset, size_t count);
int attr_lock(const Attr &attr);

// The line and the result of hcx_sysfs_read_str() for an attribute that is not there. Texts may be null.
char *attr_str_refused(const char *caller, const char *dir, const char *file, char *text, size_t size);

// Numbers at the start of a text, none when there is no number. Decimals may have a sign and are cut to 32
// bits, so that "-1" is all ones; hexadecimals need their "0x".
std::optional<uint32_t> scan_decimal(const char *text);
std::optional<uint64_t> scan_hex(const char *text);

// True when the attribute may be used by the library's own areas: it stands in the table of ungated
// attributes or the templates offer it.
bool attr_offered(const char *dir, const char *file);

}  // namespace hcx
