// SPDX-License-Identifier: MIT
// The functions that can fail; FaultRules.h says how.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "faults/FaultRules.h"

namespace {

// The call as the program would have made it. Each function is looked up at its first call.
template <typename Function>
Function Real(std::atomic<Function>& known, const char* name) {
  Function function = known;
  if (function == nullptr) {
    function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    known = function;
  }
  return function;
}

int Value(const Rule& rule) { return rule.result == 0 ? 0 : -1; }

}  // namespace

// The C library's own declarations differ in what they promise about exceptions, so the symbols are
// given by hand.
#define FAULTS_SYMBOL(name) __asm__(name) __attribute__((visibility("default")))
#define FAULTS_REAL(faulty, name)                          \
  static std::atomic<decltype(&(faulty))> known = nullptr; \
  const auto real = Real(known, name)

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* FaultyMalloc(size_t size) FAULTS_SYMBOL("malloc");
void* FaultyMalloc(size_t size) {
  return FaultIn("malloc") != nullptr ? nullptr : __libc_malloc(size);
}

void* FaultyCalloc(size_t count, size_t size) FAULTS_SYMBOL("calloc");
void* FaultyCalloc(size_t count, size_t size) {
  return FaultIn("malloc") != nullptr ? nullptr : __libc_calloc(count, size);
}

void* FaultyRealloc(void* old, size_t size) FAULTS_SYMBOL("realloc");
void* FaultyRealloc(void* old, size_t size) {
  return FaultIn("malloc") != nullptr ? nullptr : __libc_realloc(old, size);
}

constexpr int kSlowMilliseconds = 3000;

int FaultyOpen(const char* path, int flags, mode_t mode) FAULTS_SYMBOL("open64");
int FaultyOpen(const char* path, int flags, mode_t mode) {
  FAULTS_REAL(FaultyOpen, "open64");
  return FaultAt("open", path) != nullptr ? -1 : real(path, flags, mode);
}

FILE* FaultyFopen(const char* path, const char* mode) FAULTS_SYMBOL("fopen64");
FILE* FaultyFopen(const char* path, const char* mode) {
  FAULTS_REAL(FaultyFopen, "fopen64");
  return FaultAt("fopen", path) != nullptr ? nullptr : real(path, mode);
}

ssize_t FaultyRead(int descriptor, void* buffer, size_t size) FAULTS_SYMBOL("read");
ssize_t FaultyRead(int descriptor, void* buffer, size_t size) {
  FAULTS_REAL(FaultyRead, "read");
  const Rule* const rule = FaultOn("read", descriptor);
  if (rule != nullptr && rule->result == kSlow) {
    (void)poll(nullptr, 0, kSlowMilliseconds);
    return real(descriptor, buffer, size);
  }
  return rule == nullptr          ? real(descriptor, buffer, size)
         : rule->result == kShort ? real(descriptor, buffer, 1)
                                  : Value(*rule);
}

ssize_t FaultyWrite(int descriptor, const void* data, size_t size) FAULTS_SYMBOL("write");
ssize_t FaultyWrite(int descriptor, const void* data, size_t size) {
  FAULTS_REAL(FaultyWrite, "write");
  const Rule* const rule = FaultOn("write", descriptor);
  return rule == nullptr          ? real(descriptor, data, size)
         : rule->result == kShort ? real(descriptor, data, 1)
                                  : Value(*rule);
}

int FaultyClose(int descriptor) FAULTS_SYMBOL("close");
int FaultyClose(int descriptor) {
  FAULTS_REAL(FaultyClose, "close");
  return FaultOn("close", descriptor) != nullptr ? -1 : real(descriptor);
}

ssize_t FaultySend(int stream, const void* data, size_t size, int flags) FAULTS_SYMBOL("send");
ssize_t FaultySend(int stream, const void* data, size_t size, int flags) {
  FAULTS_REAL(FaultySend, "send");
  const Rule* const rule = FaultIn("send");
  return rule == nullptr          ? real(stream, data, size, flags)
         : rule->result == kShort ? real(stream, data, 1, flags)
                                  : Value(*rule);
}

ssize_t FaultyRecv(int stream, void* buffer, size_t size, int flags) FAULTS_SYMBOL("recv");
ssize_t FaultyRecv(int stream, void* buffer, size_t size, int flags) {
  FAULTS_REAL(FaultyRecv, "recv");
  const Rule* const rule = FaultIn("recv");
  return rule == nullptr          ? real(stream, buffer, size, flags)
         : rule->result == kShort ? real(stream, buffer, 1, flags)
                                  : Value(*rule);
}

int FaultySocket(int domain, int type, int protocol) FAULTS_SYMBOL("socket");
int FaultySocket(int domain, int type, int protocol) {
  FAULTS_REAL(FaultySocket, "socket");
  return FaultIn("socket") != nullptr ? -1 : real(domain, type, protocol);
}

int FaultySetsockopt(int stream, int level, int name, const void* value, socklen_t size)
    FAULTS_SYMBOL("setsockopt");
int FaultySetsockopt(int stream, int level, int name, const void* value, socklen_t size) {
  FAULTS_REAL(FaultySetsockopt, "setsockopt");
  return FaultIn("setsockopt") != nullptr ? -1 : real(stream, level, name, value, size);
}

int FaultyBind(int stream, const sockaddr* address, socklen_t size) FAULTS_SYMBOL("bind");
int FaultyBind(int stream, const sockaddr* address, socklen_t size) {
  FAULTS_REAL(FaultyBind, "bind");
  return FaultIn("bind") != nullptr ? -1 : real(stream, address, size);
}

int FaultyListen(int stream, int backlog) FAULTS_SYMBOL("listen");
int FaultyListen(int stream, int backlog) {
  FAULTS_REAL(FaultyListen, "listen");
  return FaultIn("listen") != nullptr ? -1 : real(stream, backlog);
}

int FaultyAccept(int stream, sockaddr* address, socklen_t* size) FAULTS_SYMBOL("accept");
int FaultyAccept(int stream, sockaddr* address, socklen_t* size) {
  FAULTS_REAL(FaultyAccept, "accept");
  return FaultIn("accept") != nullptr ? -1 : real(stream, address, size);
}

int FaultyTcgetattr(int descriptor, termios* attributes) FAULTS_SYMBOL("tcgetattr");
int FaultyTcgetattr(int descriptor, termios* attributes) {
  FAULTS_REAL(FaultyTcgetattr, "tcgetattr");
  return FaultOn("tcgetattr", descriptor) != nullptr ? -1 : real(descriptor, attributes);
}

int FaultyTcsetattr(int descriptor, int when, const termios* attributes) FAULTS_SYMBOL("tcsetattr");
int FaultyTcsetattr(int descriptor, int when, const termios* attributes) {
  FAULTS_REAL(FaultyTcsetattr, "tcsetattr");
  return FaultOn("tcsetattr", descriptor) != nullptr ? -1 : real(descriptor, when, attributes);
}

int FaultyTcflush(int descriptor, int queue) FAULTS_SYMBOL("tcflush");
int FaultyTcflush(int descriptor, int queue) {
  FAULTS_REAL(FaultyTcflush, "tcflush");
  return FaultOn("tcflush", descriptor) != nullptr ? -1 : real(descriptor, queue);
}

// Stands for a process that cannot be made.
int FaultySystem(const char* command) FAULTS_SYMBOL("system");
int FaultySystem(const char* command) {
  FAULTS_REAL(FaultySystem, "system");
  return FaultIn("system") != nullptr ? -1 : real(command);
}

int FaultyThreadCreate(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                       void* argument) FAULTS_SYMBOL("pthread_create");
int FaultyThreadCreate(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                       void* argument) {
  FAULTS_REAL(FaultyThreadCreate, "pthread_create");
  const Rule* const rule = FaultIn("pthread_create");
  return rule != nullptr ? rule->result : real(thread, attributes, routine, argument);
}

}  // extern "C"
