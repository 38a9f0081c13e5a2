// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "relay/Packet.h"

// The port that a person names to have it opened. Throws kUsage for what never can be: an empty or
// too long name, or ids, by which the service opens nothing.
relay::Port PortToOpen(const std::string& text);
std::vector<relay::Port> PortsToOpen(const std::vector<std::string>& texts);
