// SPDX-License-Identifier: MIT
#include "Doctor.h"

Machine Machine::Now(std::optional<uint16_t> port) {
  Machine machine;
  machine.service = FindService(machine.processes, port);
  machine.configuration = ReadConfigurationOf(machine.service);
  machine.udev = UdevSnapshot::Take(machine.udevProblem);
  return machine;
}
