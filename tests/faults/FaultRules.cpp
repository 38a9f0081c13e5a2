// SPDX-License-Identifier: MIT
#include "faults/FaultRules.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace {

constexpr const char* kGate = "/dev/shm/faults-now";
constexpr const char* kReport = "/dev/shm/faults-made";

struct ErrorName {
  std::string_view name;
  int error;
};

constexpr ErrorName kErrors[] = {
    {"0", 0},           {"short", kShort},    {"EACCES", EACCES}, {"EADDRINUSE", EADDRINUSE},
    {"EAGAIN", EAGAIN}, {"EINTR", EINTR},     {"EINVAL", EINVAL}, {"ECONNABORTED", ECONNABORTED},
    {"EIO", EIO},       {"EMFILE", EMFILE},   {"ENOMEM", ENOMEM}, {"ECONNRESET", ECONNRESET},
    {"EPIPE", EPIPE},   {"ENOBUFS", ENOBUFS}, {"slow", kSlow},
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

template <typename OnPath>
const Rule* FindFault(std::string_view function, OnPath onPath) {
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

}  // namespace

const Rule* FaultIn(std::string_view function) {
  return FindFault(function, [](std::string_view) { return true; });
}

const Rule* FaultOn(std::string_view function, int descriptor) {
  return FindFault(function, [=](std::string_view path) { return LeadsTo(descriptor, path); });
}

const Rule* FaultAt(std::string_view function, const char* path) {
  return FindFault(function, [=](std::string_view prefix) {
    return std::string_view(path).starts_with(prefix);
  });
}
