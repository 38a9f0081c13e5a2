// SPDX-License-Identifier: MIT
#pragma once

#include "relay/Client.h"

// The options that every command has.
struct Settings {
  unsigned port = relay::kDefaultPort;
  bool json = false;
  double timeout = 10;  // seconds; for an answer of the service
  double patience = 2;  // seconds; for a service that does not listen yet

  // Options for a client. `reconnect`: for commands that outlive the service; those wait for
  // answers without limit, as a line that takes no bytes holds up all commands behind it.
  relay::ClientOptions ForClient(bool reconnect = false) const;
};
