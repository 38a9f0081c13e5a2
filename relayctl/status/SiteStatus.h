// SPDX-License-Identifier: MIT
// How a site is, as far as it can be seen without touching it: nothing connects to the relay port,
// and no line is opened.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "doctor/Doctor.h"
#include "doctor/OpenPorts.h"

enum class Health { kGood = 0, kNeedsAttention = 1, kDown = 2 };  // the exit statuses

struct SiteStatus {
  double time = 0;  // seconds since 1970
  Health health = Health::kGood;
  std::vector<Finding> attention;  // what to do something about; worst first
  std::vector<Finding> notes;      // what else is worth knowing
  uint16_t relayPort = 0;
  bool isListening = false;
  Machine machine;
  std::vector<OpenPort> ports;  // those that are configured
};

// Takes a second. `givenRelayPort`: nothing: the configured one.
SiteStatus LookAtSite(std::optional<uint16_t> givenRelayPort);

// The link that the service serves; nullptr: none.
const LinkActivity* ServedLink(const SiteStatus& status);

// Who has the other end of a link.
struct PeerView {
  ProcessSearch processes;
  std::string user;  // empty: nobody has it any more
  bool hasLeft = false;
};
PeerView PeerOf(const SiteStatus& status, const LinkActivity& link);

// How many peers wait behind it.
size_t WaitingPeers(const SiteStatus& status);

// Share of one processor during the look.
double ProcessorShare(const SiteStatus& status);

const char* WordOf(Health health);
const char* WordOf(PortState state);
