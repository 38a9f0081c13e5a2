// SPDX-License-Identifier: MIT
#include "simulation/Process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

extern "C" ssize_t __real_read(int, void*, size_t);
extern "C" ssize_t __real_write(int, const void*, size_t);
extern "C" int __real_close(int);
extern "C" [[noreturn]] void __real__Exit(int);

namespace simulation {
namespace {

constexpr int kCannotReport = 125;

std::string ReadWhole(int descriptor) {
  std::string text;
  char piece[65536];
  for (;;) {
    const ssize_t count = __real_read(descriptor, piece, sizeof piece);
    if (count < 1) {
      return text;
    }
    text.append(piece, static_cast<size_t>(count));
  }
}

pid_t Fork() {
  const pid_t child = fork();
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "no process can be made");
  }
  return child;
}

}  // namespace

void WriteWhole(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = __real_write(descriptor, text.data(), text.size());
    if (count < 1) {
      __real__Exit(kCannotReport);
    }
    text.remove_prefix(static_cast<size_t>(count));
  }
}

Report ReportOf(const std::function<void(int descriptor)>& body) {
  int channel[2] = {};
  if (pipe(channel) != 0) {
    throw std::system_error(errno, std::generic_category(), "no pipe can be made");
  }
  const pid_t child = Fork();
  if (child == 0) {
    (void)__real_close(channel[0]);
    body(channel[1]);
  }
  (void)__real_close(channel[1]);
  Report report = {ReadWhole(channel[0])};
  (void)__real_close(channel[0]);
  (void)waitpid(child, &report.status, 0);
  return report;
}

bool GoesOnTwice(int& status) {
  const pid_t child = Fork();
  if (child != 0) {
    (void)waitpid(child, &status, 0);
  }
  return child == 0;
}

void EndProcess() { __real__Exit(0); }

}  // namespace simulation
