// SPDX-License-Identifier: BSD-3-Clause
// The authentication daemon's configuration file: reading it, and the one way in which it is rewritten.
//
// The file holds secrets: whatever is read from it or formatted for it lives in Secret buffers. Nothing is cached.
// The threads of a process change the file one after the other; nothing holds other processes off, so that two
// that change it at once can lose a change.
#pragma once

#include <cstdint>

#include "hcx_auth_line.h"

namespace hcx::auth {

// The whole file, with a message when it cannot be opened. False when it could not be read.
bool load_or_complain(Secret &content);

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

}  // namespace hcx::auth
