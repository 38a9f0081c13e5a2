// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the service makes of a port's settings that nobody can want.
struct SettingProblem {
  std::string text;
  bool isFault = false;  // the port does not work
};

// The line settings of one port, as the machine's configuration has them.
struct ConfiguredPort {
  std::string name;
  std::vector<std::string> words;  // baud, data, parity, stop, flow; a missing one is empty
  std::vector<SettingProblem> problems;

  // "9600 8 none 1 none"
  std::string Line() const;
};

// The machine's configuration, as the platform library gives it to the service.
struct MachineConfiguration {
  std::string path;  // where it stands; what to call it when only the library knows
  bool exists = false;
  std::string problem;  // what the library complains about; empty: nothing
  uint32_t relayPort = 0;
  std::vector<ConfiguredPort> ports;  // those that the library knows, and the file's other sections

  const ConfiguredPort* Find(const std::string& name) const;  // nullptr: not configured
};

// Asks the library now, which looks into the environment of this process.
MachineConfiguration ReadMachineConfiguration();
