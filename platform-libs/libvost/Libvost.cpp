// SPDX-License-Identifier: MIT
#include "platform/Libvost.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "libvost/ConfigFile.h"
#include "libvost/IniFile.h"
#include "platform/KXLogger.h"

namespace {

constexpr const char* kConnectSection = "connect";
constexpr std::size_t kLongestValue = KX_TEXT_SIZE - 1;

void Complain(const std::string& message, int line = __builtin_LINE()) {
  writelog("libvost", "Libvost.cpp", std::to_string(line).c_str(), "4", message.c_str(), 1);
}

// The configuration as it is at this moment; empty when it is missing, and with one log line when
// it cannot be used.
class Configuration {
 public:
  Configuration() : path(vost::ConfigPath()), file(vost::ReadConfig(path)) {
    if (file.state == vost::FileState::kUnreadable) {
      Complain(std::string(path) + ": " + file.problem);
      return;
    }
    ini = vost::ParseIni(file.text, kLongestValue);
    if (ini.badLine != 0) {
      Complain(std::string(path) + ":" + std::to_string(ini.badLine) + ": " + ini.problem);
    }
  }
  Configuration(const Configuration&) = delete;  // `ini` points into `file`
  Configuration& operator=(const Configuration&) = delete;

  // False when there is no such entry.
  bool Copy(const char* section, const char* key, KX_TEXT& field) const {
    const std::string_view* value = ini.Find(section, key);
    return value != nullptr && Fill(field, *value);
  }

  // The field must be empty before. A text that does not fit leaves it so.
  static bool Fill(KX_TEXT& field, std::string_view text) {
    if (text.size() > kLongestValue) {
      return false;
    }
    std::copy(text.begin(), text.end(), field);
    return true;
  }

 private:
  const char* path;
  vost::FileText file;
  vost::IniFile ini;
};

}  // namespace

int Libvost::getSystemConnectInfo(KX_CONNECT_INFO& info) {
  info = {};
  return Configuration().Copy(kConnectSection, "port", info.port) ? 1 : 0;
}

int Libvost::getSerialByPortID(KX_SERIAL& serial, char* portId) {
  serial = {};
  if (portId == nullptr) {
    return 0;
  }
  const Configuration configuration;
  const bool complete = configuration.Copy(portId, "baud", serial.baud) &&
                        configuration.Copy(portId, "data", serial.data) &&
                        configuration.Copy(portId, "parity", serial.parity) &&
                        configuration.Copy(portId, "stop", serial.stop) &&
                        configuration.Copy(portId, "flow", serial.flow);
  // A name too long for its fields is no fault: the setting words are what counts.
  static_cast<void>(Configuration::Fill(serial.portId, portId));
  static_cast<void>(Configuration::Fill(serial.portName, portId));
  return complete ? 1 : 0;
}
