// SPDX-License-Identifier: MIT
// The parser gives the same verdict and the same fields as a second, independent decoder.
#include "Check.h"
#include "protocol/CommandPacket.h"
#include "support/ReferenceDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const CommandPacket packet(data, static_cast<uint32_t>(size));
  const auto expected = ReferenceDecode(std::string(data, data + size));
  Check(packet.parsedOk == expected.has_value(), "same verdict");
  if (!expected) {
    return 0;
  }
  Check(packet.command == expected->command && packet.portForm == expected->form, "same header");
  Check(packet.portId1 == expected->id1 && packet.portId2 == expected->id2, "same ids");
  Check(packet.portName == expected->name, "same name");
  Check(packet.parameter == expected->parameter, "same parameter");
  Check(packet.blockCount == expected->blocks.size(), "same block count");
  for (uint32_t i = 0; i < packet.blockCount; ++i) {
    DataBlock block;
    packet.GetBlock(i, block);
    Check(block.type == expected->blocks[i].first, "same block type");
    Check(std::string(block.data, block.data + block.length) == expected->blocks[i].second,
          "same block data");
  }
  return 0;
}
