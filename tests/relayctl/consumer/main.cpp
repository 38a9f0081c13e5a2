// SPDX-License-Identifier: MIT
// A program of somebody else, built against the installed library: opens a port where no service
// is, and tells what the library says.
#include <cstdio>

#include "protocol/WireFormat.h"
#include "relay/Client.h"
#include "relay/Recording.h"
#include "relay/Text.h"
#include "relay/Writer.h"

int main() {
  const relay::Port port = relay::Port::FromText("#PhysicalPort0");
  std::puts(relay::ToHex(relay::BuildPacket({kCommandOpen, port, {}, {}}), " ").c_str());
  relay::ClientOptions options;
  options.port = 1;
  options.patience = relay::Millis(0);
  relay::Client client(options);
  relay::Writer writer(client, port);
  client.Start();
  try {
    client.RunUntil([] { return false; });
  } catch (const relay::Error& error) {
    std::puts(error.what());
  }
}
