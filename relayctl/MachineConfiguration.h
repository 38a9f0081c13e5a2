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

// The machine's configuration file, read as the service's library reads it.
struct MachineConfiguration {
  std::string path;
  bool exists = false;
  std::string problem;  // why the file as a whole is of no use; empty: it is
  uint32_t relayPort = 0;
  std::vector<ConfiguredPort> ports;  // every section but [connect]

  const ConfiguredPort* Find(const std::string& name) const;  // nullptr: not configured
};

// Reads it now, from where the service looks: the environment's VOST_CONFIG, else /etc/vost.conf.
MachineConfiguration ReadMachineConfiguration();
