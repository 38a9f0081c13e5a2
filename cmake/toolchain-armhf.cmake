# SPDX-License-Identifier: MIT
# 32-bit ARM, hard float, by Debian's cross compiler; tests run under qemu's emulation of one process.
# The baseline is an ARMv7-A without NEON and without an integer divide (Cortex-A8): the smallest
# machine that Debian's own armhf supports.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_STRIP arm-linux-gnueabihf-strip)
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard -mthumb -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
# Libraries that are headers alone, as relayctl's, are the same on every machine.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# A full path: some tests empty PATH.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-arm-static -L /usr/arm-linux-gnueabihf)
# AddressSanitizer's search for leaks does not work here, nor its stack for signal handlers.
if(SPH_SANITIZE)
  list(PREPEND CMAKE_CROSSCOMPILING_EMULATOR
    /usr/bin/env ASAN_OPTIONS=detect_leaks=0:use_sigaltstack=0)
endif()
