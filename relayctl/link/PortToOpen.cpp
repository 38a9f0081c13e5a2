// SPDX-License-Identifier: MIT
#include "link/PortToOpen.h"

#include "relay/Error.h"

relay::Port PortToOpen(const std::string& text) {
  relay::Port port = relay::Port::FromText(text);
  if (port.IsNumbered()) {
    throw relay::Error(
        relay::ErrorKind::kUsage,
        text + ": ports are opened by name only; relayctl suggest tells an adapter's name");
  }
  return port;
}

std::vector<relay::Port> PortsToOpen(const std::vector<std::string>& texts) {
  std::vector<relay::Port> ports;
  ports.reserve(texts.size());
  for (const std::string& text : texts) {
    ports.push_back(PortToOpen(text));
  }
  return ports;
}
