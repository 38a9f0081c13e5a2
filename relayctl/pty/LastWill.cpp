// SPDX-License-Identifier: MIT
#include "pty/LastWill.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
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

// Waits until the other side has said something. False when it has ended without a word.
bool Hears(int line) {
  char byte = 0;
  return TEMP_FAILURE_RETRY(read(line, &byte, 1)) == 1;
}

void Say(int line) { (void)send(line, "", 1, MSG_NOSIGNAL); }

// All signals are blocked: it outlives whatever ends the other process, and may set a terminal from
// the background.
[[noreturn]] void Execute(int line, const std::function<void()>& will,
                          std::vector<int> descriptors) {
  (void)prctl(PR_SET_NAME, "relayctl-will");
  descriptors.push_back(line);
  CloseAllBut(descriptors);
  Say(line);
  if (!Hears(line)) {
    will();
  }
  _exit(0);
}

}  // namespace

// Until the second process has let go of them, it holds what this one may close and want again: a
// port to listen on.
LastWill::LastWill(const std::function<void()>& will, const std::vector<int>& descriptors) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
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
  (void)close(ends[0]);
  (void)Hears(ends[1]);
  (void)sigprocmask(SIG_SETMASK, &before, nullptr);
  line = ends[1];
}

LastWill::~LastWill() {
  if (executor > 0) {
    Say(line);
    (void)waitpid(executor, nullptr, 0);
  }
  (void)close(line);
}
