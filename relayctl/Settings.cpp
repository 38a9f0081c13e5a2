// SPDX-License-Identifier: MIT
#include "Settings.h"

namespace {

relay::Millis FromSeconds(double seconds) {
  return std::chrono::duration_cast<relay::Millis>(std::chrono::duration<double>(seconds));
}

}  // namespace

relay::ClientOptions Settings::ForClient(bool reconnect) const {
  relay::ClientOptions options;
  options.port = static_cast<uint16_t>(port);
  options.reconnect = reconnect;
  options.patience = FromSeconds(patience);
  options.replyTimeout = reconnect ? relay::Millis(0) : FromSeconds(timeout);
  return options;
}
