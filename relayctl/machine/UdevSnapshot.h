// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

// One device of the udev database.
struct UdevDevice {
  std::string path;                               // below /sys: "/devices/..."
  std::string node;                               // "/dev/ttyUSB0"; empty when it has none
  std::map<std::string, std::string> properties;  // the lines "E: KEY=value"

  // The property's value, empty when there is none.
  std::string Property(const std::string& key) const;
};

// A USB serial adapter as the service would look for it.
struct SerialAdapter {
  std::string node;
  std::string devicePath;  // of the node
  std::string place;       // of the connector: "/devices/.../usb4/4-1"
  std::string vendorId;    // four hex digits
  std::string productId;
  std::string vendor;
  std::string model;
  std::string serialNumber;
  std::string driver;
  std::string portName;  // "#USBSerialPort0"; empty when no name leads to it
  std::string hiddenBy;  // the node that the name of this very connector leads to instead

  bool operator==(const SerialAdapter&) const = default;
};

// The udev database at one moment. Which port leads to which node is asked of the service's own
// scanner, so the answer is the service's, whatever the database looks like.
class UdevSnapshot {
 public:
  // `dump`: what `udevadm info --export-db` prints.
  explicit UdevSnapshot(std::string dump);

  // The machine's own. On failure `error` says why, and the snapshot is empty. Waits some seconds
  // for udevadm; does not touch the file that the service dumps to.
  static UdevSnapshot Take(std::string& error);

  const std::vector<UdevDevice>& Devices() const { return devices; }

  // nullptr when no device has this node, or this path.
  const UdevDevice* AtNode(const std::string& node) const;
  const UdevDevice* AtPath(const std::string& path) const;

  // The node that #USBSerialPort`index` leads to, as the service's scanner finds it; empty: none.
  std::string NodeOfPort(int index) const;

  // All USB serial adapters, in the order of the database.
  std::vector<SerialAdapter> Adapters() const;

 private:
  std::string text;
  std::vector<UdevDevice> devices;
};

// The connector that the device at `path` is plugged into: the path up to its last part of the form
// "4-1" or "4-1.2". Empty when there is no such part.
std::string UsbPlaceOf(const std::string& path);
