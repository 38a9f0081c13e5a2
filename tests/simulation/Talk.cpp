// SPDX-License-Identifier: MIT
#include "simulation/Talk.h"

namespace simulation {
namespace {

std::string TwoBytes(size_t number) {
  return {static_cast<char>(number / 256 % 256), static_cast<char>(number % 256)};
}

}  // namespace

std::string Talk::Bytes(size_t count) {
  std::string some(count, '\0');
  for (char& byte : some) {
    state = state * 6364136223846793005 + 1442695040888963407;
    byte = static_cast<char>(state >> 56);
  }
  return some;
}

std::string Talk::Data(const relay::Port& port) {
  std::vector<relay::Block> blocks = {{1, Bytes(1 + Draw(3000))}};
  while (Draw(3) == 0) {
    blocks.push_back({static_cast<uint8_t>(Draw(256)), Bytes(Draw(4))});
  }
  return DataCommand(port, blocks);
}

std::string Talk::Command(const relay::Port& port) {
  switch (Draw(6)) {
    case 0:
    case 1:
      return OpenCommand(port);
    case 2:
      return OpenCommand(port, relay::kFenceParameter);
    case 3:
      return CloseCommand(port);
    default:
      return Data(port);
  }
}

// A length that the bytes have, and any bytes.
std::string Talk::Random() {
  const size_t length = 3 + Draw(40);
  return TwoBytes(length) + Bytes(length - 2);
}

// The length is right, and something else is not.
std::string Talk::Damaged(std::string packet) {
  if (Draw(2) == 0) {
    packet.resize(3 + Draw(packet.size() - 3));
  } else {
    packet[2 + Draw(packet.size() - 2)] = static_cast<char>(Draw(256));
  }
  return packet.replace(0, 2, TwoBytes(packet.size()));
}

std::string Talk::Nonsense() {
  const relay::Port adapter = {"", 0x0403, 0x6001};
  switch (Draw(8)) {
    case 0:
      return Random();
    case 1:
      return Damaged(Data(relay::Port::FromText("#PhysicalPort0")));
    case 2:
      return Damaged(OpenCommand(relay::Port::FromText("#USBSerialPort1")));
    case 3:
      return OpenCommand(relay::Port::FromText("#PhysicalPort" + std::to_string(1 + Draw(3))));
    case 4:
      return Command(relay::Port::FromText("#USBSerialPort" + std::to_string(4 + Draw(4))));
    case 5:
      return OpenCommand(adapter);
    case 6:
      return Draw(8) == 0 ? CloseCommand(adapter) : Random();
    default:
      return Draw(8) == 0 ? TwoBytes(Draw(3)) : Damaged(OpenCommand(adapter));
  }
}

}  // namespace simulation
