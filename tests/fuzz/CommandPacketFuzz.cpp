// SPDX-License-Identifier: MIT
// The parser gives the same verdict and the same fields as the client's, which is code of its own.
#include "Check.h"
#include "protocol/CommandPacket.h"
#include "relay/Packet.h"

namespace {

// The client compares the length field with the packet; the service has cut the packet by it.
std::string WithLength(std::string bytes) {
  if (bytes.size() >= kLengthSize) {
    bytes[0] = static_cast<char>(HighByte(static_cast<uint16_t>(bytes.size())));
    bytes[1] = static_cast<char>(LowByte(static_cast<uint16_t>(bytes.size())));
  }
  return bytes;
}

void CheckPort(const CommandPacket& packet, const relay::Port& expected) {
  Check(packet.portForm == (expected.IsNumbered() ? kNumberedPort : kNamedPort), "same form");
  Check(packet.portId1 == expected.vendorId && packet.portId2 == expected.productId, "same ids");
  Check(packet.portName == expected.name.c_str(), "same name, up to its first zero byte");
}

void CheckBlocks(const CommandPacket& packet, const std::vector<relay::Block>& expected) {
  Check(packet.blockCount == expected.size(), "same block count");
  for (uint32_t i = 0; i < packet.blockCount; ++i) {
    DataBlock block;
    packet.GetBlock(i, block);
    Check(block.type == expected[i].type, "same block type");
    Check(std::string(block.data, block.data + block.length) == expected[i].data,
          "same block data");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxPacketSize) {
    return 0;
  }
  const CommandPacket packet(data, static_cast<uint32_t>(size));
  const relay::ParsedPacket parsed =
      relay::ParsePacket(WithLength({data, data + size}), relay::Direction::kToService);
  const relay::Packet& expected = parsed.packet;
  Check(packet.parsedOk == parsed.problem.empty(), "same verdict");
  if (packet.parsedOk) {
    Check(packet.command == expected.command, "same command");
    CheckPort(packet, expected.port);
    Check(packet.parameter == expected.number.value_or(0), "same parameter");
    CheckBlocks(packet, expected.blocks);
  }
  return 0;
}
