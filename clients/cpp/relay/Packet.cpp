// SPDX-License-Identifier: MIT
#include "relay/Packet.h"

#include "relay/Error.h"
#include "relay/Text.h"

namespace relay {

namespace {

constexpr size_t kStatusSize = 2;
constexpr size_t kBlockCountSize = 1;
constexpr size_t kBlockHeaderSize = 3;  // type, data length
constexpr size_t kMaxBlocks = 0xFF;

// A name must leave room for the status in the reply.
constexpr size_t kMaxName = kMaxPacketSize - kNamedSize - kStatusSize;

void Append16(std::string& bytes, size_t value) {
  bytes += static_cast<char>(HighByte(static_cast<uint16_t>(value)));
  bytes += static_cast<char>(LowByte(static_cast<uint16_t>(value)));
}

std::string ToCommand(uint8_t command, const Port& port, std::optional<uint16_t> parameter) {
  return BuildPacket({command, port, parameter, {}});
}

const char* CommandWord(uint8_t command) {
  return command == kCommandOpen ? "open" : command == kCommandClose ? "close" : "data";
}

}  // namespace

std::string Packet::Data() const {
  std::string all;
  for (const Block& block : blocks) {
    all += block.data;
  }
  return all;
}

std::string OpenCommand(const Port& port, std::optional<uint16_t> parameter) {
  return ToCommand(kCommandOpen, port, parameter);
}

std::string CloseCommand(const Port& port, std::optional<uint16_t> parameter) {
  return ToCommand(kCommandClose, port, parameter);
}

std::string DataCommand(const Port& port, const std::vector<Block>& blocks) {
  return BuildPacket({kCommandData, port, {}, blocks});
}

size_t MaxData(const Port& port) {
  const size_t head = port.IsNumbered() ? kNumberedSize : kNamedSize + port.name.size();
  const size_t taken = head + kBlockCountSize + kBlockHeaderSize;
  return taken < kMaxPacketSize ? kMaxPacketSize - taken : 0;
}

std::string BuildPacket(const Packet& packet) {
  std::string bytes(kLengthSize, '\0');
  bytes += static_cast<char>(packet.command);
  if (packet.port.IsNumbered()) {
    bytes += static_cast<char>(kNumberedPort);
    Append16(bytes, packet.port.vendorId);
    Append16(bytes, packet.port.productId);
  } else {
    bytes += static_cast<char>(kNamedPort);
    Append16(bytes, packet.port.name.size());
    bytes += packet.port.name;
  }
  if (packet.number) {
    Append16(bytes, *packet.number);
  }
  if (packet.command == kCommandData) {
    if (packet.blocks.size() > kMaxBlocks) {
      throw Error(ErrorKind::kUsage, "a data command has at most 255 blocks");
    }
    bytes += static_cast<char>(packet.blocks.size());
    for (const Block& block : packet.blocks) {
      bytes += static_cast<char>(block.type);
      Append16(bytes, block.data.size());
      bytes += block.data;
    }
  }
  if (bytes.size() > kMaxPacketSize) {
    throw Error(ErrorKind::kUsage, "a packet has at most 65535 bytes, this one would have " +
                                       std::to_string(bytes.size()));
  }
  const auto length = static_cast<uint16_t>(bytes.size());
  bytes[0] = static_cast<char>(HighByte(length));
  bytes[1] = static_cast<char>(LowByte(length));
  return bytes;
}

std::string StatusText(uint8_t command, uint16_t status) {
  const bool isOpen = command == kCommandOpen;
  switch (status) {
    case kStatusDone:
      return isOpen ? "open" : "closed";
    case kStatusNoPort:
      return isOpen
                 ? "this machine's configuration has no such port, or the name leads to no device"
                 : "the port is not open";
    case kStatusUnavailable:
      return "the port is open already, and stays open";
    case kStatusOpenFailed:
      return "the device could not be opened or set up, or its node is missing";
    case kStatusCloseFailed:
      return "the port could not be closed, and stays open";
    default:
      return "unknown";
  }
}

std::string Describe(const Packet& packet, Direction direction) {
  const std::string port = packet.port.Text();
  if (packet.command == kCommandData) {
    std::string text = direction == Direction::kToService ? "data for " : "from ";
    text += port + ":";
    for (const Block& block : packet.blocks) {
      text += direction == Direction::kToService ? " type " + std::to_string(block.type) : "";
      text += " " + Quote(block.data);
    }
    return packet.blocks.empty() ? text + " no block" : text;
  }
  const std::string what = std::string(CommandWord(packet.command)) + " " + port;
  if (direction == Direction::kToService) {
    std::string parameter;
    if (packet.number) {
      Append16(parameter, *packet.number);
      parameter = ", parameter " + ToHex(parameter) + (packet.IsFence() ? ": a fence" : "");
    }
    return what + parameter;
  }
  const uint16_t status = packet.number.value_or(0);
  return "reply to " + what + ": status " + std::to_string(status) + ", " +
         StatusText(packet.command, status);
}

Port Port::FromText(std::string_view text) {
  constexpr size_t kColon = 4;
  Port port;
  if (text.empty()) {
    throw Error(ErrorKind::kUsage, "a port name is never empty");
  }
  if (text.size() > kMaxName) {
    throw Error(ErrorKind::kUsage, "a port name of " + std::to_string(text.size()) +
                                       " bytes is too long for a packet");
  }
  const std::string digits =
      text.size() == 2 * kColon + 1 && text[kColon] == ':'
          ? std::string(text.substr(0, kColon)) + std::string(text.substr(kColon + 1))
          : "";
  if (digits.empty() || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    port.name = text;
    return port;
  }
  const auto ids = static_cast<uint32_t>(std::stoul(digits, nullptr, 16));
  port.vendorId = static_cast<uint16_t>(ids >> 16);
  port.productId = static_cast<uint16_t>(ids & 0xFFFF);
  return port;
}

std::string Port::Text() const {
  if (!IsNumbered()) {
    return Escape(name);
  }
  std::string ids;
  Append16(ids, vendorId);
  Append16(ids, productId);
  const std::string hex = ToHex(ids);
  std::string lower;
  for (const char digit : hex) {
    lower += digit >= 'A' ? static_cast<char>(digit - 'A' + 'a') : digit;
  }
  return lower.substr(0, 4) + ":" + lower.substr(4);
}

}  // namespace relay
