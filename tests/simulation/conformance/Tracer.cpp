// SPDX-License-Identifier: MIT
#include "simulation/conformance/Tracer.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>

namespace conformance {
namespace {

// glibc's <sys/ptrace.h> has the request's structure under this name.
using CallInfo = __ptrace_syscall_info;

[[noreturn]] void GiveUp(const char* call) {
  std::perror(call);
  std::exit(2);
}

// Goes on to the way in or out of the next call. Signals pass.
CallInfo NextStop(pid_t thread) {
  constexpr int kCallStop = SIGTRAP | 0x80;
  int signal = 0;
  for (;;) {
    int status = 0;
    if (ptrace(PTRACE_SYSCALL, thread, nullptr, signal) != 0 ||
        waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) {
      GiveUp("ptrace");
    }
    if (WSTOPSIG(status) == kCallStop) {
      CallInfo info{};
      (void)ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
      return info;
    }
    signal = status >> 16 == 0 ? WSTOPSIG(status) : 0;
  }
}

}  // namespace

long NumberOf(const char* call) {
  static const std::map<std::string, long> numbers = {{"accept", SYS_accept},
                                                      {"close", SYS_close},
                                                      {"fopen", SYS_openat},
                                                      {"open", SYS_openat},
                                                      {"poll", SYS_poll},
                                                      {"pthread_mutex_lock", SYS_futex},
                                                      {"read", SYS_read},
                                                      {"recv", SYS_recvfrom},
                                                      {"send", SYS_sendto},
                                                      {"write", SYS_write},
                                                      {"usleep", SYS_clock_nanosleep},
                                                      {"system", SYS_wait4}};
  return numbers.at(call);
}

void HoldThread(Hold& hold) {
  const pid_t thread = hold.thread.exchange(0);
  if (ptrace(PTRACE_SEIZE, thread, nullptr, PTRACE_O_TRACESYSGOOD) != 0 ||
      ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0 ||
      waitpid(thread, nullptr, __WALL) != thread) {
    GiveUp("ptrace");
  }
  hold.isTraced = true;
  CallInfo info = NextStop(thread);
  while (info.op != PTRACE_SYSCALL_INFO_ENTRY ||
         info.entry.nr != static_cast<uint64_t>(hold.call)) {
    info = NextStop(thread);
  }
  (void)NextStop(thread);  // its way out
  hold.isHeld = true;
  while (!hold.isLetGo) {
    const timespec pause{0, 1'000'000};
    (void)nanosleep(&pause, nullptr);
  }
  (void)ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
}

}  // namespace conformance
