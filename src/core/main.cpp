// SPDX-License-Identifier: MIT
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>

#include "Linux/Console.h"
#include "Linux/ControllingTerminal.h"
#include "Linux/SignalMask.h"
#include "core/SerialPortHandler.h"

namespace {

const pthread_t mainThread = pthread_self();

// Where stops land, and when: see SignalMask.h.
void OnSignal(int signal) {
  const int interrupted = errno;
  if (pthread_equal(pthread_self(), mainThread) != 0) {
    SerialPortHandler::GetInstance()->RequestStop();
  } else {
    (void)pthread_kill(mainThread, signal);
  }
  errno = interrupted;
}

// No flag: a stop must interrupt accept. No mask: a second signal may interrupt the first.
void InstallStopSignals() {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  (void)sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGHUP, SIGTERM}) {
    (void)sigaction(signal, &action, nullptr);
  }
  AdmitStopSignals();
}

// Seconds that the reason of an abort waits for a reader, as the exit text does.
constexpr unsigned kLongestReason = 5;

std::terminate_handler tellAndAbort = nullptr;  // the C++ library's own

// Not abort, which may wait for the very stream that is not read.
void AbortAtOnce(int /*signal*/) { (void)kill(getpid(), SIGABRT); }

// What nobody catches ends the process, and the library tells standard error why. It waits there
// for a reader, for ever if nobody reads, and what neither works nor ends is not started again.
void TellAndAbortInTime() {
  (void)std::signal(SIGALRM, AbortAtOnce);
  sigset_t needed;
  (void)sigemptyset(&needed);
  (void)sigaddset(&needed, SIGALRM);
  (void)sigaddset(&needed, SIGABRT);
  (void)pthread_sigmask(SIG_UNBLOCK, &needed, nullptr);
  (void)alarm(kLongestReason);
  tellAndAbort();
}

}  // namespace

int main() {
  EnsureStandardStreams();
  UnblockStandardStreams();
  tellAndAbort = std::set_terminate(TellAndAbortInTime);
  // A peer that has gone shows as a failed send, a file that may not grow as a failed write.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  SerialPortHandler* const handler = SerialPortHandler::GetInstance();
  InstallStopSignals();
  // Unplugging a port must be no request to stop. Where there is no pseudo-terminal for it, the
  // service works all the same, so nothing is logged.
  (void)TakeOwnControllingTerminal();
  const bool stopped = handler->Run();
  HoldStopSignals();
  if (!stopped) {
    return -1;
  }
  WriteLastStandardError("終了\n");
  return 0;
}
