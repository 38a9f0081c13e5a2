# SPDX-License-Identifier: MIT
# Language level, warnings and hardening of every target of this project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# A thread that is cancelled while it handles a signal is unwound through the handler, which throws
# nothing: of such a function the compiler for ARM would say that nobody can be, and what stands behind
# it on the stack would be left undone.
add_compile_options(-funwind-tables)

# 64-bit time and file offsets on 32-bit machines: without both, stat and the clock fail in 2038.
add_compile_definitions(_FILE_OFFSET_BITS=64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_TIME_BITS=64)
endif()

# Errors in every preset (CMAKE_COMPILE_WARNING_AS_ERROR). Another compiler's opinion, or this one's
# at another level of optimisation, must not keep anybody from installing.
add_library(sph_warnings INTERFACE)
target_compile_options(sph_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
  -Wcast-align -Wcast-qual -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
  -Wnull-dereference -Wimplicit-fallthrough -Wextra-semi
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wno-psabi>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# gcc 12 takes a length at -O3 for negative where a string is put before another (its bug 105651).
target_compile_options(sph_warnings INTERFACE
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>,$<CONFIG:Release>>:-Wno-restrict>)
# A cast from ssize_t to int is useless only where the two are the same type.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  target_compile_options(sph_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wuseless-cast>)
endif()

set(SPH_HARDENING "-fstack-protector-strong;-fstack-clash-protection")
add_compile_options("$<$<NOT:$<CONFIG:Debug>>:${SPH_HARDENING}>")
add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack,--as-needed)

# SPH_SANITIZE: a list for -fsanitize= ("address,undefined", "thread"), or empty. Every finding ends
# the program.
set(SPH_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(SPH_SANITIZE)
  add_compile_options(-fsanitize=${SPH_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SPH_SANITIZE})
endif()
