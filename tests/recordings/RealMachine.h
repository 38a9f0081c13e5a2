// SPDX-License-Identifier: MIT
// The real service, with the devices, the configuration and the udev database that it needs.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "e2e/support/Configuration.h"
#include "e2e/support/Device.h"
#include "e2e/support/Service.h"
#include "e2e/support/UdevDatabase.h"
#include "e2e/support/Workplace.h"
#include "recordings/PlayedMachine.h"

class RealMachine : public PlayedMachine {
 public:
  // Nothing is plugged in. #PhysicalPort0 and the USB ports are configured, with 9600 8N1.
  RealMachine();

  // Where the port's device is: the UART, or a node that tells the USB ports apart by more than
  // their order.
  static std::string NodeOf(const std::string& port);

  void Configure(const std::string& port, const std::string& words) override;

  // At a USB port it is an adapter, which the udev database has.
  void Plug(const std::string& port, const std::string& ids) override;
  void PlugWithoutNode(const std::string& port) override;
  bool Unplug(const std::string& port, bool isOpen) override;
  std::vector<std::string> Plugged() const override;
  bool HasDevice(const std::string& port) const override { return devices.contains(port); }
  bool Sends(const std::string& port, const std::string& bytes) override;
  std::string Reads(const std::string& port, size_t count) override;
  std::string ReadsWaiting(const std::string& port) override;
  size_t OpensOf(const std::string& port) const override;
  void Start() override { service = std::make_unique<Service>(); }
  bool HasStarted() const override { return service != nullptr; }
  bool Listens(size_t times) const override { return Service::Prints("[LISTEN]IP:", times); }
  bool Accepts(size_t times) const override { return Service::Prints("[ACCEPT]IP:", times); }
  ChildProcess& Program() override { return *service; }
  bool IsIdle() const override { return service->IsIdle(); }
  std::string WaitForEnd() override { return service->WaitForExit(); }
  bool HasConsole() const override { return true; }

 private:
  void TellUdev();

  const workplace::Folders folders;
  Configuration configuration;
  UdevDatabase udev;
  std::map<std::string, std::string> adapters;  // USB port to ids
  std::map<std::string, std::unique_ptr<Device>> devices;
  std::unique_ptr<Service> service;
};
