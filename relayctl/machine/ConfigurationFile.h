// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

// What libvost's interface does not tell: where the configuration stands, and which sections it
// has. Only of the library that comes with the service is that known; CMake chooses the source.
struct ConfigurationFile {
  std::string path;  // empty: not known
  bool exists = true;
  std::map<std::string, std::map<std::string, std::string>> sections;  // empty when malformed
};

// Reads it now, from where libvost would in this process.
ConfigurationFile LookAtConfigurationFile();
