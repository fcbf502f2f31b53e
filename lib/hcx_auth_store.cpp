// SPDX-License-Identifier: BSD-3-Clause
// Reading and rewriting the authentication daemon's configuration file. A rewrite is all or nothing: lines that
// no editor touches are carried over byte for byte, however long, and the new file is complete on disk before it
// gets the name. `change_mutex` keeps the threads of the process from using the one temporary name together; the
// event signal is blocked meanwhile, because a callback may want to change the file too.
#include "hcx_auth_store.h"

#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "hcx_signal.h"
#include "hcx_sysio.h"

namespace hcx::auth {
namespace {

const char conf_path[] = "/etc/wardend.conf";
const char temp_path[] = "/etc/wardend.conf~";
const char conf_dir[] = "/etc";
const char reload_command[] = "/etc/init.d/wardend reload";

constinit std::mutex change_mutex;

int read_all(int fd, Secret &content) {
  for (;;) {
    if (content.room() == 0 && !content.reserve(std::max<size_t>(4096, content.size() * 2))) return -ENOMEM;
    const ssize_t got = sysio::machine().read(fd, content.tail(), content.room());
    if (got <= 0) return static_cast<int>(got);
    content.grow(static_cast<size_t>(got));
  }
}

int write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = sysio::machine().write(fd, text.data(), text.size());
    if (done < 0) return static_cast<int>(done);
    if (done == 0) return -EIO;
    text.remove_prefix(static_cast<size_t>(done));
  }
  return 0;
}

int load(Secret &content) {
  Fd fd(sysio::machine().open(conf_path, O_RDONLY));
  if (!fd.ok()) return fd.get();
  return read_all(fd.get(), content);
}

uint32_t edit(std::string_view old, Editor &editor, Secret &out) {
  ConfLine line;
  while (next_line(old, line)) {
    if (uint32_t result = editor.line(line, out)) return result;
  }
  // A last line without its newline must not swallow what is appended; it stays as it is when nothing is.
  Secret addition;
  if (uint32_t result = editor.end(addition)) return result;
  if (addition.size() == 0) return HCX_AUTH_OK;
  const bool open_end = out.size() && out.view().back() != '\n';
  if (open_end && !out.append("\n")) return HCX_AUTH_ERROR;
  return out.append(addition.view()) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
}

// The new content, complete and on disk, under the temporary name.
int store_temp(Fd &fd, std::string_view text) {
  int rc = write_all(fd.get(), text);
  if (rc == 0) rc = sysio::machine().sync(fd.get());
  const int closed = sysio::machine().close(fd.release());
  return rc ? rc : closed;
}

void sync_directory() {
  Fd dir(sysio::machine().open(conf_dir, O_RDONLY | O_DIRECTORY));
  if (dir.ok()) sysio::machine().sync(dir.get());
}

uint32_t replace_file(Editor &editor) {
  sysio::Machine &machine = sysio::machine();
  Secret old;
  if (!load_or_complain(old)) return HCX_AUTH_ERROR;
  machine.set_umask(066);
  // A leftover under this name keeps its own mode, or may be a link to somewhere else.
  machine.unlink(temp_path);
  Fd temp(machine.open(temp_path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!temp.ok()) {
    printf("ERROR: Unable to open Config File %s\n", temp_path);
    return HCX_AUTH_ERROR;
  }
  Secret content;
  uint32_t result = edit(old.view(), editor, content);
  if (result == HCX_AUTH_OK && store_temp(temp, content.view()) < 0) result = HCX_AUTH_ERROR;
  if (result != HCX_AUTH_OK) {
    temp.reset();
    machine.unlink(temp_path);
    return result;
  }
  if (machine.rename(temp_path, conf_path) < 0) return HCX_AUTH_ERROR;
  sync_directory();
  return HCX_AUTH_OK;
}

}  // namespace

bool load_or_complain(Secret &content) {
  if (load(content) == 0) return true;
  printf("ERROR: Unable to open Config File %s\n", conf_path);
  return false;
}

uint32_t rewrite(Editor &editor) {
  {
    const EventSignalBlock no_events;
    const std::lock_guard<std::mutex> one_change(change_mutex);
    if (uint32_t result = replace_file(editor)) return result;
  }
  // The command shares standard output with our messages, and takes over the blocked signals.
  fflush(stdout);
  sysio::machine().run(reload_command);
  return HCX_AUTH_OK;
}

}  // namespace hcx::auth
