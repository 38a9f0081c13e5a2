// SPDX-License-Identifier: MIT
#include "doctor/Doctor.h"

#include "serial/PortNameResolver.h"

Machine Machine::Now(std::optional<uint16_t> relayPort, LineAccess lines) {
  Machine machine;
  machine.service = FindService(machine.processes, relayPort);
  machine.unit = LookAtUnit(machine.service);
  machine.log = ReadServiceLog(machine.service, machine.unit);
  machine.configuration = ReadConfigurationOf(machine.service);
  machine.udev = UdevSnapshot::Take(machine.udevProblem);
  if (machine.service.process) {
    machine.process = LookAtProcess(machine.processes, machine.service);
    machine.activity = WatchService(
        machine.processes, *machine.service.process,
        relayPort.value_or(static_cast<uint16_t>(machine.configuration.relayPort)), lines);
  }
  return machine;
}

std::string NodeOf(const Machine& machine, const std::string& name) {
  const std::optional<int> index = UsbPortIndexOf(name);
  return index ? machine.udev.NodeOfPort(*index) : ResolvePortName(name);
}
