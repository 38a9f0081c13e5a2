// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <cerrno>
#include <csignal>

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

}  // namespace

int main() {
  EnsureStandardStreams();
  UnblockStandardStreams();
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
