// SPDX-License-Identifier: MIT
// What has come from the service and was not asked for yet. The bytes of a port may be cut in
// another way than those recorded; between ports, and between bytes and replies, there is no order.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "e2e/support/Relay.h"
#include "relay/Recording.h"

class Arrivals {
 public:
  // Waits until there is what the event needs, and takes it. Empty, or what came instead.
  std::string Take(Relay& relay, const relay::RecordedEvent& event);

  // What is there still; empty when nothing is.
  std::string Rest() const;

 private:
  // Empty, or why no further packet comes.
  std::string TakePacket(Relay& relay);

  std::map<relay::Port, std::string> data;
  std::deque<std::string> others;
};
