// SPDX-License-Identifier: MIT
#include "soak/Garbage.h"

#include "e2e/support/Wire.h"

namespace {

std::string Bytes(const std::string& wire) {
  const std::vector<uint8_t> bytes = WireBytes(wire);
  return {bytes.begin(), bytes.end()};
}

// A true length, an unknown command code, and anything.
std::string Noise(Plan& plan) {
  const size_t length = plan.Between(3, 3000);
  std::string bytes = {static_cast<char>(length / 256), static_cast<char>(length % 256), char{3}};
  while (bytes.size() < length) {
    bytes += static_cast<char>(plan.Between(0, 255));
  }
  return bytes;
}

constexpr const char* kRefused[] = {
    "0003 01",                                         // no form
    "0008 01 09 0003 0007",                            // an unknown form
    "0006 01 02 0000",                                 // an empty name
    "0015 01 02 000E '#PhysicalPort0' 00",             // a body of one byte
    "0014 04 02 000F '#PhysicalPort0'",                // a name longer than the packet
    "0017 04 02 000E '#PhysicalPort0' 02 0100",        // blocks that are cut
    "0019 04 02 000E '#PhysicalPort0' 01 01 0000 4B",  // a byte too many
};

}  // namespace

std::string Garbage(Plan& plan) {
  const size_t drawn = plan.Between(0, std::size(kRefused));
  return drawn < std::size(kRefused) ? Bytes(kRefused[drawn]) : Noise(plan);
}
