// SPDX-License-Identifier: BSD-3-Clause
// The exported text attribute routines: each asks the capability templates first, then opens, uses and closes
// the attribute. No state; any thread.
#include <errno.h>

#include <cstring>

#include "hcx_util_attr.h"
#include "libhcx.h"

char *hcx_sysfs_read_str(const char *dir, const char *file, char *ret_val, size_t buff_len) {
  if (!find_sys_class_mmm(dir, file)) return hcx::attr_str_refused(__func__, dir, file, ret_val, buff_len);
  return hcx::attr_str({__func__, dir, file}, ret_val, buff_len);
}

int hcx_sysfs_read_int(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_int({__func__, dir, file});
}

unsigned int hcx_sysfs_read_uint(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_uint({__func__, dir, file});
}

uint32_t hcx_sysfs_read_hexuint32(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_hex32({__func__, dir, file});
}

uint64_t hcx_sysfs_read_hexuint64(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_hex64({__func__, dir, file});
}

int hcx_sysfs_write_str(const char *dir, const char *file, const char *out_str) {
  if (!find_sys_class_mmm(dir, file)) return 2;
  if (!out_str) return EINVAL;
  return hcx::attr_write({__func__, dir, file}, out_str);
}

int hcx_sysfs_test_file(const char *dir, const char *file) {
  if (!find_sys_class_mmm(dir, file)) return 0;
  return hcx::attr_test({__func__, dir, file}) ? 1 : 0;
}

int hcx_sysfs_test_dir(const char *dir_name) {
  if (!dir_name) return 0;
  HCX_LOG_PATH(dir_name);
  return hcx::Fd(hcx::sysio::machine().open(dir_name, O_RDONLY | O_DIRECTORY)).ok() ? 1 : 0;
}

uint64_t hcx_host_stat_read(hcx_host *host, const char *stat_name) {
  if (!host) return 0;
  const hcx::Path dir("/sys/class/fc_host/host%d/statistics/", static_cast<int>(host->id));
  return hcx_sysfs_read_hexuint64(dir.c_str(), stat_name);
}

char *hcx_str_chop_cr(char *str_buff) {
  if (!str_buff) return nullptr;
  if (char *newline = strrchr(str_buff, '\n')) *newline = '\0';
  return str_buff;
}
