// SPDX-License-Identifier: MIT
// Whatever is appended, the bytes are header and accepted parts in order, and the length field is
// the 16-bit sum. Input: command, form, two ids or a name length and the name, then appends.
#include <string>
#include <vector>

#include "Check.h"
#include "protocol/PacketBuilder.h"

namespace {

class Input {
 public:
  Input(const uint8_t* bytes, size_t count) : data(bytes), left(count) {}
  bool Empty() const { return left == 0; }
  uint8_t Byte() {
    if (left == 0) {
      return 0;
    }
    --left;
    return *data++;
  }
  uint16_t Word() {
    const unsigned high = Byte();
    return static_cast<uint16_t>(high * 256 + Byte());
  }

 private:
  const uint8_t* data;
  size_t left;
};

std::string Text16(unsigned value) {
  return {static_cast<char>(value / 256 % 256), static_cast<char>(value % 256)};
}

// The same rules over plain text.
struct Model {
  std::string head;  // without the length field
  std::string body;  // without the block count
  unsigned command = 0;
  unsigned length = 0;
  unsigned blocks = 0;

  bool Status(unsigned status) {
    if (command != 1 && command != 2) {
      return false;
    }
    body += Text16(status);
    length = (length + 2) % 65536;
    return true;
  }
  bool Block(const std::string& data, unsigned type) {
    if (command != 4 || data.empty() || length + data.size() >= 65536) {
      return false;
    }
    ++blocks;
    body += static_cast<char>(type);
    body += Text16(static_cast<unsigned>(data.size())) + data;
    length = static_cast<unsigned>(Bytes().size() % 65536);
    return true;
  }
  std::string Bytes() const {
    const std::string count = blocks != 0 ? std::string(1, static_cast<char>(blocks)) : "";
    return Text16(length) + head + count + body;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t command = input.Byte();
  Model model;
  model.command = command;
  CPacketBuilder builder(uint8_t{0}, uint16_t{0}, uint16_t{0});
  if (input.Byte() % 2 == 0) {
    const uint16_t id1 = input.Word();
    const uint16_t id2 = input.Word();
    builder = CPacketBuilder(command, id1, id2);
    model.head = std::string(1, static_cast<char>(command)) + '\1' + Text16(id1) + Text16(id2);
    model.length = 8;
  } else {
    const std::string name(input.Word(), 'n');
    builder = CPacketBuilder(command, name);
    model.head = std::string(1, static_cast<char>(command)) + '\2' +
                 Text16(static_cast<unsigned>(name.size())) + name;
    model.length = static_cast<unsigned>((name.size() + 6) % 65536);
  }
  // Fewer than 256 blocks: there the count is one byte.
  for (int i = 0; i < 255 && !input.Empty(); ++i) {
    if (input.Byte() % 2 == 0) {
      const uint16_t status = input.Word();
      Check(builder.SetStatus(status) == model.Status(status), "same verdict on a status");
    } else {
      const uint8_t type = input.Byte();
      const std::vector<uint8_t> block(input.Word(), type);
      Check(builder.AddBlock(block.data(), type, static_cast<uint16_t>(block.size())) ==
                model.Block(std::string(block.begin(), block.end()), type),
            "same verdict on a block");
    }
    Check(std::string(builder.Bytes().begin(), builder.Bytes().end()) == model.Bytes(),
          "same bytes");
  }
  return 0;
}
