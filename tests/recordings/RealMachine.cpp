// SPDX-License-Identifier: MIT
#include "recordings/RealMachine.h"

#include <algorithm>
#include <stdexcept>

#include "recordings/Lines.h"
#include "serial/UsbPlaces.h"
#include "support/Eventually.h"

namespace {

constexpr const char* kPhysicalPort = "#PhysicalPort0";
const std::string kUsbPort = "#USBSerialPort";

unsigned NumberOf(const std::string& usbPort) {
  return static_cast<unsigned>(std::stoul(usbPort.substr(kUsbPort.size())));
}

size_t CountIn(const std::vector<std::string>& lines, const std::string& line) {
  return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

size_t HangUpsOf(const std::string& port) {
  return CountIn(LogLines(), "1 Close serial device. [Port " + RealMachine::NodeOf(port) + "]");
}

}  // namespace

RealMachine::RealMachine() {
  constexpr const char* kWords = "9600 8 none 1 none";
  RealMachine::Configure(kPhysicalPort, kWords);
  for (int number = 0; number < kUsbPortCount; ++number) {
    RealMachine::Configure(kUsbPort + std::to_string(number), kWords);
  }
}

void RealMachine::Configure(const std::string& port, const std::string& words) {
  configuration.Port(port, words);
}

void RealMachine::Plug(const std::string& port, const std::string& ids) {
  if (port != kPhysicalPort) {
    adapters[port] = ids;
    TellUdev();
  }
  devices[port] = std::make_unique<Device>(NodeOf(port));
}

void RealMachine::PlugWithoutNode(const std::string& port) {
  adapters[port] = "0403:6001";
  TellUdev();
}

// What is written before the port knows is offered again and again until the device is back.
bool RealMachine::Unplug(const std::string& port, bool isOpen) {
  const size_t before = HangUpsOf(port);
  adapters.erase(port);
  TellUdev();
  devices.erase(port);
  return !isOpen || Eventually([&] { return HangUpsOf(port) > before; });
}

std::vector<std::string> RealMachine::Plugged() const {
  std::vector<std::string> ports;
  for (const auto& device : devices) {
    ports.push_back(device.first);
  }
  return ports;
}

bool RealMachine::Sends(const std::string& port, const std::string& bytes) {
  return devices.at(port)->Sends(bytes);
}

std::string RealMachine::Reads(const std::string& port, size_t count) {
  return devices.at(port)->Reads(count);
}

std::string RealMachine::ReadsWaiting(const std::string& port) {
  return devices.at(port)->ReadsWaiting();
}

size_t RealMachine::OpensOf(const std::string& port) const {
  return CountIn(OutputLines(), "OPEN[" + NodeOf(port) + "]");
}

std::string RealMachine::NodeOf(const std::string& port) {
  if (port == kPhysicalPort) {
    return "/dev/ttyS2";
  }
  if (!port.starts_with(kUsbPort)) {
    throw std::invalid_argument("there is no port " + port);
  }
  return "/dev/ttyUSB" + std::to_string(90 - NumberOf(port));
}

void RealMachine::TellUdev() {
  udev.Clear();
  for (const auto& [port, ids] : adapters) {
    udev.AddAdapterAtPort(NumberOf(port), NodeOf(port), ids.substr(0, 4), ids.substr(5));
  }
}
