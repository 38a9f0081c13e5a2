// SPDX-License-Identifier: MIT
#include "machine/ServiceUnit.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>

#include "Tool.h"
#include "machine/Files.h"

namespace {

constexpr const char* kProperties =
    "--property=LoadState,ActiveState,SubState,Result,ExecMainStatus,NRestarts";
constexpr const char* kUsualUnit = "serial-port-handler.service";
constexpr std::string_view kSuffix = ".service";

// The last part of the path of its control group, "0::/system.slice/NAME.service", where that is a
// service.
std::string UnitOf(const RunningService& service) {
  if (!service.process) {
    return kUsualUnit;
  }
  std::istringstream groups(TextOf(service.folder + "/cgroup"));
  for (std::string line; std::getline(groups, line);) {
    std::string unit = NameIn(line);
    if (unit.ends_with(kSuffix)) {
      return unit;
    }
  }
  return "";
}

std::map<std::string, std::string> PropertiesOf(const std::string& unit) {
  std::istringstream text(RunTool({"systemctl", "show", kProperties, "--", unit}).text);
  std::map<std::string, std::string> properties;
  for (std::string line; std::getline(text, line);) {
    const size_t equals = std::min(line.find('='), line.size());
    properties[line.substr(0, equals)] = line.substr(std::min(equals + 1, line.size()));
  }
  return properties;
}

}  // namespace

ServiceUnit LookAtUnit(const RunningService& service) {
  ServiceUnit unit;
  const std::string name = UnitOf(service);
  std::map<std::string, std::string> properties;
  if (!name.empty()) {
    properties = PropertiesOf(name);
  }
  if (properties["LoadState"] != "loaded") {
    return unit;
  }
  unit.name = name;
  unit.state = properties["ActiveState"] + " (" + properties["SubState"] + ")";
  unit.result = properties["Result"];
  unit.lastStatus = std::atoi(properties["ExecMainStatus"].c_str());
  if (const std::string& restarts = properties["NRestarts"]; !restarts.empty()) {
    unit.restarts = std::strtoull(restarts.c_str(), nullptr, 10);
  }
  return unit;
}
