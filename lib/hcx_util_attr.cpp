// SPDX-License-Identifier: BSD-3-Clause
// Attributes: the one implementation behind the exported sysfs routines and behind their ungated twins, and
// the table of the attributes that are used without asking the capability templates. No state; any thread.
#include "hcx_util_attr.h"

#include <errno.h>
#include <sys/file.h>

#include <cstdlib>
#include <cstring>

#include "libhcx.h"

namespace hcx {
namespace {

struct UngatedAttr {
  const char *dir;   // how the directory begins
  const char *file;  // null: every file
};

constexpr char scsi_host[] = "/sys/class/scsi_host/";
constexpr char fc_host[] = "/sys/class/fc_host/";
constexpr char fc_vports[] = "/sys/class/fc_vports/";
constexpr char fc_transport[] = "/sys/class/fc_transport/";

// The capability templates have no row for these attributes, so the exported routines refuse them. The
// library needs them all the same: it finds out by looking whether the driver has them. An area that needs
// another one adds it here.
constexpr UngatedAttr ungated_attrs[] = {
    // Adapter memory, statistics block and bridge commands of drivers that have them.
    {scsi_host, "slimem"},
    {scsi_host, "stats"},
    {scsi_host, "tibra"},
    // Port state where "link_state" is missing, and the switch that takes the port online and offline.
    {scsi_host, "state"},
    {scsi_host, "board_online"},
    {scsi_host, "mlomode"},
    // NPIV resources; a physical port is told from a virtual one by its "issue_lip".
    {scsi_host, "max_vpi"},
    {scsi_host, "used_vpi"},
    {scsi_host, "max_rpi"},
    {scsi_host, "used_rpi"},
    {scsi_host, "vosk_symbolic_name"},
    {fc_host, "issue_lip"},
    {fc_host, "vport_state"},
    {fc_vports, "vport_state"},
    // Authentication.
    {scsi_host, "vosk_enable_auth"},
    {scsi_host, "vosk_authenticate"},
    {scsi_host, "auth_state"},
    {scsi_host, "auth_protocol"},
    {scsi_host, "auth_dhgroup"},
    {scsi_host, "auth_hash"},
    {scsi_host, "auth_dir"},
    {scsi_host, "auth_last"},
    {scsi_host, "auth_next"},
    // Older kernels keep the virtual port files under scsi_host ...
    {scsi_host, "vport_create"},
    {scsi_host, "vport_delete"},
    {scsi_host, "max_npiv_vports"},
    {scsi_host, "npiv_vports_inuse"},
    // ... and the oldest ones the port itself, with its remote ports under fc_transport.
    {scsi_host, "portfcid"},
    {scsi_host, "node_name"},
    {scsi_host, "port_name"},
    {scsi_host, "port_id"},
    {scsi_host, "port_state"},
    {scsi_host, "supported_classes"},
    {scsi_host, "maxframe_size"},
    {fc_transport, nullptr},
};

bool ungated(const char *dir, const char *file) {
  for (const UngatedAttr &row : ungated_attrs) {
    if (strncmp(dir, row.dir, strlen(row.dir)) == 0 && (!row.file || strcmp(file, row.file) == 0))
      return true;
  }
  return false;
}

const char *shown(const char *text) {
  return text ? text : "(null)";
}

void log_not_found(const char *caller, const char *dir, const char *file) {
  libhcx_syslog(LOG_ERROR, "%s - Error did not find file %s in %s", caller, shown(file), shown(dir));
}

// The text of an attribute that holds one number; empty when there is none to be had.
Line number_text(const Attr &attr) {
  Line line;
  Fd fd = attr_open(attr, O_RDONLY);
  if (fd.ok() && attr_fill(fd.get(), line.data(), Line::size(), true) < 0) line.data()[0] = '\0';
  return line;
}

// A descriptor put on `offset`; offset 0 is where it already stands.
bool place(int fd, off_t offset) {
  return offset == 0 || sysio::machine().seek(fd, offset) == offset;
}

}  // namespace

bool attr_offered(const char *dir, const char *file) {
  if (dir && file && ungated(dir, file)) return true;
  return find_sys_class_mmm(dir, file) != 0;
}

Fd attr_open(const Attr &attr, int flags) {
  Path path;
  path.assign(attr.dir).append(attr.file);
  libhcx_syslog(LOG_DEVICE_NAME, "%s() - %s", attr.caller, path.c_str());
  Fd fd(sysio::machine().open(path.c_str(), flags));
  if (!fd.ok()) libhcx_syslog(LOG_ERROR, "%s - Open failed file %s in %s", attr.caller, attr.file, attr.dir);
  return fd;
}

ssize_t attr_fill(int fd, char *text, size_t size, bool skip_empty_lines) {
  size_t length = 0;
  text[0] = '\0';
  while (length + 1 < size) {
    const ssize_t n = sysio::machine().read(fd, text + length, size - 1 - length);
    if (n < 0) return n;
    if (n == 0) break;
    length += static_cast<size_t>(n);
    text[length] = '\0';
    const char *begin = skip_empty_lines ? text + strspn(text, " \t\r\n") : text;
    if (strchr(begin, '\n')) break;
  }
  return static_cast<ssize_t>(length);
}

std::optional<uint32_t> scan_decimal(const char *text) {
  char *end = nullptr;
  const long long value = strtoll(text, &end, 10);
  if (end == text) return std::nullopt;
  return static_cast<uint32_t>(value);
}

std::optional<uint64_t> scan_hex(const char *text) {
  if (strncmp(text, "0x", 2) != 0) return std::nullopt;
  char *end = nullptr;
  const unsigned long long value = strtoull(text + 2, &end, 16);
  if (end == text + 2) return std::nullopt;
  return value;
}

char *attr_str_refused(const char *caller, const char *dir, const char *file, char *text, size_t size) {
  log_not_found(caller, dir, file);
  if (text && size > 0) text[0] = '\0';
  return nullptr;
}

char *attr_str(const Attr &attr, char *text, size_t size) {
  if (!text || size == 0) return nullptr;
  text[0] = '\0';
  Fd fd = attr_open(attr, O_RDONLY);
  // One byte of the caller's buffer always stays unused.
  if (!fd.ok() || attr_fill(fd.get(), text, size - 1, false) < 0) {
    return attr_str_refused(attr.caller, attr.dir, attr.file, text, size);
  }
  text[strcspn(text, "\n")] = '\0';
  return text;
}

int attr_int(const Attr &attr) {
  return static_cast<int>(scan_decimal(number_text(attr).c_str()).value_or(0));
}

uint32_t attr_uint(const Attr &attr) {
  return scan_decimal(number_text(attr).c_str()).value_or(0);
}

uint32_t attr_hex32(const Attr &attr) {
  return static_cast<uint32_t>(scan_hex(number_text(attr).c_str()).value_or(0));
}

uint64_t attr_hex64(const Attr &attr) {
  return scan_hex(number_text(attr).c_str()).value_or(0);
}

int attr_write(const Attr &attr, const char *text) {
  Fd fd = attr_open(attr, O_WRONLY | O_TRUNC);
  if (!fd.ok()) return 2;
  const size_t length = strlen(text);
  if (length == 0) return 0;
  // An attribute takes its text in one piece: the rest of a short write would be another command.
  const ssize_t n = sysio::machine().write(fd.get(), text, length);
  if (n < 0) return static_cast<int>(-n);
  return static_cast<size_t>(n) == length ? 0 : EIO;
}

bool attr_test(const Attr &attr) {
  return attr_open(attr, O_RDONLY).ok();
}

ssize_t attr_read_some(const Attr &attr, void *buff, off_t offset, size_t count) {
  if (!buff) return 0;
  Fd fd = attr_open(attr, O_RDONLY);
  if (!fd.ok() || !place(fd.get(), offset)) return 0;
  return sysio::machine().read(fd.get(), buff, count);
}

size_t attr_read_bin(const Attr &attr, void *buff, off_t offset, size_t count) {
  const ssize_t n = attr_read_some(attr, buff, offset, count);
  return n < 0 ? 0 : static_cast<size_t>(n);
}

size_t attr_write_bin(const Attr &attr, const void *buff, off_t offset, size_t count) {
  if (!buff) return 0;
  Fd fd = attr_open(attr, O_WRONLY);
  if (!fd.ok()) return 0;
  if (!place(fd.get(), offset)) {
    libhcx_syslog(LOG_ERROR, "%s - lseek failed", attr.caller);
    return 0;
  }
  const ssize_t n = sysio::machine().write(fd.get(), buff, count);
  return n < 0 ? 0 : static_cast<size_t>(n);
}

int attr_lock(const Attr &attr) {
  Fd fd = attr_open(attr, O_RDWR);
  if (!fd.ok() || sysio::machine().lock(fd.get(), LOCK_EX) < 0) return -1;
  return fd.release();
}

// ---- The twins that the library's own areas use. Their log lines carry the exported routine's name. ----

char *attr_read_str(const char *dir, const char *file, char *text, size_t size) {
  if (!attr_offered(dir, file)) return attr_str_refused("hcx_sysfs_read_str", dir, file, text, size);
  return attr_str({"hcx_sysfs_read_str", dir, file}, text, size);
}

int attr_read_int(const char *dir, const char *file) {
  return attr_offered(dir, file) ? attr_int({"hcx_sysfs_read_int", dir, file}) : 0;
}

uint32_t attr_read_uint(const char *dir, const char *file) {
  return attr_offered(dir, file) ? attr_uint({"hcx_sysfs_read_uint", dir, file}) : 0;
}

uint32_t attr_read_hex32(const char *dir, const char *file) {
  return attr_offered(dir, file) ? attr_hex32({"hcx_sysfs_read_hexuint32", dir, file}) : 0;
}

uint64_t attr_read_hex64(const char *dir, const char *file) {
  return attr_offered(dir, file) ? attr_hex64({"hcx_sysfs_read_hexuint64", dir, file}) : 0;
}

int attr_write_str(const char *dir, const char *file, const char *text) {
  if (!text) return EINVAL;
  return attr_offered(dir, file) ? attr_write({"hcx_sysfs_write_str", dir, file}, text) : 2;
}

bool attr_exists(const char *dir, const char *file) {
  return attr_offered(dir, file) && attr_test({"hcx_sysfs_test_file", dir, file});
}

size_t attr_read_binfile(const char *dir, const char *file, void *buff, off_t offset, size_t count) {
  return attr_offered(dir, file) ? attr_read_bin({"hcx_sysfs_read_binfile", dir, file}, buff, offset, count)
                                 : 0;
}

ssize_t attr_read_part(const char *dir, const char *file, void *buff, off_t offset, size_t count) {
  return attr_offered(dir, file) ? attr_read_some({"hcx_sysfs_read_binfile", dir, file}, buff, offset, count)
                                 : 0;
}

size_t attr_write_binfile(const char *dir, const char *file, const void *buff, off_t offset, size_t count) {
  return attr_offered(dir, file) ? attr_write_bin({"hcx_sysfs_write_binfile", dir, file}, buff, offset, count)
                                 : 0;
}

int attr_lock_binfile(const char *dir, const char *file) {
  return attr_offered(dir, file) ? attr_lock({"hcx_sysfs_lock_binfile", dir, file}) : -1;
}

}  // namespace hcx
