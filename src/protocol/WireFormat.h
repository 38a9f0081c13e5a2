// SPDX-License-Identifier: MIT
// The packets between the relay service and this service. Integers are unsigned and big-endian;
// there is no magic number, version, checksum or padding.
//
//   offset  size  field
//   0       2     length      of the whole packet, these two bytes included
//   2       1     command     1 open, 2 close, 4 data
//   3       1     portForm    1 numbered, 2 named
//
//   numbered:  4  2  portId1     USB vendor id         named:  4  2  L
//              6  2  portId2     USB product id                6  L  portName
//
// Behind the port identity:
//   open, close from the relay      nothing, or a parameter (2)
//   data from the relay             blockCount (1), then that many blocks
//   reply to an open or a close     status (2)
//   data notification to the relay  blockCount (1), which is 1, and one block of type 2
//
//   A block: type (1), data length D (2), D bytes of data.
#pragma once

#include <cstddef>
#include <cstdint>

enum Command : uint8_t { kCommandOpen = 1, kCommandClose = 2, kCommandData = 4 };

enum PortForm : uint8_t { kNumberedPort = 1, kNamedPort = 2 };

// Only in replies to open and close. 1 is never sent.
enum Status : uint16_t {
  kStatusDone = 0,
  kStatusNoPort = 2,       // the command leads to no port
  kStatusUnavailable = 3,  // the port is open already
  kStatusOpenFailed = 4,   // the device could not be opened or configured
  kStatusCloseFailed = 5,
};

// The type of the block in a data notification. Types in data commands mean nothing here.
constexpr uint8_t kReceivedDataBlock = 2;

constexpr size_t kLengthSize = 2;
constexpr size_t kHeaderSize = kLengthSize + 1 + 1;    // length, command, portForm
constexpr size_t kNumberedSize = kHeaderSize + 2 + 2;  // up to the end of the two ids
constexpr size_t kNamedSize = kHeaderSize + 2;         // up to the name's first byte

// What fits a length field.
constexpr size_t kMaxPacketSize = 0xFFFF;

constexpr uint8_t HighByte(uint16_t value) { return static_cast<uint8_t>(value >> 8); }
constexpr uint8_t LowByte(uint16_t value) { return static_cast<uint8_t>(value & 0xFF); }
constexpr uint16_t FromBytes(uint8_t high, uint8_t low) {
  return static_cast<uint16_t>(high << 8 | low);
}
