// SPDX-License-Identifier: MIT
#include "machine/UdevSnapshot.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>
#include <utility>

#include "Tool.h"
#include "serial/UdevScanner.h"

namespace {

constexpr const char* kDumpCommand = "udevadm info --export-db";
constexpr const char* kUsbPortName = "#USBSerialPort";

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char digit) { return std::isdigit(digit) != 0; });
}

// "4-1", "4-1.2": bus, port, and the ports of the hubs behind it.
bool IsConnector(const std::string& part) {
  const size_t dash = part.find('-');
  if (dash == std::string::npos || !IsNumber(part.substr(0, dash))) {
    return false;
  }
  std::istringstream ports(part.substr(dash + 1));
  bool any = false;
  for (std::string port; std::getline(ports, port, '.'); any = true) {
    if (!IsNumber(port)) {
      return false;
    }
  }
  return any;
}

// Whether `path` is `place` or lies below it.
bool IsAt(const std::string& path, const std::string& place) {
  return path == place || path.starts_with(place + "/");
}

void AddLine(const std::string& line, UdevDevice& device) {
  if (line.starts_with("P: ")) {
    device.path = line.substr(3);
  } else if (line.starts_with("E: ")) {
    const size_t equals = line.find('=');
    if (equals != std::string::npos) {
      device.properties[line.substr(3, equals - 3)] = line.substr(equals + 1);
    }
  }
}

std::vector<UdevDevice> Parse(const std::string& text) {
  std::vector<UdevDevice> devices;
  std::istringstream lines(text);
  UdevDevice device;
  const auto finish = [&] {
    if (!device.path.empty()) {
      device.node = device.Property("DEVNAME");
      devices.push_back(std::exchange(device, {}));
    }
  };
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (line.empty()) {
      finish();
    } else {
      AddLine(line, device);
    }
  }
  finish();
  return devices;
}

bool IsSerialAdapter(const UdevDevice& device) {
  return device.node.starts_with("/dev/tty") && device.Property("ID_BUS") == "usb";
}

SerialAdapter Describe(const UdevDevice& device) {
  SerialAdapter adapter;
  adapter.node = device.node;
  adapter.devicePath = device.path;
  adapter.place = UsbPlaceOf(device.path);
  adapter.vendorId = device.Property("ID_VENDOR_ID");
  adapter.productId = device.Property("ID_MODEL_ID");
  adapter.vendor = device.Property("ID_VENDOR");
  adapter.model = device.Property("ID_MODEL");
  adapter.serialNumber = device.Property("ID_SERIAL_SHORT");
  adapter.driver = device.Property("ID_USB_DRIVER");
  return adapter;
}

}  // namespace

std::string UdevDevice::Property(const std::string& key) const {
  const auto found = properties.find(key);
  return found != properties.end() ? found->second : "";
}

UdevSnapshot::UdevSnapshot(std::string dump) : text(std::move(dump)), devices(Parse(text)) {}

UdevSnapshot UdevSnapshot::Take(std::string& error) {
  ToolOutput dump = RunTool({"udevadm", "info", "--export-db"});
  error = dump.problem.empty() && dump.text.empty()
              ? "\"" + std::string(kDumpCommand) + "\" prints nothing"
              : dump.problem;
  return UdevSnapshot(error.empty() ? std::move(dump.text) : "");
}

const UdevDevice* UdevSnapshot::AtNode(const std::string& node) const {
  const auto found = std::find_if(devices.begin(), devices.end(), [&](const UdevDevice& device) {
    return !node.empty() && device.node == node;
  });
  return found != devices.end() ? &*found : nullptr;
}

const UdevDevice* UdevSnapshot::AtPath(const std::string& path) const {
  const auto found = std::find_if(devices.begin(), devices.end(),
                                  [&](const UdevDevice& device) { return device.path == path; });
  return found != devices.end() ? &*found : nullptr;
}

std::string UdevSnapshot::NodeOfPort(int index) const {
  if (text.empty()) {
    return "";  // there is no such thing as a stream over no bytes
  }
  struct Close {
    void operator()(FILE* file) const { (void)std::fclose(file); }
  };
  std::string bytes = text;
  const std::unique_ptr<FILE, Close> dump(fmemopen(bytes.data(), bytes.size(), "r"));
  std::array<char, kDevNameSize> node{};
  return dump != nullptr && FindDeviceByPortIndex(dump.get(), index, node.data()) == kDeviceFound
             ? node.data()
             : "";
}

std::vector<SerialAdapter> UdevSnapshot::Adapters() const {
  std::vector<SerialAdapter> adapters;
  for (const UdevDevice& device : devices) {
    if (IsSerialAdapter(device)) {
      adapters.push_back(Describe(device));
    }
  }
  for (int index = 0; index < kUsbPortCount; ++index) {
    const std::string node = NodeOfPort(index);
    for (SerialAdapter& adapter : adapters) {
      if (adapter.node == node) {
        adapter.portName = kUsbPortName + std::to_string(index);
      } else if (!node.empty() && IsAt(adapter.devicePath, UsbPortPlace(index))) {
        adapter.hiddenBy = node;
      }
    }
  }
  return adapters;
}

std::string UsbPlaceOf(const std::string& path) {
  std::string place;
  std::istringstream parts(path);
  size_t end = 0;
  for (std::string part; std::getline(parts, part, '/'); end += part.size() + 1) {
    if (IsConnector(part)) {
      place = path.substr(0, end + part.size());
    }
  }
  return place;
}
