// SPDX-License-Identifier: MIT
#include "recordings/Machine.h"

#include <stdexcept>

#include "serial/UsbPlaces.h"

namespace {

constexpr const char* kPhysicalPort = "#PhysicalPort0";
const std::string kUsbPort = "#USBSerialPort";

unsigned NumberOf(const std::string& usbPort) {
  return static_cast<unsigned>(std::stoul(usbPort.substr(kUsbPort.size())));
}

}  // namespace

Machine::Machine() {
  constexpr const char* kWords = "9600 8 none 1 none";
  Configure(kPhysicalPort, kWords);
  for (int number = 0; number < kUsbPortCount; ++number) {
    Configure(kUsbPort + std::to_string(number), kWords);
  }
}

void Machine::Configure(const std::string& port, const std::string& words) {
  configuration.Port(port, words);
}

void Machine::Plug(const std::string& port, const std::string& ids) {
  if (port != kPhysicalPort) {
    adapters[port] = ids;
    TellUdev();
  }
  devices[port] = std::make_unique<Device>(NodeOf(port));
}

void Machine::PlugWithoutNode(const std::string& port) {
  adapters[port] = "0403:6001";
  TellUdev();
}

void Machine::Unplug(const std::string& port) {
  adapters.erase(port);
  TellUdev();
  devices.erase(port);
}

const Device* Machine::At(const std::string& port) const {
  const auto found = devices.find(port);
  return found != devices.end() ? found->second.get() : nullptr;
}

std::string Machine::NodeOf(const std::string& port) {
  if (port == kPhysicalPort) {
    return "/dev/ttyS2";
  }
  if (!port.starts_with(kUsbPort)) {
    throw std::invalid_argument("there is no port " + port);
  }
  return "/dev/ttyUSB" + std::to_string(90 - NumberOf(port));
}

void Machine::TellUdev() {
  udev.Clear();
  for (const auto& [port, ids] : adapters) {
    udev.AddAdapterAtPort(NumberOf(port), NodeOf(port), ids.substr(0, 4), ids.substr(5));
  }
}
