// SPDX-License-Identifier: MIT
#include "machine/MachineConfiguration.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "core/MachineSettings.h"
#include "core/SettingWords.h"
#include "machine/ConfigurationFile.h"
#include "machine/LibraryLog.h"
#include "platform/Libvost.h"
#include "serial/UdevScanner.h"

namespace {

constexpr const char* kConnectSection = "connect";

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

using Section = std::map<std::string, std::string>;

// A text of the library may fill its field without a terminating zero.
std::string FieldText(const KX_TEXT& field) { return {field, strnlen(field, sizeof field)}; }

// The names that can lead to a device.
std::set<std::string> UsableNames() {
  std::set<std::string> names = {"#PhysicalPort0"};
  for (int index = 0; index < kUsbPortCount; ++index) {
    names.insert("#USBSerialPort" + std::to_string(index));
  }
  return names;
}

// What the library says of a port; nothing when it does not know it.
Section AskFor(const std::string& name) {
  KX_SERIAL words{};
  std::string id = name;
  if (Libvost().getSerialByPortID(words, id.data()) == 0) {
    return {};
  }
  return {{"baud", FieldText(words.baud)},
          {"data", FieldText(words.data)},
          {"parity", FieldText(words.parity)},
          {"stop", FieldText(words.stop)},
          {"flow", FieldText(words.flow)}};
}

ConfiguredPort PortFrom(const std::string& name, const Section& section) {
  ConfiguredPort port;
  port.name = name;
  for (const SettingKey& setting : kKeys) {
    const auto found = section.find(setting.key);
    port.words.emplace_back(found != section.end() ? found->second : "");
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
  const ConfigurationFile file = LookAtConfigurationFile();
  MachineConfiguration configuration;
  configuration.path = file.path.empty() ? "libvost's configuration" : file.path;
  configuration.exists = file.exists;
  KX_CONNECT_INFO info{};
  configuration.relayPort = Libvost().getSystemConnectInfo(info) != 0
                                ? RelayPortOf(FieldText(info.port))
                                : kDefaultRelayPort;
  std::set<std::string> names = UsableNames();
  for (const auto& [name, section] : file.sections) {
    names.insert(name);
  }
  names.erase(kConnectSection);
  for (const std::string& name : names) {
    const Section known = AskFor(name);
    const auto written = file.sections.find(name);
    if (!known.empty()) {
      configuration.ports.push_back(PortFrom(name, known));
    } else if (written != file.sections.end()) {
      configuration.ports.push_back(PortFrom(name, written->second));
    }
  }
  configuration.problem = TakeLibraryError();
  return configuration;
}
