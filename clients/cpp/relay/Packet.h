// SPDX-License-Identifier: MIT
// The packets of the link, as the relay's side sees them: commands are built, replies and
// notifications are parsed; tools parse commands too. Layout and numbers: protocol/WireFormat.h.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/WireFormat.h"
#include "relay/ByteQueue.h"

namespace relay {

// The parameter of an open that is sent for its answer only, behind data for a port that is open.
// The service does not look at it; recordings and the dissector tell by it what is no user's
// command.
constexpr uint16_t kFenceParameter = 0x4645;  // "FE"

// A port as packets name it: by a name, or by the USB ids of its adapter.
struct Port {
  std::string name;  // empty: the numbered form
  uint16_t vendorId = 0;
  uint16_t productId = 0;

  // "0403:6001" is the numbered form, anything else a name. Throws kUsage for a name that is empty
  // or too long for a packet.
  static Port FromText(std::string_view text);

  // The same text, with what a terminal should not see escaped.
  std::string Text() const;

  bool IsNumbered() const { return name.empty(); }
  // clang-tidy takes the 0 that the compiler itself compares with for a null pointer.
  auto operator<=>(const Port&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct Block {
  uint8_t type = 1;  // in commands any will do; kReceivedDataBlock in notifications
  std::string data;
};

enum class Direction { kToService, kFromService };

struct Packet {
  uint8_t command = 0;  // one of Command
  Port port;
  std::optional<uint16_t> number;  // to the service: the parameter; from it: the status
  std::vector<Block> blocks;       // data

  std::string Data() const;  // of all blocks
  bool IsFence() const { return command == kCommandOpen && number == kFenceParameter; }
};

struct ParsedPacket {
  Packet packet;        // as far as it could be read
  std::string problem;  // empty: well formed
};

// `bytes` is one whole packet, length included.
ParsedPacket ParsePacket(std::string_view bytes, Direction direction);

// One line: `open #PhysicalPort0`, `reply to open #PhysicalPort0: status 0`, `from X: "A"`.
std::string Describe(const Packet& packet, Direction direction);

// What a status means: "this machine's configuration has no such port, or …".
std::string StatusText(uint8_t command, uint16_t status);

std::string OpenCommand(const Port& port, std::optional<uint16_t> parameter = {});
std::string CloseCommand(const Port& port, std::optional<uint16_t> parameter = {});

// Throws kUsage when the blocks are more than 255 or more than a packet holds.
std::string DataCommand(const Port& port, const std::vector<Block>& blocks);

// How many bytes of data a data command of one block can carry to this port.
size_t MaxData(const Port& port);

// Any packet, either way. Throws as DataCommand does.
std::string BuildPacket(const Packet& packet);

// Cuts a stream into packets.
class PacketCutter {
 public:
  void Add(std::string_view bytes) { stream.Add(bytes); }

  // The next whole packet, or nothing as yet. Throws kNonsense for a length that no packet has;
  // there is no way to go on from there.
  std::optional<std::string> Next();

  // Bytes of a packet that is not whole yet.
  std::string_view Rest() const { return stream.View(); }
  void Clear() { stream.Clear(); }

 private:
  ByteQueue stream;
};

}  // namespace relay
