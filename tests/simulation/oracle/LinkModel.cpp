// SPDX-License-Identifier: MIT
#include "simulation/oracle/LinkModel.h"

#include <algorithm>
#include <utility>

#include "simulation/Machine.h"

namespace simulation {
namespace {

constexpr size_t kLengthBytes = 2;

size_t LengthIn(std::string_view packet) {
  return static_cast<uint8_t>(packet[0]) * size_t{256} + static_cast<uint8_t>(packet[1]);
}

// The line of the log that tells what is carried out.
const char* LineOf(const Command& command) {
  if (!command.parsed.problem.empty()) {
    return "Command parse failed.";
  }
  return command.Is(kCommandOpen)    ? "open command proc."
         : command.Is(kCommandClose) ? "close command proc."
                                     : "data command proc.";
}

bool IsForWhatIsCarriedOut(const std::string& message) {
  return message == "Command parse failed." || message.ends_with(" command proc.");
}

}  // namespace

const std::string* Command::Rest() {
  const auto& blocks = parsed.packet.blocks;
  while (block < blocks.size() && written == blocks[block].data.size()) {
    ++block;
    written = 0;
  }
  return block < blocks.size() ? &blocks[block].data : nullptr;
}

LinkModel::LinkModel(const Machine& wanted, std::shared_ptr<const Connection> wantedConnection)
    : machine(wanted), connection(std::move(wantedConnection)) {}

bool LinkModel::IsOver() const {
  const bool isStopping = machine.losesErrors && machine.kernel.HasHandled();
  return hasEnded || isStopping || connection->service.isReset || !connection->service.isOpen ||
         !connection->peer.isOpen;
}

void LinkModel::Expect(bool holds, const std::string& otherwise) const {
  if (!holds) {
    const std::string which =
        current ? relay::Describe(current->Packet(), relay::Direction::kToService) : "no command";
    machine.kernel.Defect(otherwise + ", at: " + which.substr(0, 60));
  }
}

void LinkModel::AsksForMore() {
  receiver = machine.kernel.Current().number;
  if (current) {
    CompleteCurrent();
    current.reset();
  }
}

void LinkModel::CompleteCurrent() {
  Command& command = *current;
  Expect(command.lines == 1 || machine.losesErrors, "the log does not tell what was carried out");
  if (command.Is(kCommandOpen) || command.Is(kCommandClose)) {
    Expect(command.isAnswered || IsOver(), "a command is not answered");
    if (!command.isAnswered) {
      TakesEffect();
    }
  } else if (command.Is(kCommandData) && command.port != nullptr && !command.hasGivenUp) {
    // The log tells when a write is given up.
    Expect(command.Rest() == nullptr || IsOver() || machine.losesErrors, "data are not written");
  }
}

// The length is believed: 0 and 1 wrap round, and 2 ends the link.
void LinkModel::Takes(std::string_view bytes) {
  stream += bytes;
  if (stream.size() < kLengthBytes) {
    return;
  }
  const size_t length = LengthIn(stream);
  hasEnded = hasEnded || length == kLengthBytes;
  const size_t whole = length < kLengthBytes ? length + 65536 : length;
  Expect(stream.size() <= whole, "bytes of the next command are taken too early");
  if (stream.size() == whole) {
    Begin(std::exchange(stream, {}));
  }
}

void LinkModel::Begin(std::string_view packet) {
  current.emplace();
  Command& command = *current;
  command.parsed = relay::ParsePacket(packet, relay::Direction::kToService);
  command.began = machine.kernel.Now();
  std::string& name = command.parsed.packet.port.name;
  name.resize(std::min(name.find('\0'), name.size()));
  const auto found = ports.find(name);
  if (found != ports.end()) {
    command.port = found->second;
    command.port->isClosing = command.Is(kCommandClose);
  }
}

std::string LinkModel::NodeOfOpen() const {
  return current->Packet().port.name == "#PhysicalPort0" ? "/dev/ttyS2" : current->node;
}

int LinkModel::StatusOfOpen() const {
  const Command& command = *current;
  if (command.Packet().port.IsNumbered()) {
    return kStatusNoPort;
  }
  if (command.port != nullptr && command.port->isAnswered) {
    return kStatusUnavailable;
  }
  if (!command.isConfigured || NodeOfOpen().empty()) {
    return kStatusNoPort;
  }
  return command.hasFailed ? kStatusOpenFailed : kStatusDone;
}

void LinkModel::Answers(const relay::Packet& reply) {
  Expect(current && !current->isAnswered && !current->Is(kCommandData), "an answer to nothing");
  Command& command = *current;
  Expect(machine.kernel.Current().number == receiver, "another thread answers");
  Expect(reply.command == command.Packet().command && reply.port == command.Packet().port,
         "the answer of another command");
  command.isAnswered = true;
  const bool isOpen = command.Is(kCommandOpen);
  const int right = isOpen ? StatusOfOpen() : command.port != nullptr ? kStatusDone : kStatusNoPort;
  Expect(*reply.number == right, "answered with " + std::to_string(*reply.number) +
                                     " and not with " + std::to_string(right));
  Expect(right != kStatusDone || command.port != nullptr,
         "answered as open, and no device was opened");
  TakesEffect();
}

// Also where the peer has gone, and nobody gets the answer.
void LinkModel::TakesEffect() {
  Command& command = *current;
  if (command.Is(kCommandClose)) {
    if (command.port != nullptr) {
      command.port->isClosed = true;
    }
    ports.erase(command.Packet().port.name);
  } else if (command.port != nullptr && StatusOfOpen() == kStatusDone) {
    command.port->isAnswered = true;
    ports[command.Packet().port.name] = command.port;
  }
}

// A write that failed is offered again, from the beginning of its block.
void LinkModel::Writes(const PortModel& port, std::string_view bytes) {
  Expect(current && current->Is(kCommandData) && current->port.get() == &port,
         "bytes are written that are not for this port");
  if (current->Rest() != nullptr && std::exchange(current->isOffered, false)) {
    current->written = 0;
  }
  while (!bytes.empty()) {
    const std::string* const data = current->Rest();
    Expect(data != nullptr, "more is written than came");
    const auto rest = std::string_view(*data).substr(current->written, bytes.size());
    Expect(bytes.starts_with(rest), "other bytes are written than came");
    current->written += rest.size();
    bytes.remove_prefix(rest.size());
  }
}

void LinkModel::Logs(const std::string& message) {
  if (IsForWhatIsCarriedOut(message)) {
    Expect(current && message == LineOf(*current) && ++current->lines == 1,
           "the log tells of \"" + message + "\"");
  }
}

}  // namespace simulation
