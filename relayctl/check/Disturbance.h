// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// What one trial does to the program under test, beyond playing the service. Packets are those that
// the service sends on the first link, counted from 0; what is inserted does not count.
struct Disturbance {
  struct Place {
    size_t packet = 0;
    size_t behind = 0;  // so many bytes of it
  };
  enum class Ending { kOrderly, kReset };

  std::string name = "undisturbed";  // "a cut behind byte 3 of packet 2"

  bool isBytewise = false;       // each byte of each packet is sent by itself
  std::optional<Place> cut;      // a pause stands there
  std::optional<size_t> merged;  // this packet waits for the next one, and goes with it
  std::optional<size_t> late;    // this packet waits, and all behind it

  std::optional<Place> split;  // this notification is two, the first with so many bytes of data

  std::string stranger;          // a packet that answers nothing and belongs to no open port
  std::optional<size_t> before;  // where it is sent; nothing: in front of each packet
  bool isTogether = false;       // in one segment with the packet behind it
  bool isOwnPort = false;        // instead, an open port's bytes in front of each answer
  size_t flood = 0;              // so many bytes of strangers behind the first answer

  std::optional<Place> broken;  // the link ends there
  Ending ending = Ending::kOrderly;
  bool isDeaf = false;  // each link is reset before a byte, for a second

  std::optional<uint16_t> refusal;  // the status of the first open
  bool isMute = false;              // the first open is not answered
  bool isStuckOpen = false;         // the first close is answered with status 5
  bool isTimed = false;             // its acknowledgements are measured
  bool isAlone = false;             // it runs in a network of its own, where nobody listens
};
