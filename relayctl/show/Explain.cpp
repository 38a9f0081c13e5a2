// SPDX-License-Identifier: MIT
#include "show/Explain.h"

#include <utility>
#include <vector>

#include "relay/Text.h"
#include "show/Json.h"
#include "show/MessageView.h"
#include "show/Output.h"

namespace {

using relay::Direction;
using relay::Packet;
using relay::ParsedPacket;

struct Field {
  std::string_view bytes;
  std::string meaning;
};

// Cuts fields off the front; the last one may be shorter than it should.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : rest(bytes) {}

  // The bytes of the field as they are there.
  std::string_view Add(size_t size, const std::string& meaning) {
    const std::string_view bytes = rest.substr(0, size);
    if (!bytes.empty()) {
      all.push_back({bytes, bytes.size() < size ? meaning + " (cut off)" : meaning});
    }
    rest.remove_prefix(bytes.size());
    return bytes;
  }

  // Adds what it means once the bytes are known.
  uint16_t Number(size_t size, const std::string& what) {
    const std::string_view bytes = Add(size, what);
    if (bytes.size() < size) {
      return 0;
    }
    const auto last = static_cast<uint8_t>(bytes[size - 1]);
    const uint16_t value = size == 1 ? last : FromBytes(static_cast<uint8_t>(bytes[0]), last);
    all.back().meaning += " " + std::to_string(value);
    return value;
  }

  void Remark(const std::string& text) {
    if (!all.empty()) {
      all.back().meaning += text;
    }
  }

  bool AreLeft() const { return !rest.empty(); }
  size_t Left() const { return rest.size(); }
  const std::vector<Field>& All() const { return all; }

 private:
  std::string_view rest;
  std::vector<Field> all;
};

const char* CommandRemark(unsigned command) {
  switch (command) {
    case kCommandOpen:
      return ": open";
    case kCommandClose:
      return ": close";
    case kCommandData:
      return ": data";
    default:
      return ": there is none such";
  }
}

void AddPort(Fields& fields) {
  const unsigned form = fields.Number(1, "port form");
  fields.Remark(form == kNumberedPort ? ": numbered" : form == kNamedPort ? ": named" : "");
  if (form == kNumberedPort) {
    fields.Add(2, "USB vendor id");
    fields.Add(2, "USB product id");
  } else if (form == kNamedPort) {
    const size_t length = fields.Number(2, "length of the name");
    const std::string_view name = fields.Add(length, "name");
    fields.Remark(" " + relay::Quote(name));
  }
}

void AddBlocks(Fields& fields) {
  const unsigned count = fields.Number(1, "number of blocks");
  for (unsigned i = 0; i < count && fields.AreLeft(); ++i) {
    fields.Number(1, "block type");
    const size_t length = fields.Number(2, "length of the data");
    const std::string_view data = fields.Add(length, "data");
    if (!data.empty()) {
      fields.Remark(" " + relay::Quote(data));
    }
  }
}

std::vector<Field> FieldsOf(std::string_view bytes, Direction direction) {
  Fields fields(bytes);
  fields.Number(2, "length of the packet");
  const unsigned command = fields.Number(1, "command");
  fields.Remark(CommandRemark(command));
  AddPort(fields);
  if (command == kCommandData) {
    AddBlocks(fields);
  } else if (fields.AreLeft() && (command == kCommandOpen || command == kCommandClose)) {
    if (direction == Direction::kFromService) {
      const uint16_t status = fields.Number(2, "status");
      fields.Remark(": " + relay::StatusText(static_cast<uint8_t>(command), status));
    } else {
      const uint16_t parameter = fields.Number(2, "parameter");
      fields.Remark(command == kCommandOpen && parameter == relay::kFenceParameter ? ": a fence"
                                                                                   : "");
    }
  }
  fields.Add(fields.Left(), "too much");
  return fields.All();
}

// The meaning stands beside the first row.
std::string FieldLines(const Field& field, bool isColored) {
  std::string lines;
  std::string meaning = Paint(field.meaning, Color::kDim, isColored);
  for (std::string row : Rows(field.bytes, ByteForm::kHex)) {
    if (!meaning.empty()) {
      row.resize(kHexWidth, ' ');
    }
    lines += "\n    " + row + std::exchange(meaning, "");
  }
  return lines;
}

}  // namespace

Direction GuessDirection(std::string_view bytes) {
  const ParsedPacket to = relay::ParsePacket(bytes, Direction::kToService);
  const ParsedPacket from = relay::ParsePacket(bytes, Direction::kFromService);
  if (from.problem.empty() != to.problem.empty()) {
    return from.problem.empty() ? Direction::kFromService : Direction::kToService;
  }
  const Packet& packet = from.packet;
  const bool isNotification =
      packet.blocks.size() == 1 && packet.blocks[0].type == kReceivedDataBlock;
  return packet.number || isNotification ? Direction::kFromService : Direction::kToService;
}

std::string ExplainPacket(std::string_view bytes, Direction direction, bool withFields,
                          bool isColored) {
  const bool isToService = direction == Direction::kToService;
  const ParsedPacket parsed = relay::ParsePacket(bytes, direction);
  const std::string what = parsed.problem.empty() ? relay::Describe(parsed.packet, direction)
                                                  : "no packet: " + parsed.problem;
  std::string text = Paint(std::string(isToService ? "> " : "< ") + what,
                           !parsed.problem.empty() ? Color::kBad
                           : isToService           ? Color::kToService
                                                   : Color::kFromService,
                           isColored);
  if (withFields) {
    for (const Field& field : FieldsOf(bytes, direction)) {
      text += FieldLines(field, isColored);
    }
  }
  return text;
}

std::string ExplainPacketAsJson(std::string_view bytes, Direction direction) {
  const bool isToService = direction == Direction::kToService;
  const ParsedPacket parsed = relay::ParsePacket(bytes, direction);
  const Packet& packet = parsed.packet;
  JsonLine line;
  line.Add("event", "packet").Add("direction", isToService ? "to" : "from");
  line.Add("hex", relay::ToHex(bytes));
  if (!parsed.problem.empty()) {
    return line.Add("problem", parsed.problem).Text();
  }
  line.Add("command", packet.command == kCommandOpen    ? "open"
                      : packet.command == kCommandClose ? "close"
                                                        : "data");
  line.Add("port", packet.port.Text());
  if (packet.number) {
    line.Add(isToService ? "parameter" : "status", *packet.number);
  }
  if (isToService && packet.IsFence()) {
    line.Add("fence", true);
  }
  if (packet.command == kCommandData) {
    line.Add("blocks", packet.blocks.size());
    line.Add("data", relay::ToHex(packet.Data())).Add("text", packet.Data());
  }
  return line.Text();
}
