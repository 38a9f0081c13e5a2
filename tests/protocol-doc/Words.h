// SPDX-License-Identifier: MIT
// What a packet says, in the words of the document.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "protocol/CommandPacket.h"

// A packet from the service, taken apart by hand: nothing of the service's own code reads one.
struct ServicePacket {
  uint8_t command = 0;
  bool isNamed = false;
  std::string name;
  uint16_t id1 = 0;
  uint16_t id2 = 0;
  uint16_t status = 0;        // open and close
  std::vector<uint8_t> data;  // data
};

// Nothing when the bytes are no reply and no notification with one block of type 2.
std::optional<ServicePacket> TakeApart(const std::vector<uint8_t>& bytes);

// "open #PhysicalPort0", "close 0403:6001, parameter 0005",
// "data for X: type 1 "AB", type 2 "\r"", "data for X: no block"
std::string Words(const CommandPacket& packet);

// "reply to open X: status 0", "from X: "AB""
std::string Words(const ServicePacket& packet);

// Bytes as text in double quotes: \r, \n, \\, \" and \x1B for what cannot be seen.
std::string Quoted(const std::vector<uint8_t>& bytes);
