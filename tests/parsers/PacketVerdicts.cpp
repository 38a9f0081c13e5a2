// SPDX-License-Identifier: MIT
// What the C++ client and the service's parser say of packets, to be compared with other parsers.
//
// usage: PacketVerdicts          reads lines, `> HEX` a packet to the service and `< HEX` one from
// it,
//                                and prints a line for each: what the client says and, of a packet
//                                to the service, behind a tab what the service says
//        PacketVerdicts FILE...  prints the packets of recordings as such lines
//
// What is said: "refused", or command, port (ids, or the name as <HEX>), the number of an open or
// close, and the blocks as TYPE:HEX.
#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "protocol/CommandPacket.h"
#include "protocol/PacketFramer.h"
#include "relay/Recording.h"
#include "relay/Text.h"

namespace {

using relay::Direction;

std::string Hex4(uint16_t value) {
  const char bytes[] = {static_cast<char>(HighByte(value)), static_cast<char>(LowByte(value))};
  return relay::ToHex({bytes, sizeof bytes});
}

std::string Ids(uint16_t vendor, uint16_t product) { return Hex4(vendor) + ":" + Hex4(product); }

std::string Name(std::string_view name) { return "<" + relay::ToHex(name) + ">"; }

std::string CommandAndPort(uint8_t command, const std::string& port) {
  const char* const word = command == kCommandOpen    ? "open "
                           : command == kCommandClose ? "close "
                                                      : "data ";
  return word + port;
}

std::string Block(uint8_t type, std::string_view data) {
  return " " + std::to_string(type) + ":" + relay::ToHex(data);
}

void Check(bool isCutOut) {
  if (!isCutOut) {
    throw std::runtime_error("the stream is cut at other places than between its packets");
  }
}

// One direction of the link, as the client reads it.
class ClientSide {
 public:
  explicit ClientSide(Direction which) : direction(which) {}

  std::string Verdict(const std::string& bytes) {
    cutter.Add(bytes);
    Check(cutter.Next() == bytes && cutter.Rest().empty());
    const relay::ParsedPacket parsed = relay::ParsePacket(bytes, direction);
    return parsed.problem.empty() ? Text(parsed.packet) : "refused";
  }

 private:
  // A name ends at its first zero byte, but the client keeps what stands behind, to be shown.
  static std::string Text(const relay::Packet& packet) {
    const relay::Port& port = packet.port;
    std::string text =
        CommandAndPort(packet.command, port.IsNumbered() ? Ids(port.vendorId, port.productId)
                                                         : Name(port.name.c_str()));
    text += packet.number ? " " + Hex4(*packet.number) : "";
    for (const relay::Block& block : packet.blocks) {
      text += Block(block.type, block.data);
    }
    return text;
  }

  Direction direction;
  relay::PacketCutter cutter;
};

// What the service reads. A parameter that is missing is 0 to it.
class ServiceSide {
 public:
  std::string Verdict(const std::string& bytes) {
    Take(bytes);
    const CommandPacket packet(framer.Packet(), framer.Length());
    framer.Drop();
    return packet.parsedOk ? Text(packet) : "refused";
  }

 private:
  void Take(std::string_view bytes) {
    bool isWhole = false;
    while (!bytes.empty() && !isWhole) {
      const size_t count = std::min<size_t>(framer.Wanted(), bytes.size());
      std::copy_n(bytes.begin(), count, framer.Space());
      bytes.remove_prefix(count);
      isWhole = framer.Take(static_cast<uint16_t>(count));
    }
    Check(isWhole && bytes.empty());
  }

  static std::string Text(const CommandPacket& packet) {
    std::string text = CommandAndPort(packet.command, packet.portForm == kNumberedPort
                                                          ? Ids(packet.portId1, packet.portId2)
                                                          : Name(packet.portName));
    text += packet.command == kCommandData ? "" : " " + Hex4(packet.parameter);
    for (uint32_t i = 0; i < packet.blockCount; ++i) {
      DataBlock block;
      packet.GetBlock(i, block);
      text += Block(block.type, {reinterpret_cast<const char*>(block.data), block.length});
    }
    return text;
  }

  PacketFramer framer;
};

void PrintVerdicts() {
  ClientSide commands(Direction::kToService);
  ClientSide answers(Direction::kFromService);
  ServiceSide service;
  for (std::string line; std::getline(std::cin, line);) {
    const std::string bytes = relay::FromHex(line.substr(2));
    if (line.starts_with('>')) {
      std::cout << commands.Verdict(bytes) << "\t" << service.Verdict(bytes) << "\n";
    } else {
      std::cout << answers.Verdict(bytes) << "\n";
    }
  }
}

void PrintPackets(const std::string& file) {
  for (const relay::RecordedEvent& event : relay::ReadRecordingFile(file)) {
    if (event.IsPacket()) {
      std::cout << (event.direction == Direction::kToService ? "> " : "< ")
                << relay::ToHex(event.ToPacket()) << "\n";
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  try {
    for (int i = 1; i < count; ++i) {
      PrintPackets(arguments[i]);
    }
    if (count == 1) {
      PrintVerdicts();
    }
  } catch (const std::exception& problem) {
    std::cerr << problem.what() << "\n";
    return 1;
  }
  return 0;
}
