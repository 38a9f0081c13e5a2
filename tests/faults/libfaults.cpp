// SPDX-License-Identifier: MIT
// Lets calls of the C library fail in a process that preloads this library.
//
// FAULTS is a list of FUNCTION:RESULT:CALLS[:PATH] with commas between them:
//   RESULT  the name of an errno: the call fails with it and is not made. "0": it returns 0 and is
//           not made. "short": it is made for one byte.
//   CALLS   "3" the third call, "3-5", "3-" all from the third on, or "@" all calls while the file
//           /dev/shm/faults-now exists. Calls are counted per entry, and only those on PATH.
//   PATH    what the path, or what the descriptor leads to, begins with.
// Each call that was spoilt adds a line to /dev/shm/faults-made. The programs that the process
// starts are spared.
//
// Nothing here may allocate, lock or use a stream: the calls come from anywhere.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace {

constexpr const char* kGate = "/dev/shm/faults-now";
constexpr const char* kReport = "/dev/shm/faults-made";
constexpr int kShort = -1;

struct ErrorName {
  std::string_view name;
  int error;
};

constexpr ErrorName kErrors[] = {
    {"0", 0},           {"short", kShort},    {"EACCES", EACCES}, {"EADDRINUSE", EADDRINUSE},
    {"EAGAIN", EAGAIN}, {"EINTR", EINTR},     {"EINVAL", EINVAL}, {"ECONNABORTED", ECONNABORTED},
    {"EIO", EIO},       {"EMFILE", EMFILE},   {"ENOMEM", ENOMEM}, {"ECONNRESET", ECONNRESET},
    {"EPIPE", EPIPE},   {"ENOBUFS", ENOBUFS},
};

struct Rule {
  std::string_view function;
  std::string_view path;
  int result = 0;
  bool isGated = false;
  unsigned first = 0;
  unsigned last = 0;
  std::atomic<unsigned> calls{0};
};

std::array<Rule, 8> rules;
std::array<char, 512> text;

// The part of `rest` before `separator`, which leaves `rest` with what follows.
std::string_view Take(std::string_view& rest, char separator) {
  const size_t end = rest.find(separator);
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return part;
}

// A mistake in a row must not pass for a fault that did no harm.
[[noreturn]] void Reject() {
  (void)syscall(SYS_write, STDERR_FILENO, "libfaults: cannot read FAULTS\n", 30);
  std::_Exit(99);
}

unsigned Number(std::string_view digits) {
  unsigned number = 0;
  const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
    Reject();
  }
  return number;
}

int ResultOf(std::string_view name) {
  for (const ErrorName& known : kErrors) {
    if (known.name == name) {
      return known.error;
    }
  }
  Reject();
}

void Read(Rule& rule, std::string_view entry) {
  rule.function = Take(entry, ':');
  rule.result = ResultOf(Take(entry, ':'));
  std::string_view calls = Take(entry, ':');
  rule.path = entry;
  rule.isGated = calls == "@";
  if (rule.isGated) {
    return;
  }
  const bool isRange = calls.find('-') != std::string_view::npos;
  rule.first = Number(Take(calls, '-'));
  rule.last = !isRange        ? rule.first
              : calls.empty() ? std::numeric_limits<unsigned>::max()
                              : Number(calls);
}

__attribute__((constructor)) void ReadFaults() {
  const char* const given = std::getenv("FAULTS");
  std::string_view rest = given != nullptr ? given : "";
  if (rest.size() > text.size()) {
    Reject();
  }
  rest.copy(text.data(), rest.size());
  rest = {text.data(), rest.size()};
  (void)unsetenv("FAULTS");
  (void)unsetenv("LD_PRELOAD");
  for (Rule& rule : rules) {
    if (!rest.empty()) {
      Read(rule, Take(rest, ','));
    }
  }
  if (!rest.empty()) {
    Reject();
  }
}

void Report(std::string_view function) {
  std::array<char, 32> line{};
  const size_t size = function.copy(line.data(), line.size() - 1);
  line[size] = '\n';
  const long file = syscall(SYS_openat, AT_FDCWD, kReport, O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (file >= 0) {
    (void)syscall(SYS_write, file, line.data(), size + 1);
    (void)syscall(SYS_close, file);
  }
}

bool LeadsTo(int descriptor, std::string_view path) {
  if (path.empty()) {
    return true;
  }
  std::array<char, 40> link{};
  std::string_view("/proc/self/fd/").copy(link.data(), link.size());
  (void)std::to_chars(link.data() + 14, link.data() + link.size() - 1, descriptor);
  std::array<char, 128> target{};
  const long size = syscall(SYS_readlinkat, AT_FDCWD, link.data(), target.data(), target.size());
  return size > 0 && std::string_view(target.data(), static_cast<size_t>(size)).starts_with(path);
}

bool Applies(Rule& rule) {
  if (rule.isGated) {
    return syscall(SYS_faccessat, AT_FDCWD, kGate, F_OK) == 0;
  }
  const unsigned call = ++rule.calls;
  return call >= rule.first && call <= rule.last;
}

// The rule that spoils this call, if any.
template <typename OnPath>
const Rule* FaultIn(std::string_view function, OnPath onPath) {
  const int kept = errno;
  for (Rule& rule : rules) {
    if (rule.function == function && onPath(rule.path) && Applies(rule)) {
      Report(function);
      errno = rule.result > 0 ? rule.result : kept;
      return &rule;
    }
  }
  errno = kept;
  return nullptr;
}

const Rule* FaultIn(std::string_view function) {
  return FaultIn(function, [](std::string_view) { return true; });
}

const Rule* FaultOn(std::string_view function, int descriptor) {
  return FaultIn(function, [=](std::string_view path) { return LeadsTo(descriptor, path); });
}

const Rule* FaultAt(std::string_view function, const char* path) {
  return FaultIn(function, [=](std::string_view prefix) {
    return std::string_view(path).starts_with(prefix);
  });
}

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
