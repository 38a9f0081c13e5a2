// SPDX-License-Identifier: MIT
#include "Linux/ControllingTerminal.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "Linux/SignalMask.h"

namespace {

bool HasControllingTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) {
    return false;
  }
  (void)close(terminal);
  return true;
}

bool LeadsSessionWithoutTerminal() { return getsid(0) == getpid() && !HasControllingTerminal(); }

// The near end of an unlocked pseudo-terminal. TIOCGPTPEER needs no path, so it works where
// /dev/pts is another instance's; kernels before 4.13 do not have it.
int OpenNearEnd(int far) {
  const int near = ioctl(far, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (near >= 0) {
    return near;
  }
  char path[64] = {};
  return ptsname_r(far, path, sizeof path) == 0 ? open(path, O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
}

// A group is empty, and stays the terminal's foreground, once the one process that was in it has
// ended. Where no process can be had, the terminal keeps the group that it has.
void EmptyForegroundGroup(int terminal) {
  constexpr unsigned kLongEnoughSeconds = 10;  // should this process be killed meanwhile
  const CSignalMask undisturbed(CSignalMask::AllSignals());
  const pid_t member = fork();
  if (member == 0) {
    (void)sleep(kLongEnoughSeconds);
    _exit(0);
  }
  if (member > 0) {
    (void)setpgid(member, member);
    (void)tcsetpgrp(terminal, member);
    (void)kill(member, SIGKILL);
    (void)waitpid(member, nullptr, 0);
  }
}

// What went wrong, once what was opened so far is closed again. Where there is no /dev/tty, EPERM
// is how a process learns that it has a controlling terminal after all.
int GiveUp(int near, int far) {
  const int reason = errno == EPERM ? 0 : errno;
  if (near >= 0) {
    (void)close(near);
  }
  (void)close(far);
  return reason;
}

}  // namespace

int TakeOwnControllingTerminal() {
  if (!LeadsSessionWithoutTerminal()) {
    return 0;
  }
  const int far = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (far < 0) {
    return errno;
  }
  const int near = unlockpt(far) == 0 ? OpenNearEnd(far) : -1;
  if (near < 0 || ioctl(near, TIOCSCTTY, 0) != 0) {
    return GiveUp(near, far);
  }
  EmptyForegroundGroup(near);
  // Deliberate: neither end is closed. The far end closed would be the hang-up.
  return 0;
}
