// SPDX-License-Identifier: MIT
#include "check/Strays.h"

#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <fstream>

namespace {

// A killed one's own children come next. One that goes on starting others may be faster for good.
constexpr int kMostGenerations = 1000;

bool KillChildren() {
  std::ifstream children("/proc/thread-self/children");
  bool hasAny = false;
  for (pid_t child = 0; children >> child;) {
    if (kill(child, SIGKILL) == 0) {  // else it is another user's
      (void)TEMP_FAILURE_RETRY(waitpid(child, nullptr, 0));
      hasAny = true;
    }
  }
  return hasAny;
}

}  // namespace

Strays::Strays() { (void)prctl(PR_SET_CHILD_SUBREAPER, 1); }

Strays::~Strays() {
  for (int i = 0; i < kMostGenerations && KillChildren(); ++i) {
  }
  (void)prctl(PR_SET_CHILD_SUBREAPER, 0);
}
