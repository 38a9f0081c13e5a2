// SPDX-License-Identifier: MIT
#include "RawTerminal.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

// Waits until the other end of `pipe` is closed. Without a byte before that, its process was
// killed. With every signal blocked, the terminal may be set from the background too.
[[noreturn]] void Keep(int pipe, int terminal, const termios& before) {
  char byte = 0;
  ssize_t count = 0;
  while ((count = read(pipe, &byte, 1)) == -1 && errno == EINTR) {
  }
  if (count == 0) {
    (void)tcsetattr(terminal, TCSADRAIN, &before);
  }
  _exit(0);
}

}  // namespace

RawTerminal::RawTerminal(int descriptor) : terminal(descriptor) {
  if (tcgetattr(terminal, &before) != 0) {
    throw std::system_error(errno, std::generic_category(), "terminal");
  }
  StartKeeper();
  SetRaw();
}

RawTerminal::~RawTerminal() {
  Restore();
  if (keeper > 0) {
    [[maybe_unused]] const ssize_t told = write(keeperPipe, "d", 1);
  }
  (void)close(keeperPipe);
  if (keeper > 0) {
    (void)waitpid(keeper, nullptr, 0);
  }
}

void RawTerminal::StartKeeper() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  sigset_t all;
  sigset_t old;
  (void)sigfillset(&all);
  (void)sigprocmask(SIG_BLOCK, &all, &old);
  keeper = fork();
  if (keeper == 0) {
    (void)close(ends[1]);
    Keep(ends[0], terminal, before);
  }
  (void)sigprocmask(SIG_SETMASK, &old, nullptr);
  (void)close(ends[0]);
  keeperPipe = ends[1];  // without a keeper only being killed goes unmended
}

void RawTerminal::Restore() const { (void)tcsetattr(terminal, TCSADRAIN, &before); }

void RawTerminal::SetRaw() const {
  termios raw = before;
  cfmakeraw(&raw);
  raw.c_oflag |= OPOST | ONLCR;
  (void)tcsetattr(terminal, TCSADRAIN, &raw);
}
