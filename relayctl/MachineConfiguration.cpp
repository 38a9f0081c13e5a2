// SPDX-License-Identifier: MIT
#include "MachineConfiguration.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "core/RelayPort.h"
#include "core/SettingWords.h"
#include "libvost/ConfigFile.h"
#include "libvost/IniFile.h"
#include "platform/Libvost.h"

namespace {

constexpr std::string_view kConnectSection = "connect";

struct SettingKey {
  const char* key;
  WordTable (*words)();
  bool hangsUp = false;  // when it is 0
};

constexpr SettingKey kKeys[] = {
    {"baud", BaudRateWords, true}, {"data", DataBitsWords},    {"parity", ParityWords},
    {"stop", StopBitsWords},       {"flow", FlowControlWords},
};

// "2400, 4800, 9600", in the order of what they stand for.
std::string ListOf(const WordTable& table) {
  std::vector<std::pair<uint32_t, std::string>> words;
  for (const auto& [word, value] : table) {
    words.emplace_back(value, word);
  }
  std::sort(words.begin(), words.end());
  std::string list;
  for (const auto& [value, word] : words) {
    list += (list.empty() ? "" : ", ") + word;
  }
  return list;
}

ConfiguredPort PortFrom(std::string_view name, const vost::IniSection& section) {
  ConfiguredPort port;
  port.name = name;
  for (const SettingKey& setting : kKeys) {
    const auto found = section.find(setting.key);
    port.words.emplace_back(found != section.end() ? found->second : std::string_view());
    const WordTable table = setting.words();
    if (found == section.end()) {
      port.problems.push_back(
          {std::string("\"") + setting.key + "\" is missing; an open is answered with status 2",
           true});
    } else if (!table.contains(port.words.back())) {
      port.problems.push_back({std::string("\"") + setting.key + " = " + port.words.back() +
                                   "\" is unknown and counts as 0" +
                                   (setting.hangsUp ? ", which hangs the line up" : "") +
                                   "; known are " + ListOf(table),
                               setting.hangsUp});
    }
  }
  return port;
}

}  // namespace

std::string ConfiguredPort::Line() const {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + (word.empty() ? "?" : word);
  }
  return line;
}

const ConfiguredPort* MachineConfiguration::Find(const std::string& name) const {
  const auto found = std::find_if(ports.begin(), ports.end(),
                                  [&](const ConfiguredPort& port) { return port.name == name; });
  return found != ports.end() ? &*found : nullptr;
}

MachineConfiguration ReadMachineConfiguration() {
  MachineConfiguration configuration;
  configuration.path = vost::ConfigPath();
  configuration.relayPort = kDefaultRelayPort;
  const vost::FileText file = vost::ReadConfig(configuration.path.c_str());
  configuration.exists = file.state != vost::FileState::kMissing;
  if (file.state == vost::FileState::kUnreadable) {
    configuration.problem = file.problem;
    return configuration;
  }
  const vost::IniFile ini = vost::ParseIni(file.text, KX_TEXT_SIZE - 1);
  if (ini.badLine != 0) {
    configuration.problem = "line " + std::to_string(ini.badLine) + ": " + ini.problem;
  }
  if (const std::string_view* const port = ini.Find(kConnectSection, "port")) {
    configuration.relayPort = RelayPortOf(std::string(*port));
  }
  for (const auto& [name, section] : ini.sections) {
    if (name != kConnectSection) {
      configuration.ports.push_back(PortFrom(name, section));
    }
  }
  return configuration;
}
