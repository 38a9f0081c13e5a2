// SPDX-License-Identifier: MIT
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Input.h"
#include "relay/Error.h"
#include "relay/Text.h"
#include "serve/EchoDevice.h"
#include "serve/PlayedService.h"
#include "serve/ProgramDevice.h"
#include "serve/PtyDevice.h"
#include "serve/RecordedDevice.h"
#include "serve/ServedDevice.h"

namespace {

using Make = decltype(DeviceChoice::make);

[[noreturn]] void RefuseChoice(const std::string& what) {
  throw relay::Error(relay::ErrorKind::kUsage, "--port: " + what);
}

Make Recorded(const std::string& port, const std::string& file, bool isFast) {
  const auto side = std::make_shared<RecordedSide>(
      ReadDeviceSide(ReadAll(file), relay::Escape(file), port), isFast);
  return [side](const ServedDevice::Line& line) {
    return std::make_unique<RecordedDevice>(line, side);
  };
}

Make MakeOf(const std::string& port, const std::string& device, bool isFast) {
  using Line = ServedDevice::Line;
  const size_t colon = device.find(':');
  const std::string word = device.substr(0, colon);
  const std::string argument = colon == std::string::npos ? "" : device.substr(colon + 1);
  if (device == "echo") {
    return [](const Line& line) { return std::make_unique<EchoDevice>(line); };
  }
  if (word == "pty") {
    return [argument](const Line& line) { return std::make_unique<PtyDevice>(line, argument); };
  }
  if (word == "exec" && !argument.empty()) {
    return [argument](const Line& line) { return std::make_unique<ProgramDevice>(line, argument); };
  }
  if (word == "recording" && !argument.empty()) {
    return Recorded(port, argument, isFast);
  }
  RefuseChoice(relay::Quote(device) +
               " is none of echo, pty, pty:PATH, exec:COMMAND, recording:FILE");
}

}  // namespace

DeviceChoice ChooseDevice(const std::string& text, bool isFast) {
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
  DeviceChoice choice;
  choice.port = port;
  choice.make = MakeOf(port, text.substr(sign + 1), isFast);
  return choice;
}
