// SPDX-License-Identifier: MIT
#include "CommonOptions.h"

#include "Duration.h"
#include "machine/RunningService.h"

namespace {

relay::Millis MillisOf(double seconds) {
  return std::chrono::duration_cast<relay::Millis>(FromSeconds(seconds));
}

}  // namespace

uint16_t CommonOptions::RelayPort() const {
  return givenRelayPort != 0 ? static_cast<uint16_t>(givenRelayPort) : RelayPortByConfiguration();
}

void CommonOptions::RefuseJson(const std::string& command) const {
  if (json) {
    throw relay::Error(relay::ErrorKind::kUsage, command + ": has nothing to print as JSON");
  }
}

relay::ClientOptions CommonOptions::ForClient(bool reconnect) const {
  relay::ClientOptions options;
  options.port = RelayPort();
  options.reconnect = reconnect;
  options.patience = MillisOf(patience);
  options.replyTimeout = reconnect ? relay::Millis(0) : MillisOf(timeout);
  return options;
}

relay::ClientOptions CommonOptions::ForPatientClient() const {
  relay::ClientOptions options = ForClient();
  options.replyTimeout = relay::Millis(0);
  return options;
}
