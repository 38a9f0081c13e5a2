// SPDX-License-Identifier: MIT
#include "serial/PortNameResolver.h"

#include <cstdlib>
#include <limits>
#include <string_view>

#include "serial/UdevScanner.h"

namespace {

constexpr std::string_view kPhysicalPort = "#PhysicalPort";
constexpr std::string_view kUsbPort = "#USBSerialPort";

constexpr const char* kPhysicalNode = "/dev/ttyS";

// The first physical port is the board's third UART; no other is brought out.
constexpr unsigned kPhysicalPortNumber = 0;
constexpr const char* kPhysicalPortUart = "2";

// The number behind `prefix` when there is nothing else in `name` and no blank. It may have a sign
// and leading zeros: "-1" is 4294967295, as in scanf's "%u". What fits no 32 bits is 4294967295.
std::optional<unsigned> NumberBehind(std::string_view prefix, const std::string& name) {
  if (!name.starts_with(prefix) || name.find(' ') != std::string::npos) {
    return std::nullopt;
  }
  const char* const digits = name.c_str() + prefix.size();
  char* end = nullptr;
  const long long number = std::strtoll(digits, &end, 10);
  if (end == digits || end != name.c_str() + name.size()) {
    return std::nullopt;
  }
  constexpr long long kLimit = std::numeric_limits<unsigned>::max();
  return number > kLimit || number < -kLimit ? std::numeric_limits<unsigned>::max()
                                             : static_cast<unsigned>(number);
}

std::string FindUsbPort(int index) {
  char devName[kDevNameSize] = {};
  const CDeviceDatabase database;
  return FindDeviceByPortIndex(index, devName) == kDeviceFound ? devName : "";
}

}  // namespace

std::string ResolvePortName(const std::string& portName) {
  if (const auto number = NumberBehind(kPhysicalPort, portName)) {
    return *number == kPhysicalPortNumber ? std::string(kPhysicalNode) + kPhysicalPortUart : "";
  }
  if (const auto index = UsbPortIndexOf(portName)) {
    return FindUsbPort(*index);
  }
  return "";
}

std::optional<int> UsbPortIndexOf(const std::string& portName) {
  const auto number = NumberBehind(kUsbPort, portName);
  if (!number) {
    return std::nullopt;
  }
  constexpr unsigned kLargest = std::numeric_limits<int>::max();
  return *number > kLargest ? -1 : static_cast<int>(*number);
}
