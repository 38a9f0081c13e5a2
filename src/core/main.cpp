// SPDX-License-Identifier: MIT
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "Linux/Console.h"
#include "Linux/ControllingTerminal.h"
#include "Linux/SignalMask.h"
#include "core/SerialPortHandler.h"

namespace {

void OnSignal(int /*signal*/) {
  const int interrupted = errno;
  SerialPortHandler::GetInstance()->RequestStop();
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

void KeepPortsFromStoppingTheProcess() {
  const int result = TakeOwnControllingTerminal();
  if (result != 0) {
    const std::string message =
        std::string(
            "No controlling terminal of its own; unplugging a port may stop the service: ") +
        std::strerror(result);
    SerialPortHandler::Log("main.cpp", __LINE__, LogLevel::kError, message.c_str());
  }
}

}  // namespace

int main() {
  EnsureStandardStreams();
  // A peer that has gone shows as a failed send.
  (void)std::signal(SIGPIPE, SIG_IGN);
  SerialPortHandler* const handler = SerialPortHandler::GetInstance();
  InstallStopSignals();
  KeepPortsFromStoppingTheProcess();
  const bool stopped = handler->Run();
  HoldStopSignals();  // there is nothing left to stop, and soon no handler to ask
  if (!stopped) {
    return -1;
  }
  WriteStandardError("終了\n");
  return 0;
}
