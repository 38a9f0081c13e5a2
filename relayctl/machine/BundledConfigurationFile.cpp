// SPDX-License-Identifier: MIT
// For the libvost that comes with the service.
#include "libvost/ConfigFile.h"
#include "libvost/IniFile.h"
#include "machine/ConfigurationFile.h"
#include "platform/Libvost.h"

ConfigurationFile LookAtConfigurationFile() {
  ConfigurationFile result;
  result.path = vost::ConfigPath();
  const vost::FileText file = vost::ReadConfig(result.path.c_str());
  result.exists = file.state != vost::FileState::kMissing;
  for (const auto& [name, section] : vost::ParseIni(file.text, KX_TEXT_SIZE - 1).sections) {
    result.sections[std::string(name)].insert(section.begin(), section.end());
  }
  return result;
}
