// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// The `udevadm` that the service finds on its PATH: prints a database that the test composes.
class UdevDatabase {
 public:
  // A machine with its root hub and no adapter.
  UdevDatabase();

  // Plugs in an adapter, as the records of its USB device and of its serial node.
  // `place` is the device path of the connector.
  void AddAdapter(const std::string& place, const std::string& vendorId,
                  const std::string& productId, const std::string& node);

  // The same at the connector of #USBSerialPort`port`.
  void AddAdapterAtPort(unsigned port, const std::string& node,
                        const std::string& vendorId = "0403",
                        const std::string& productId = "6001");

  // Unplugs all adapters.
  void Clear();

  // The database as a whole.
  void Text(const std::string& replacement);

  // From now on each search waits until the file `path` exists.
  static void WaitsFor(const std::string& path);

  // From now on each search runs these shell commands before it prints.
  static void Does(const std::string& commands);

  // How many times the service has run the tool.
  static size_t Runs();

 private:
  std::string text;
};
