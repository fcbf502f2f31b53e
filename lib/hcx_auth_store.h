// SPDX-License-Identifier: BSD-3-Clause
// The authentication daemon's configuration file: its lines, and the one way in which it is rewritten.
//
// The file holds secrets. Whatever is read from it or formatted for it lives in Secret buffers, which are
// wiped when they go. Nothing here is cached and no lock is taken; two processes that change the file at once
// can lose a change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hcx_guard.h"
#include "libhcx_api.h"

namespace hcx::auth {

extern const char conf_path[];
extern const char temp_path[];

// A growing byte buffer that leaves nothing behind in the heap.
class Secret {
 public:
  Secret() = default;
  Secret(const Secret &) = delete;
  Secret &operator=(const Secret &) = delete;
  ~Secret() { wipe(); }

  const char *data() const { return data_.get(); }
  size_t size() const { return size_; }
  std::string_view view() const { return {data_.get(), size_}; }
  // Both give false when there is no memory; what was there before stays.
  bool append(std::string_view text);
  bool reserve(size_t capacity);
  // Room behind the bytes, and taking some of it in.
  char *tail() { return data_.get() + size_; }
  size_t room() const { return capacity_ - size_; }
  void grow(size_t count) { size_ += count; }

 private:
  void wipe();

  HeapArray<char> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

enum class Kind { config, password, other };

// One line of the file, with its newline if it has one. `paired` tells whether the two names could be read; a
// line without them belongs to no pair, whatever it begins with.
struct ConfLine {
  std::string_view text;
  Kind kind = Kind::other;
  bool paired = false;
  uint64_t local = 0;
  uint64_t remote = 0;

  bool of_pair(uint64_t local_entity, uint64_t remote_entity) const {
    return paired && local == local_entity && remote == remote_entity;
  }
};

// Splits the next line off `rest`; false at the end.
bool next_line(std::string_view &rest, ConfLine &line);

// The whole file; 0 or a negated errno.
int load(Secret &content);
// As load(), with the message that a file cannot be opened. False when it could not be read.
bool load_or_complain(Secret &content);

// Parses a CONFIG line's parameters as they stand; false unless all are there.
struct ConfigFields {
  int timeout;
  int mode;
  int bidirectional;
  uint8_t types[4];
  uint8_t hashes[4];
  uint8_t groups[8];
  int type_count;
  int hash_count;
  int group_count;
  int interval;
};
bool parse_config(std::string_view text, ConfigFields &fields);
bool format_config(const KRX_FCSP_CONFIG &config, Secret &out);

// A PASSWORD line's two secrets. Missing values read as "not set".
void parse_passwords(std::string_view text, AUTH_PASSWD_INFO &local, AUTH_PASSWD_INFO &remote);
bool format_passwords(uint64_t local_entity, uint64_t remote_entity, const AUTH_PASSWD_INFO &local,
                      const AUTH_PASSWD_INFO &remote, Secret &out);

// Decides, line by line, what a rewrite puts into the new file.
class Editor {
 public:
  virtual ~Editor() = default;
  // Appends to `out` what takes the place of `line`. A result other than 0 gives the rewrite up.
  virtual uint32_t line(const ConfLine &line, Secret &out) = 0;
  // Appends what comes behind the last line.
  virtual uint32_t end(Secret &out) = 0;
};

// Runs every line through the editor and puts the result in place: a new temporary file, flushed to disk,
// renamed over the old one, the daemon told to reload. Until the rename the old file is untouched. 0, the
// editor's result, or HCX_AUTH_ERROR.
uint32_t rewrite(Editor &editor);

// Overwrites a record that held a secret.
void wipe(void *data, size_t size);

}  // namespace hcx::auth
