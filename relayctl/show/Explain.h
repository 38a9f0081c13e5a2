// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "relay/Packet.h"

// One packet explained: a line that says what it is, and with `withFields` one line for each field.
// Never fails: a packet that is none is explained up to where it goes wrong.
std::string ExplainPacket(std::string_view bytes, relay::Direction direction, bool withFields,
                          bool isColored);

// The same as one JSON object.
std::string ExplainPacketAsJson(std::string_view bytes, relay::Direction direction);

// What a packet without a direction most probably is: an open or a close with two bytes behind the
// port is a reply, data in a block of type 2 a notification.
relay::Direction GuessDirection(std::string_view bytes);
