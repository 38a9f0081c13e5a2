// SPDX-License-Identifier: MIT
#include "simulation/oracle/StopModel.h"

#include <algorithm>

namespace simulation {
namespace {

constexpr const char* kStopped = "Serial Port Handler stop.";
constexpr const char* kNotOpened = "Failed to open the Socket connection for RelayService.";

// Of the relay's thread, of a port's, and of all that are left then.
constexpr Time kPatienceWithOne = 2 * kSecond + 200 * kMillisecond;
constexpr Time kPatienceWithAll = 5 * kSecond + 200 * kMillisecond;
constexpr Time kLook = 500 * kMillisecond;

}  // namespace

void StopModel::Logs(const std::string& message, bool isServing, size_t ports) {
  isStopped = isStopped || message == kStopped;
  isRefused = isRefused || message == kNotOpened;
  if (message != "request stop.") {
    return;
  }
  // One that comes before the first link stands is forgotten.
  if (asked == kForever || !hasAccepted) {
    asked = kernel.Now();
    stalledBefore = kernel.Stalled();
    openPorts = ports;
  }
  right = isServing ? "exit 0" : isListening ? "exit 255" : "";
}

// Two seconds for each thread that is stuck, and five for those that are so still.
std::string StopModel::JudgeTime() const {
  if (asked == kForever) {
    return "the service has ended, and nobody asked it to";
  }
  const Time bound = kLook + kPatienceWithOne * static_cast<Time>(1 + openPorts) +
                     kPatienceWithAll + kernel.Stalled() - stalledBefore;
  return kernel.Now() - asked <= bound ? "" : "the stop takes too long";
}

std::string StopModel::Judge(const std::string& ending) const {
  if (ending == "signal 6") {
    return mayAbort ? "" : "aborted";
  }
  if (!right.empty() && ending != right) {
    return ending + " and not " + right;
  }
  if (ending == "exit 0") {
    return hasSaidGoodbye && isStopped ? JudgeTime() : "status 0 without an orderly end";
  }
  if (ending != "exit 255" || !isRefused || isStopped || hasSaidGoodbye) {
    return ending + ", and the log tells otherwise";
  }
  return mayFail ? "" : JudgeTime();
}

}  // namespace simulation
