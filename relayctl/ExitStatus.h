// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "relay/Error.h"

// What scripts can tell from the end of relayctl. The manual page has the same table.
enum ExitStatus : int {
  kExitDone = 0,
  kExitFailed = 1,        // a file, a terminal or the system
  kExitUsage = 2,         // wrong use of the command line
  kExitNotListening = 3,  // nothing listens on the port
  kExitNoAnswer = 4,      // the service took the link and did not answer in time
  kExitLinkEnded = 5,     // the service left in the middle
  kExitNonsense = 6,      // what came, or what was to be decoded, is no packet of the protocol
  kExitDifferent = 7,     // replay: something else came than was recorded; doctor: a fault
  kExitRefused = 10,      // plus the service's status: 12, 13, 14, 15
  kExitSignal = 128,      // plus the signal's number, where a signal is not the usual end
};

inline int ExitStatusOf(const relay::Error& error) {
  switch (error.Kind()) {
    case relay::ErrorKind::kUsage:
      return kExitUsage;
    case relay::ErrorKind::kNotListening:
      return kExitNotListening;
    case relay::ErrorKind::kNoAnswer:
      return kExitNoAnswer;
    case relay::ErrorKind::kLinkEnded:
      return kExitLinkEnded;
    case relay::ErrorKind::kNonsense:
      return kExitNonsense;
    case relay::ErrorKind::kRefused:
      return kExitRefused + error.Code();
    case relay::ErrorKind::kSystem:
      break;
  }
  return kExitFailed;
}
