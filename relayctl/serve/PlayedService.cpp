// SPDX-License-Identifier: MIT
#include "serve/PlayedService.h"

#include <optional>

#include "protocol/CommandPacket.h"
#include "protocol/PacketBuilder.h"
#include "protocol/WireFormat.h"
#include "relay/Packet.h"
#include "serial/UsbPlaces.h"

namespace {

constexpr const char* kUart = "#PhysicalPort0";
constexpr const char* kUsbPort = "#USBSerialPort";

const uint8_t* Unsigned(std::string_view bytes) {
  return reinterpret_cast<const uint8_t*>(bytes.data());
}

std::string Text(const CPacketBuilder& packet) {
  return {packet.Bytes().begin(), packet.Bytes().end()};
}

std::string Received(CPacketBuilder notification, std::string_view bytes) {
  (void)notification.AddBlock(Unsigned(bytes), kReceivedDataBlock,
                              static_cast<uint16_t>(bytes.size()));
  return Text(notification);
}

std::string IdsOf(const CommandPacket& command) {
  return relay::Port{"", command.portId1, command.portId2}.Text();
}

std::string DataOf(const CommandPacket& command) {
  std::string data;
  for (uint32_t i = 0; i < command.blockCount; ++i) {
    DataBlock block;
    command.GetBlock(i, block);
    data.append(block.data, block.data + block.length);
  }
  return data;
}

// What was provoked for the next command to the port, if anything.
std::optional<uint16_t> TakeAnswer(std::map<std::string, std::deque<uint16_t>>& answers,
                                   const std::string& port) {
  const auto found = answers.find(port);
  if (found == answers.end() || found->second.empty()) {
    return std::nullopt;
  }
  const uint16_t status = found->second.front();
  found->second.pop_front();
  return status;
}

}  // namespace

std::vector<std::string> PlayedService::Ports() {
  std::vector<std::string> ports = {kUart};
  for (int number = 0; number < kUsbPortCount; ++number) {
    ports.push_back(kUsbPort + std::to_string(number));
  }
  return ports;
}

void PlayedService::Plug(const std::string& port, const std::string& ids) {
  devices[port] = port == kUart ? "" : ids;
}

void PlayedService::Answer(const std::string& port, uint16_t status) {
  (status == kStatusCloseFailed ? closeAnswers : openAnswers)[port].push_back(status);
}

bool PlayedService::HasAdapter(const std::string& ids) const {
  for (const auto& device : devices) {
    if (device.second == ids) {
      return true;
    }
  }
  return false;
}

// The UART's node is where it always is, and missing; the name of a USB port leads nowhere.
uint16_t PlayedService::Open(Effect& effect) {
  const std::string& port = effect.port;
  if (const auto provoked = TakeAnswer(openAnswers, port)) {
    return *provoked;
  }
  if (IsOpen(port)) {
    return kStatusUnavailable;
  }
  if (!IsPlugged(port)) {
    return port == kUart ? kStatusOpenFailed : kStatusNoPort;
  }
  open.insert(port);
  effect.kind = Effect::Kind::kOpened;
  return kStatusDone;
}

uint16_t PlayedService::Close(Effect& effect) {
  const std::string& port = effect.port;
  if (!IsOpen(port)) {
    return kStatusNoPort;
  }
  if (const auto provoked = TakeAnswer(closeAnswers, port)) {
    return *provoked;
  }
  open.erase(port);
  effect.kind = Effect::Kind::kClosed;
  return kStatusDone;
}

PlayedService::Effect PlayedService::Take(std::string_view packet) {
  const CommandPacket command(Unsigned(packet), static_cast<uint32_t>(packet.size()));
  Effect effect;
  if (!command.parsedOk) {
    effect.kind = Effect::Kind::kRefused;
    return effect;
  }
  const bool isNumbered = command.portForm == kNumberedPort;
  effect.port = isNumbered ? IdsOf(command) : command.portName;
  // Ports are open by name, so none is found; but first the service looks for the adapter.
  if (isNumbered && command.command != kCommandOpen && !HasAdapter(effect.port)) {
    effect.kind = Effect::Kind::kDies;
    return effect;
  }
  if (command.command == kCommandData) {
    effect.data = DataOf(command);
    const bool isTaken = !isNumbered && IsOpen(effect.port) && IsPlugged(effect.port);
    effect.kind = isTaken ? Effect::Kind::kData : Effect::Kind::kDropped;
    return effect;
  }
  uint16_t status = kStatusNoPort;
  if (!isNumbered) {
    status = command.command == kCommandOpen ? Open(effect) : Close(effect);
  }
  CPacketBuilder reply(command);
  (void)reply.SetStatus(status);
  effect.reply = Text(reply);
  return effect;
}

std::string PlayedService::Notification(const std::string& port, std::string_view bytes) {
  return Received(CPacketBuilder(kCommandData, port), bytes);
}

std::string PlayedService::NumberedNotification(const std::string& ids, std::string_view bytes) {
  const relay::Port port = relay::Port::FromText(ids);
  return Received(CPacketBuilder(kCommandData, port.vendorId, port.productId), bytes);
}
