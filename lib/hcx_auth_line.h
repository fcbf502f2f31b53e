// SPDX-License-Identifier: BSD-3-Clause
// The lines of the authentication daemon's configuration file: one reader and one writer for each kind. Nothing
// here does I/O or keeps anything.
#pragma once

#include <cstdint>
#include <string_view>

#include "hcx_secret.h"
#include "libhcx_api.h"

namespace hcx::auth {

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

// A PASSWORD line's two secrets, wiped at the end. One that is missing reads as "not set".
struct Stored {
  Stored() = default;
  Stored(const Stored &) = delete;
  Stored &operator=(const Stored &) = delete;
  ~Stored() {
    wipe(&local, sizeof(local));
    wipe(&remote, sizeof(remote));
  }
  AUTH_PASSWD_INFO local = {};
  AUTH_PASSWD_INFO remote = {};
  // Where type and value stand in the line, if the record could not take them in whole; else empty.
  std::string_view odd_local;
  std::string_view odd_remote;
};
void parse_passwords(std::string_view text, Stored &stored);

// What a PASSWORD line says of one direction: a password, or words of another line that are carried over.
struct PasswordText {
  const AUTH_PASSWD_INFO &password;
  std::string_view words = {};
};
bool format_passwords(uint64_t local_entity, uint64_t remote_entity, const PasswordText &local,
                      const PasswordText &remote, Secret &out);

}  // namespace hcx::auth
