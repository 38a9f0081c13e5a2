// SPDX-License-Identifier: MIT
// The reading half of Packet.h.
#include "relay/Error.h"
#include "relay/Packet.h"

namespace relay {

namespace {

// What is wrong with a packet; caught where the parse began.
struct Problem {
  std::string text;
};

// Takes fields from the front. Throws Problem when too few bytes are left.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : rest(bytes) {}

  uint8_t Byte(const char* what) { return static_cast<uint8_t>(Take(1, what)[0]); }

  uint16_t Number(const char* what) {
    const std::string_view two = Take(2, what);
    return FromBytes(static_cast<uint8_t>(two[0]), static_cast<uint8_t>(two[1]));
  }

  std::string_view Take(size_t count, const char* what) {
    if (rest.size() < count) {
      throw Problem{std::string(what) + " is cut off"};
    }
    const std::string_view taken = rest.substr(0, count);
    rest.remove_prefix(count);
    return taken;
  }

  size_t Left() const { return rest.size(); }

 private:
  std::string_view rest;
};

void ParsePort(Cursor& cursor, Port& port) {
  const uint8_t form = cursor.Byte("the port form");
  if (form == kNumberedPort) {
    port.vendorId = cursor.Number("the vendor id");
    port.productId = cursor.Number("the product id");
    return;
  }
  if (form != kNamedPort) {
    throw Problem{"port form " + std::to_string(form) + " is neither 1 nor 2"};
  }
  const uint16_t length = cursor.Number("the length of the name");
  if (length == 0) {
    throw Problem{"a name of length 0"};
  }
  port.name = cursor.Take(length, "the name");
}

void ParseBlocks(Cursor& cursor, Packet& packet) {
  const uint8_t count = cursor.Byte("the block count");
  for (unsigned i = 0; i < count; ++i) {
    Block block;
    block.type = cursor.Byte("a block's type");
    const uint16_t length = cursor.Number("a block's length");
    block.data = cursor.Take(length, "a block's data");
    packet.blocks.push_back(std::move(block));
  }
}

void Parse(std::string_view bytes, Direction direction, Packet& packet) {
  Cursor cursor(bytes);
  const uint16_t length = cursor.Number("the length");
  if (length != bytes.size()) {
    throw Problem{"the length says " + std::to_string(length) + " bytes, there are " +
                  std::to_string(bytes.size())};
  }
  packet.command = cursor.Byte("the command");
  if (packet.command != kCommandOpen && packet.command != kCommandClose &&
      packet.command != kCommandData) {
    throw Problem{"there is no command " + std::to_string(packet.command)};
  }
  ParsePort(cursor, packet.port);
  if (packet.command == kCommandData) {
    ParseBlocks(cursor, packet);
  } else if (direction == Direction::kFromService || cursor.Left() > 0) {
    packet.number =
        cursor.Number(direction == Direction::kFromService ? "the status" : "the parameter");
  }
  if (cursor.Left() > 0) {
    throw Problem{std::to_string(cursor.Left()) + " bytes too many at its end"};
  }
}

}  // namespace

ParsedPacket ParsePacket(std::string_view bytes, Direction direction) {
  ParsedPacket result;
  try {
    Parse(bytes, direction, result.packet);
  } catch (const Problem& problem) {
    result.problem = problem.text;
  }
  return result;
}

std::optional<std::string> PacketCutter::Next() {
  const std::string_view rest = Rest();
  if (rest.size() < kLengthSize) {
    return std::nullopt;
  }
  const size_t length = FromBytes(static_cast<uint8_t>(rest[0]), static_cast<uint8_t>(rest[1]));
  if (length <= kLengthSize) {
    throw Error(ErrorKind::kNonsense, "a packet of length " + std::to_string(length) +
                                          " came: this is not the service's stream");
  }
  if (rest.size() < length) {
    return std::nullopt;
  }
  std::string packet(rest.substr(0, length));
  stream.Take(length);
  return packet;
}

}  // namespace relay
