// SPDX-License-Identifier: MIT
// Each case runs in a child process: sessions and controlling terminals belong to a process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "Linux/ControllingTerminal.h"
#include "support/InChild.h"

namespace {

constexpr int kNoHangUp = 0;
constexpr int kHangUp = 1;
constexpr int kBroken = 2;

sigset_t HangUpSignal() {
  sigset_t signals{};
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, SIGHUP);
  return signals;
}

bool BlockHangUpSignal() {
  const sigset_t signals = HangUpSignal();
  return sigprocmask(SIG_BLOCK, &signals, nullptr) == 0;
}

// Opens the near end of a new pseudo-terminal as a serial line is opened and hangs it up by closing
// the far end. The kernel signals within that close.
int HangUpALine() {
  const int far = posix_openpt(O_RDWR | O_NOCTTY);
  char path[64] = {};
  if (far == -1 || grantpt(far) != 0 || unlockpt(far) != 0 ||
      ptsname_r(far, path, sizeof path) != 0 || open(path, O_RDWR) == -1 || close(far) != 0) {
    return kBroken;
  }
  sigset_t pending{};
  (void)sigpending(&pending);
  return sigismember(&pending, SIGHUP) == 1 ? kHangUp : kNoHangUp;
}

bool HasControllingTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY);
  if (terminal != -1) {
    (void)close(terminal);
  }
  return terminal != -1;
}

int LowestFreeDescriptor() {
  const int descriptor = dup(0);
  (void)close(descriptor);
  return descriptor;
}

TEST(ControllingTerminalTest, ALineThatHangsUpSendsNoSignalOnceItHasATerminalOfItsOwn) {
  EXPECT_EQ(kNoHangUp, InChild([] {
              if (setsid() == -1 || !BlockHangUpSignal() || HasControllingTerminal() ||
                  TakeOwnControllingTerminal() != 0 || !HasControllingTerminal()) {
                return kBroken;
              }
              return HangUpALine();
            }));
}

TEST(ControllingTerminalTest, ASignalSentByAnotherProcessStillArrives) {
  EXPECT_EQ(kHangUp, InChild([] {
              if (setsid() == -1 || !BlockHangUpSignal() || TakeOwnControllingTerminal() != 0) {
                return kBroken;
              }
              const pid_t leader = getpid();
              if (InChild([leader] { return kill(leader, SIGHUP); }) != 0) {
                return kBroken;
              }
              const sigset_t signals = HangUpSignal();
              const timespec limit{20, 0};
              return sigtimedwait(&signals, nullptr, &limit) == SIGHUP ? kHangUp : kNoHangUp;
            }));
}

// A start script's helper in the background is in the service's process group.
TEST(ControllingTerminalTest, ALeaderThatEndsSendsItsProcessGroupNoSignal) {
  int told[2] = {-1, -1};
  int tells[2] = {-1, -1};
  ASSERT_EQ(0, pipe(told));
  ASSERT_EQ(0, pipe(tells));
  EXPECT_EQ(0, InChild([&] {
              if (setsid() == -1 || !BlockHangUpSignal()) {
                return kBroken;
              }
              if (fork() == 0) {
                (void)alarm(30);
                char signal = '?';
                if (read(told[0], &signal, 1) == 1) {
                  sigset_t pending{};
                  (void)sigpending(&pending);
                  signal = sigismember(&pending, SIGHUP) == 1 ? 'h' : 'n';
                }
                (void)!write(tells[1], &signal, 1);
                _exit(0);
              }
              return TakeOwnControllingTerminal() == 0 && HasControllingTerminal() ? 0 : kBroken;
            }));
  char signal = '?';
  ASSERT_EQ(1, write(told[1], &signal, 1));
  ASSERT_EQ(1, read(tells[0], &signal, 1));
  EXPECT_EQ('n', signal) << "h: a hang-up signal";
  for (const int end : {told[0], told[1], tells[0], tells[1]}) {
    (void)close(end);
  }
}

int handledStops[2] = {-1, -1};  // a byte for each stop signal that a process has handled
int stopsSent[2] = {-1, -1};     // a byte when they are on their way

void NoteStop(int /*signal*/) { (void)!write(handledStops[1], "s", 1); }

// In the process that the terminal's group is made with: stops the whole group.
void StopGroup() {
  (void)kill(0, SIGTERM);
  (void)!write(stopsSent[1], "s", 1);
}

void WaitUntilSent() {
  char byte = 0;
  (void)!read(stopsSent[0], &byte, 1);
}

// Its handler is the service's, and would carry the stop out in a process that is none.
TEST(ControllingTerminalTest, TheProcessThatMakesTheGroupHandlesNoStopSignal) {
  EXPECT_EQ(
      0, InChild([] {
        struct sigaction action {};
        action.sa_handler = NoteStop;
        action.sa_flags = SA_RESTART;
        if (setsid() == -1 || pipe(handledStops) != 0 || pipe(stopsSent) != 0 ||
            sigaction(SIGTERM, &action, nullptr) != 0 ||
            pthread_atfork(nullptr, WaitUntilSent, StopGroup) != 0 ||
            TakeOwnControllingTerminal() != 0) {
          return kBroken;
        }
        if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
          return kBroken;
        }
        (void)fcntl(handledStops[0], F_SETFL, O_NONBLOCK);
        char bytes[2];
        return read(handledStops[0], bytes, sizeof bytes) == 1 ? 0 : kBroken;  // this process's own
      }));
}

TEST(ControllingTerminalTest, ASecondCallKeepsTheTerminalOfTheFirst) {
  EXPECT_EQ(
      0, InChild([] {
        if (setsid() == -1 || TakeOwnControllingTerminal() != 0) {
          return kBroken;
        }
        const int before = LowestFreeDescriptor();
        return TakeOwnControllingTerminal() == 0 && LowestFreeDescriptor() == before ? 0 : kBroken;
      }));
}

TEST(ControllingTerminalTest, NothingHappensToAProcessThatLeadsNoSession) {
  EXPECT_EQ(0, InChild([] {
              const bool had = HasControllingTerminal();
              const int before = LowestFreeDescriptor();
              const bool changed = TakeOwnControllingTerminal() != 0 ||
                                   HasControllingTerminal() != had ||
                                   LowestFreeDescriptor() != before;
              return changed ? kBroken : 0;
            }));
}

TEST(ControllingTerminalTest, ItsTwoEndsAreNotInheritedByChildren) {
  EXPECT_EQ(0, InChild([] {
              constexpr int kFirst = 3;
              closefrom(kFirst);
              if (setsid() == -1 || TakeOwnControllingTerminal() != 0) {
                return kBroken;
              }
              int open = 0;
              for (int descriptor = kFirst; descriptor < kFirst + 8; ++descriptor) {
                const int flags = fcntl(descriptor, F_GETFD);
                open += flags == -1 ? 0 : 1;
                if (flags == 0) {
                  return kBroken;
                }
              }
              return open == 2 ? 0 : kBroken;
            }));
}

}  // namespace
