// SPDX-License-Identifier: MIT
#include "Doctor.h"

Machine Machine::Now() {
  Machine machine;
  machine.configuration = ReadMachineConfiguration();
  machine.udev = UdevSnapshot::Take(machine.udevProblem);
  return machine;
}
