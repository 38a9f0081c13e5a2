// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "relay/Client.h"

// The options that every command has.
struct CommonOptions {
  unsigned givenRelayPort = 0;  // 0: none was given
  bool json = false;
  double timeout = 10;  // seconds; for an answer of the service
  double patience = 2;  // seconds; for a service that does not listen yet

  // The port that was given; else that of the service's configuration, as it is now.
  uint16_t RelayPort() const;

  // For a command that prints none: throws kUsage when it was asked for.
  void RefuseJson(const std::string& command) const;

  // Options for a client. `reconnect`: for commands that outlive the service; those wait for
  // answers without limit, as a line that takes no bytes holds up all commands behind it.
  relay::ClientOptions ForClient(bool reconnect = false) const;

  // The same for one that does not reconnect, and waits for answers without limit all the same.
  relay::ClientOptions ForPatientClient() const;
};
