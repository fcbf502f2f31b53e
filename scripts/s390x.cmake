# SPDX-License-Identifier: BSD-3-Clause
# Cross build for big-endian s390x. Binaries run under user-mode emulation with the multiarch libraries of "/":
# the cross packages' own sysroot alone makes even a trivial program die with "stack smashing detected".
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x-static;-L;/)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/s390x-linux-gnu/pkgconfig)
