// SPDX-License-Identifier: MIT
// What the soak does to the service, and when: all by one seed.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>

enum class Fault {
  kUnplug,        // a device goes away and comes back up to 3 s later
  kClose,         // a port is closed, and opened up to 1.5 s later
  kOpenTwice,     // an open port is opened again
  kCloseUnknown,  // a name that no port has is closed
  kGarbage,       // a packet that is none
  kRelayStall,    // the relay reads nothing for up to 4 s
  kRelayLeaves,   // the relay ends its side, reads what still comes, and connects anew
  kRelayResets,   // the same at once, without reading
};

struct FaultKind {
  Fault fault;
  const char* name;
  unsigned weight;
};

constexpr std::array<FaultKind, 8> kFaultKinds = {{
    {Fault::kUnplug, "unplugged and plugged", 6},
    {Fault::kClose, "closed and opened", 5},
    {Fault::kOpenTwice, "opened twice", 2},
    {Fault::kCloseUnknown, "unknown name closed", 2},
    {Fault::kGarbage, "garbage packets", 6},
    {Fault::kRelayStall, "relay stalls", 1},
    {Fault::kRelayLeaves, "relay leaves", 1},
    {Fault::kRelayResets, "relay resets", 1},
}};

class Plan {
 public:
  using Milliseconds = std::chrono::milliseconds;

  explicit Plan(uint32_t seed) : generator(seed) {}

  // From `from` to `to`, both included.
  size_t Between(size_t from, size_t to);
  Milliseconds TimeBetween(unsigned from, unsigned to) { return Milliseconds(Between(from, to)); }

  // An index into kFaultKinds.
  size_t NextFault();

 private:
  std::mt19937 generator;
};
