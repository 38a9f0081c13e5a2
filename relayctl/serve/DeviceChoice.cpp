// SPDX-License-Identifier: MIT
#include <algorithm>
#include <utility>
#include <vector>

#include "relay/Error.h"
#include "relay/Text.h"
#include "serve/EchoDevice.h"
#include "serve/PlayedService.h"
#include "serve/ProgramDevice.h"
#include "serve/PtyDevice.h"
#include "serve/ServedDevice.h"

namespace {

using Make = decltype(DeviceChoice::make);

template <typename Kind>
Make Made(const std::string& argument) {
  return
      [argument](const ServedDevice::Line& line) { return std::make_unique<Kind>(line, argument); };
}

struct DeviceWord {
  const char* word;
  bool needsArgument;
  Make (*with)(const std::string& argument);
};

constexpr DeviceWord kDeviceWords[] = {
    {"pty", false, Made<PtyDevice>},
    {"exec", true, Made<ProgramDevice>},
};

[[noreturn]] void RefuseChoice(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kUsage, "--port: " + what);
}

Make MakeOf(const std::string& device) {
  if (device == "echo") {
    return [](const ServedDevice::Line& line) { return std::make_unique<EchoDevice>(line); };
  }
  const size_t colon = device.find(':');
  const std::string argument = colon == std::string::npos ? "" : device.substr(colon + 1);
  for (const DeviceWord& row : kDeviceWords) {
    if (device.substr(0, colon) == row.word && (!row.needsArgument || !argument.empty())) {
      return row.with(argument);
    }
  }
  RefuseChoice(relay::Quote(device) + " is none of echo, pty, pty:PATH, exec:COMMAND");
}

}  // namespace

DeviceChoice ChooseDevice(const std::string& text) {
  const size_t sign = text.find('=');
  if (sign == std::string::npos) {
    RefuseChoice(relay::Quote(text) + " lacks =DEVICE behind the port");
  }
  const std::string port = text.substr(0, sign);
  const std::vector<std::string> ports = PlayedService::Ports();
  if (std::find(ports.begin(), ports.end(), port) == ports.end()) {
    RefuseChoice(relay::Quote(port) + " leads to no device; " + ports.front() + " and " + ports[1] +
                 " to " + ports.back().substr(ports.back().size() - 1) + " do");
  }
  return {port, MakeOf(text.substr(sign + 1))};
}
