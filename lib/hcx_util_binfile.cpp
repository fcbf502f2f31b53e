// SPDX-License-Identifier: BSD-3-Clause
// The exported binary attribute routines, the lock that a command holds on "mbox" or "tibra", and one wrapper
// for each binary attribute of a host. The descriptor that a lock routine returns belongs to the caller until
// it is unlocked. No state; any thread.
#include <sys/file.h>

#include "hcx_util_attr.h"
#include "libhcx.h"

using hcx::scsi_host_dir;
using hcx::sysio::machine;

namespace {

bool seek_to(int fd, off_t offset) {
  return machine().seek(fd, offset) == offset;
}

size_t byte_count(ssize_t n) {
  return n < 0 ? 0 : static_cast<size_t>(n);
}

}  // namespace

size_t hcx_sysfs_read_binfile(const char *dir, const char *file, void *buff, off_t offset, size_t buff_len) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_read_bin({__func__, dir, file}, buff, offset, buff_len);
}

size_t hcx_sysfs_write_binfile(const char *dir, const char *file, const void *buff, off_t offset,
                               size_t buff_len) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_write_bin({__func__, dir, file}, buff, offset, buff_len);
}

int hcx_sysfs_lock_binfile(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return -1;
  return hcx::attr_lock({__func__, dir, file});
}

int hcx_sysfs_unlock_binfile(int file_desc) {
  if (file_desc < 0) return -1;
  const hcx::Fd fd(file_desc);
  return machine().lock(fd.get(), LOCK_UN) < 0 ? -1 : 0;
}

size_t hcx_sysfs_read_locked_fd(int fd, void *buff, off_t offset, size_t buff_len) {
  if (fd < 0 || !buff) return 0;
  if (offset != 0 && !seek_to(fd, offset)) return 0;
  return byte_count(machine().read(fd, buff, buff_len));
}

size_t hcx_sysfs_write_locked_fd(int fd, const void *buff, off_t offset, size_t buff_len) {
  if (fd < 0 || !buff) return 0;
  if (offset != 0 && !seek_to(fd, offset)) {
    HCX_LOG(LOG_ERROR, "lseek failed");
    return 0;
  }
  return byte_count(machine().write(fd, buff, buff_len));
}

int hcx_host_mbox_lock(hcx_host *host) {
  if (!host) return -1;
  return hcx_sysfs_lock_binfile(scsi_host_dir(host->id).c_str(), "mbox");
}

size_t hcx_host_mbox_write(int fd, const void *buff, off_t offset, size_t count) {
  if (fd < 0 || !seek_to(fd, 0)) return 0;
  return hcx_sysfs_write_locked_fd(fd, buff, offset, count);
}

size_t hcx_host_mbox_read(int fd, void *buff, off_t offset, size_t count) {
  if (fd < 0 || !seek_to(fd, 0)) return 0;
  return hcx_sysfs_read_locked_fd(fd, buff, offset, count);
}

int hcx_host_mbox_unlock(int fd) {
  return hcx_sysfs_unlock_binfile(fd);
}

int hcx_host_tibra_lock(hcx_host *host) {
  if (!host) return -1;
  return hcx::attr_lock_binfile(scsi_host_dir(host->id).c_str(), "tibra");
}

size_t hcx_host_tibra_write(int fd, const void *buff, off_t offset, size_t count) {
  if (fd < 0 || !seek_to(fd, offset)) return 0;
  return hcx_sysfs_write_locked_fd(fd, buff, offset, count);
}

size_t hcx_host_tibra_read(int fd, void *buff, off_t offset, size_t count) {
  return hcx_host_mbox_read(fd, buff, offset, count);
}

int hcx_host_tibra_unlock(int fd) {
  return hcx_sysfs_unlock_binfile(fd);
}

size_t hcx_host_ctlreg_read(hcx_host *host, void *buff, off_t offset, size_t count) {
  if (!host) return 0;
  return hcx_sysfs_read_binfile(scsi_host_dir(host->id).c_str(), "ctlreg", buff, offset, count);
}

size_t hcx_host_ctlreg_write(hcx_host *host, const void *buff, off_t offset, size_t count) {
  if (!host) return 0;
  return hcx_sysfs_write_binfile(scsi_host_dir(host->id).c_str(), "ctlreg", buff, offset, count);
}

size_t hcx_host_slimem_read(hcx_host *host, void *buff, off_t offset, size_t count) {
  if (!host) return 0;
  return hcx::attr_read_binfile(scsi_host_dir(host->id).c_str(), "slimem", buff, offset, count);
}

size_t hcx_host_slimem_write(hcx_host *host, const void *buff, off_t offset, size_t count) {
  if (!host) return 0;
  return hcx::attr_write_binfile(scsi_host_dir(host->id).c_str(), "slimem", buff, offset, count);
}

size_t hcx_host_stats_read(hcx_host *host, void *buff, off_t offset, size_t count) {
  if (!host) return 0;
  return hcx::attr_read_binfile(scsi_host_dir(host->id).c_str(), "stats", buff, offset, count);
}

size_t hcx_host_pcireg_read(hcx_host *host, void *buff, off_t offset, size_t count) {
  if (!host || !host->pci_dev) return 0;
  return hcx_sysfs_read_binfile(host->pci_dev, "config", buff, offset, count);
}
