// SPDX-License-Identifier: MIT
// In a process that preloads this library the allocation fails whose number FAIL_ALLOCATION gives,
// and the file /dev/shm/allocation-failed tells that it came. The programs that the process starts
// are spared.
//
// Nothing here may allocate, lock or use a stream: the calls come from anywhere.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

std::atomic<unsigned long> calls{0};
unsigned long failing = 0;

__attribute__((constructor)) void ReadNumber() {
  const char* const given = std::getenv("FAIL_ALLOCATION");
  const unsigned long number = given != nullptr ? std::strtoul(given, nullptr, 10) : 0;
  (void)unsetenv("FAIL_ALLOCATION");
  (void)unsetenv("LD_PRELOAD");
  failing = number;
}

bool Fails() {
  if (failing == 0 || ++calls != failing) {
    return false;
  }
  (void)syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, "/dev/shm/allocation-failed",
                                   O_WRONLY | O_CREAT, 0600));
  errno = ENOMEM;
  return true;
}

}  // namespace

// The C library's own declarations differ in what they promise about exceptions, so the symbols are
// given by hand.
#define SYMBOL(name) __asm__(name) __attribute__((visibility("default")))

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* FailingMalloc(size_t size) SYMBOL("malloc");
void* FailingMalloc(size_t size) { return Fails() ? nullptr : __libc_malloc(size); }

void* FailingCalloc(size_t count, size_t size) SYMBOL("calloc");
void* FailingCalloc(size_t count, size_t size) {
  return Fails() ? nullptr : __libc_calloc(count, size);
}

void* FailingRealloc(void* old, size_t size) SYMBOL("realloc");
void* FailingRealloc(void* old, size_t size) {
  return Fails() ? nullptr : __libc_realloc(old, size);
}

}  // extern "C"
