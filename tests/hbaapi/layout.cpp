// SPDX-License-Identifier: BSD-3-Clause
// Prints the binary interface between the wrapper and a vendor library: sizes and offsets of the records, numbers, and
// the place and type of each function. Compiled twice, with this project's headers and (WRAPPER) with the wrapper's:
// both must print the same. The list of what there is, is made from the wrapper's headers.
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <typeinfo>

#ifdef WRAPPER
#include <hbaapi.h>
#include <vendorhbaapi.h>
#define FIRST(entry) entry
#else
#include "hba_vendor.h"
#include "hbaapi.h"
#define FIRST(entry) v1.entry
#endif

#define MEMBER(type, member) (static_cast<type *>(nullptr)->member)
#define RECORD(type) std::printf("%s %zu\n", #type, sizeof(type));
#define FIELD(type, field) \
  std::printf("%s.%s at %zu, %zu bytes\n", #type, #field, offsetof(type, field), sizeof MEMBER(type, field));
#define NUMBER(number) std::printf("%s = %lld\n", #number, static_cast<long long>(number));
#define ENTRY(type, entry, place) \
  std::printf("%s.%s at %zu, %s\n", #type, #entry, offsetof(type, place), typeid(MEMBER(type, place)).name());
#define BOTH(entry) ENTRY(HBA_ENTRYPOINTS, entry, entry) ENTRY(HBA_ENTRYPOINTSV2, entry, FIRST(entry))
#define SECOND(entry) ENTRY(HBA_ENTRYPOINTSV2, entry, entry)

int main() {
#include "interface.inc"
}
