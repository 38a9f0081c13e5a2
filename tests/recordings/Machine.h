// SPDX-License-Identifier: MIT
// The machine that a recording is played on: the service, and a device for each port that has one.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "e2e/support/Configuration.h"
#include "e2e/support/Device.h"
#include "e2e/support/Service.h"
#include "e2e/support/UdevDatabase.h"
#include "e2e/support/Workplace.h"

class Machine {
 public:
  // Nothing is plugged in. #PhysicalPort0 and the USB ports are configured, with 9600 8N1.
  Machine();

  void Start() { service = std::make_unique<Service>(); }
  bool HasStarted() const { return service != nullptr; }
  Service& TheService() { return *service; }

  void Configure(const std::string& port, const std::string& words);

  // A new device at the port's node. At a USB port it is an adapter, which the udev database has.
  void Plug(const std::string& port, const std::string& ids = "0403:6001");

  // An adapter that the udev database has, and whose node is missing.
  void PlugWithoutNode(const std::string& port);

  void Unplug(const std::string& port);

  // nullptr: none is plugged in.
  const Device* At(const std::string& port) const;

  const std::map<std::string, std::unique_ptr<Device>>& Devices() const { return devices; }

  // Where the port's device is: the UART, or a node that tells the USB ports apart by more than
  // their order.
  static std::string NodeOf(const std::string& port);

 private:
  void TellUdev();

  const workplace::Folders folders;
  Configuration configuration;
  UdevDatabase udev;
  std::map<std::string, std::string> adapters;  // USB port to ids
  std::map<std::string, std::unique_ptr<Device>> devices;
  std::unique_ptr<Service> service;
};
