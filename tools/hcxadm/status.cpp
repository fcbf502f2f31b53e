// SPDX-License-Identifier: BSD-3-Clause
// The tables behind status.h: one row a status number, with its name and the exit status it leads to.
#include "status.h"

#include <cstring>
#include <span>

namespace hcxadm {
namespace {

struct StatusRow {
  int64_t code;
  const char *name;
  ExitStatus exit;
};

constexpr StatusRow hba_rows[] = {
    {0, "ok", kDone},
    {1, "error", kFailed},
    {2, "not supported", kNotSupported},
    {3, "invalid board", kNoSuch},
    {4, "bad argument", kUsage},
    {5, "illegal WWN", kNoSuch},
    {6, "illegal index", kNoSuch},
    {7, "more data", kFailed},
    {8, "stale data", kBusy},
    {9, "SCSI check condition", kFailed},
    {10, "busy", kBusy},
    {11, "try again", kBusy},
    {12, "unavailable", kNotSupported},
};

constexpr StatusRow scsi_rows[] = {
    {0, "sent", kDone},
    {1, "no such LUN, or it could not be reached", kFailed},
    {2, "cannot be carried", kNotSupported},
    {3, "the LUN has no device node", kNoSuch},
    {4, "no such port, or a malformed command", kNoSuch},
};

constexpr StatusRow vendor_rows[] = {
    {0, "success", kDone},
    {1, "error", kFailed},
    {2, "not supported, or refused by the firmware", kNotSupported},
    {3, "wrong SLI mode or size", kNotSupported},
    {4, "wrong record version", kFailed},
    {12, "no such board", kNoSuch},
};

constexpr StatusRow mailbox_rows[] = {
    {0, "success", kDone},
    {1, "number of rings", kFailed},
    {2, "number of IOCBs", kFailed},
    {3, "IOCBs exceeded", kFailed},
    {4, "bad ring number", kFailed},
    {5, "mask entries range", kFailed},
    {6, "masks exceeded", kFailed},
    {7, "bad profile", kFailed},
    {8, "bad default class", kFailed},
    {9, "bad maximum of responders", kFailed},
    {10, "bad maximum of originators", kFailed},
    {11, "RPI registered", kFailed},
    {12, "RPIs exhausted", kFailed},
    {13, "no resources", kFailed},
    {14, "bad receive length", kFailed},
    {15, "DMA error", kFailed},
    {16, "error", kFailed},
    {252, "failed in the library or the driver", kFailed},
    {253, "busy", kBusy},
    {254, "timed out", kBusy},
    {255, "not finished", kBusy},
    {0xfffffe, "timed out", kBusy},
    {0xffffff, "busy", kBusy},
};

constexpr StatusRow fcsp_rows[] = {
    {0, "success", kDone},
    {0x8001, "nothing stored for this pair of ports", kNoSuch},
    {0x8004, "the password does not match", kRefused},
    {0x8005, "no such local port or remote entity", kNoSuch},
    {0x8006, "the password is malformed", kUsage},
    {0x8009, "invalid configuration", kUsage},
    {0x800d, "authentication not enabled, no such port, or file or driver error", kFailed},
    {0x8011, "the password equals that of the other direction", kRefused},
    {0x8030, "not supported", kNotSupported},
};

constexpr StatusRow vport_rows[] = {
    {0, "success", kDone},
    {1, "error, or refused by the driver", kFailed},
    {3, "no such board", kNoSuch},
    {4, "no such virtual port", kNoSuch},
    {7, "more data", kFailed},
    {12, "no such board", kNoSuch},
    {15, "the virtual port is static", kRefused},
};

constexpr StatusRow vport_create_rows[] = {
    {0, "success", kDone},
    {1, "refused by the driver", kFailed},
    {2, "the driver does not tell how many virtual ports it can have", kNotSupported},
    {4, "no room for another virtual port", kRefused},
    {5, "the port name is in use on this machine", kRefused},
    {6, "no port name is left, or names all zero", kRefused},
    {11, "no such board", kNoSuch},
    {12, "an option that is not supported", kUsage},
};

constexpr StatusRow sd_rows[] = {
    {0, "ok", kDone},
    {1, "generic error", kFailed},
    {2, "invalid argument", kUsage},
    {3, "invalid board", kNoSuch},
    {4, "invalid port", kNoSuch},
    {5, "not supported", kNotSupported},
    {6, "event category not supported", kNotSupported},
    {7, "event subcategory not supported", kNotSupported},
    {8, "more data available", kFailed},
    {9, "event already registered", kRefused},
    {10, "no active registration", kNoSuch},
    {11, "argument missing", kUsage},
    {12, "no memory", kFailed},
    {13, "bucket not set", kRefused},
    {14, "bad registration handle", kNoSuch},
    {15, "invalid search type", kUsage},
    {16, "function not supported", kNotSupported},
    {17, "out of handles", kFailed},
    {18, "library not initialised", kFailed},
    {19, "data collection active", kRefused},
    {20, "data collection not active", kRefused},
};

std::span<const StatusRow> rows_of(Family family) {
  switch (family) {
    case Family::hba:
      return hba_rows;
    case Family::scsi:
      return scsi_rows;
    case Family::vendor:
      return vendor_rows;
    case Family::mailbox:
      return mailbox_rows;
    case Family::fcsp:
      return fcsp_rows;
    case Family::vport:
      return vport_rows;
    case Family::vport_create:
      return vport_create_rows;
    case Family::sd:
      return sd_rows;
    case Family::sys:
      return {};
  }
  return {};
}

const StatusRow *find_row(Family family, int64_t code) {
  for (const StatusRow &row : rows_of(family))
    if (row.code == code) return &row;
  return nullptr;
}

int error_number(int64_t code) {
  return static_cast<int>(code < 0 ? -code : code);
}

ExitStatus exit_status_of_errno(int error) {
  switch (error) {
    case 0:
      return kDone;
    case EACCES:
    case EPERM:
    case EROFS:
      return kRefused;
    case EBUSY:
    case EAGAIN:
    case ETIMEDOUT:
      return kBusy;
    case ENODEV:
    case ENXIO:
    case ENOENT:
      return kNoSuch;
    case EOPNOTSUPP:
    case ENOSYS:
    case ENOTTY:
      return kNotSupported;
    default:
      return kFailed;
  }
}

}  // namespace

std::string status_name(Family family, int64_t code) {
  if (family == Family::sys) return std::strerror(error_number(code));
  const StatusRow *row = find_row(family, code);
  return row ? row->name : "unknown status";
}

ExitStatus exit_status(Family family, int64_t code) {
  if (family == Family::sys) return exit_status_of_errno(error_number(code));
  const StatusRow *row = find_row(family, code);
  return row ? row->exit : kFailed;
}

std::string text_of(const Problem &problem) {
  std::string text;
  if (!problem.board.empty()) text += problem.board + ": ";
  text += problem.tried;
  if (!problem.name.empty()) text += ": " + problem.name;
  if (problem.code) text += " (" + std::to_string(*problem.code) + ")";
  if (!problem.todo.empty()) text += "; " + problem.todo;
  return text;
}

Failure call_failure(Family family, int64_t code, std::string tried, std::string board, std::string todo) {
  ExitStatus status = exit_status(family, code);
  return Failure({.status = status == kDone ? kFailed : status,
                  .tried = std::move(tried),
                  .board = std::move(board),
                  .code = code,
                  .name = status_name(family, code),
                  .todo = std::move(todo)});
}

}  // namespace hcxadm
