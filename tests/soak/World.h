// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "e2e/support/Configuration.h"
#include "e2e/support/Service.h"
#include "e2e/support/UdevDatabase.h"
#include "e2e/support/Workplace.h"
#include "soak/LineReader.h"
#include "soak/SoakPort.h"

// What the service holds at a moment.
struct Holdings {
  size_t descriptors = 0;
  size_t threads = 0;
  size_t kilobytes = 0;
};

// The machine: seven configured ports with their devices, and the service, whose standard streams
// are read all the time.
class World {
 public:
  explicit World(Plan& plan);

  std::vector<std::unique_ptr<SoakPort>>& Ports() { return ports; }
  Service& Process() { return *service; }
  Holdings Held() const;

  std::vector<std::string> OutputLines() { return output->Lines(); }

  // Reads standard error, and keeps the lines that are no part of the service's normal work.
  void ReadErrors();
  const std::vector<std::string>& Unexpected() const { return unexpected; }

 private:
  const workplace::Folders folders;
  Configuration configuration;
  UdevDatabase udev;
  std::vector<std::unique_ptr<SoakPort>> ports;
  std::unique_ptr<LineReader> output;
  std::unique_ptr<LineReader> errors;
  std::vector<std::string> unexpected;
  std::unique_ptr<Service> service;  // ends first
};
