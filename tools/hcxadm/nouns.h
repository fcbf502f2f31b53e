// SPDX-License-Identifier: BSD-3-Clause
// The nouns of the command line, in the order of the help text and the man page. A new noun is one line here
// and one file noun_NAME.cpp that defines add_NAME(); its page is docs/man/hcxadm-NAME.8, its examples stand in
// examples.cpp, the schemas of its JSON in docs/schema.
#pragma once

#include "hcxadm.h"

#define HCXADM_NOUNS(NOUN) \
  NOUN(list)               \
  NOUN(show)               \
  NOUN(port)               \
  NOUN(lun)                \
  NOUN(map)                \
  NOUN(stats)              \
  NOUN(top)                \
  NOUN(link)               \
  NOUN(latency)            \
  NOUN(scsi)               \
  NOUN(metrics)            \
  NOUN(param)              \
  NOUN(loopback)           \
  NOUN(reg)                \
  NOUN(pci)                \
  NOUN(reset)              \
  NOUN(mode)               \
  NOUN(region)             \
  NOUN(fcf)                \
  NOUN(fip)                \
  NOUN(qos)                \
  NOUN(mbox)               \
  NOUN(ct)                 \
  NOUN(els)                \
  NOUN(rnid)               \
  NOUN(event)              \
  NOUN(vport)              \
  NOUN(auth)               \
  NOUN(caps)               \
  NOUN(log)                \
  NOUN(version)

namespace hcxadm {

#define HCXADM_DECLARE_NOUN(name) void add_##name(CLI::App &root, Context &ctx);
HCXADM_NOUNS(HCXADM_DECLARE_NOUN)
#undef HCXADM_DECLARE_NOUN
// Verbs of "link" in a file of their own.
void add_link_persist(CLI::App &link, Context &ctx);

}  // namespace hcxadm
