// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Linux/LinuxLock.h"
#include "serial/SerialPortExport.h"

// How a data notification names the port that received the bytes.
struct PortIdentity {
  explicit PortIdentity(std::string&& portName) : isNamed(true), name(std::move(portName)) {}
  PortIdentity(uint16_t vendor, uint16_t product) : vendorId(vendor), productId(product) {}

  bool isNamed = false;
  std::string name;
  uint16_t vendorId = 0;
  uint16_t productId = 0;
};

// The open ports by name, in byte order. A name can also have an empty entry, left behind by bytes
// that came for it while no port was open: it counts as no open port everywhere.
//
// Threads: all operations may be called by any thread. The lock inside is held only while the
// table is looked at or changed; ports are destroyed outside it, on the thread that removes them.
class PortTable {
 public:
  // Null when no such port is open. Never ask on a port's own receive thread: the reference that
  // it got could become the last one, and a port cannot be destroyed there.
  std::shared_ptr<CSerialPortExport> Find(const std::string& name);

  // For receive threads. Leaves an empty entry for a name that has none.
  std::optional<PortIdentity> IdentityOf(const std::string& name);

  // Under the name that the port itself reports; releases the port that had it.
  void Store(std::shared_ptr<CSerialPortExport> port);

  void Remove(const std::string& name);

  // Removes one entry; false when there is none.
  bool RemoveFirst();
  void Clear();

 private:
  CLinuxLock lock;
  std::map<std::string, std::shared_ptr<CSerialPortExport>> ports GUARDED_BY(lock);
};
