// SPDX-License-Identifier: MIT
#include "core/PortTable.h"

#include <utility>

#include "Linux/LockGuard.h"

std::shared_ptr<CSerialPortExport> PortTable::Find(const std::string& name) {
  const CLockGuard guard(lock);
  const auto entry = ports.find(name);
  return entry != ports.end() ? entry->second : nullptr;
}

std::optional<PortIdentity> PortTable::IdentityOf(const std::string& name) {
  const CLockGuard guard(lock);
  const auto& port = ports[name];
  if (port == nullptr) {
    return std::nullopt;
  }
  if (port->GetOpenKind() == kOpenedByIds) {
    return std::make_optional<PortIdentity>(port->GetVendorId(), port->GetProductId());
  }
  return std::make_optional<PortIdentity>(port->GetPortName());
}

void PortTable::Store(std::shared_ptr<CSerialPortExport> port) {
  const std::string name = port->GetPortName();
  const CLockGuard guard(lock);
  ports[name].swap(port);  // the earlier one is released after the lock, with the argument
}

void PortTable::Remove(const std::string& name) {
  std::shared_ptr<CSerialPortExport> removed;
  const CLockGuard guard(lock);
  const auto entry = ports.find(name);
  if (entry != ports.end()) {
    removed = std::move(entry->second);
    ports.erase(entry);
  }
}

bool PortTable::RemoveFirst() {
  decltype(ports)::node_type removed;  // released after the lock
  const CLockGuard guard(lock);
  if (!ports.empty()) {
    removed = ports.extract(ports.begin());
  }
  return !removed.empty();
}

void PortTable::Clear() {
  while (RemoveFirst()) {
  }
}
