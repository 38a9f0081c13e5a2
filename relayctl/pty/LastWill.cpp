// SPDX-License-Identifier: MIT
#include "pty/LastWill.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

namespace {

void CloseAllBut(std::vector<int> kept) {
  std::erase(kept, -1);
  std::sort(kept.begin(), kept.end());
  unsigned first = 0;
  for (const int descriptor : kept) {
    const auto number = static_cast<unsigned>(descriptor);
    if (number > first) {
      (void)close_range(first, number - 1, 0);
    }
    first = number + 1;
  }
  (void)close_range(first, UINT_MAX, 0);
}

// All signals are blocked: it outlives whatever ends the other process, and may set a terminal from
// the background.
[[noreturn]] void Execute(int pipe, const std::function<void()>& will,
                          std::vector<int> descriptors) {
  (void)prctl(PR_SET_NAME, "relayctl-will");
  descriptors.push_back(pipe);
  CloseAllBut(descriptors);
  char byte = 0;
  ssize_t count = 0;
  while ((count = read(pipe, &byte, 1)) == -1 && errno == EINTR) {
  }
  if (count == 0) {
    will();
  }
  _exit(0);
}

}  // namespace

LastWill::LastWill(const std::function<void()>& will, const std::vector<int>& descriptors) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return;
  }
  sigset_t all;
  sigset_t before;
  (void)sigfillset(&all);
  (void)sigprocmask(SIG_BLOCK, &all, &before);
  executor = fork();
  if (executor == 0) {
    Execute(ends[0], will, descriptors);
  }
  (void)sigprocmask(SIG_SETMASK, &before, nullptr);
  (void)close(ends[0]);
  pipe = ends[1];
}

LastWill::~LastWill() {
  if (executor > 0) {
    [[maybe_unused]] const ssize_t told = write(pipe, "d", 1);
    (void)close(pipe);
    (void)waitpid(executor, nullptr, 0);
  }
}
