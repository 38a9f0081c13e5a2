// SPDX-License-Identifier: MIT
#include "machine/PortDevice.h"

#include <sys/stat.h>

#include "machine/UdevSnapshot.h"
#include "serial/PortNameResolver.h"

namespace {

std::string NodeOf(const std::string& portName) {
  const std::optional<int> index = UsbPortIndexOf(portName);
  if (!index) {
    return ResolvePortName(portName);
  }
  std::string problem;  // no adapter is found then
  return UdevSnapshot::Take(problem).NodeOfPort(*index);
}

}  // namespace

PortDevice::PortDevice(const std::string& portName)
    : path(NodeOf(portName)), before(Identify(path)) {}

// A node is made anew when its device comes back.
std::optional<PortDevice::Identity> PortDevice::Identify(const std::string& path) {
  struct stat link {};
  struct stat node {};
  if (lstat(path.c_str(), &link) != 0 || stat(path.c_str(), &node) != 0) {
    return std::nullopt;
  }
  return Identity{node.st_dev, link.st_ino, node.st_ino};
}

PortDevice::State PortDevice::Now() const {
  if (!before) {
    return State::kUnknown;
  }
  const std::optional<Identity> now = Identify(path);
  if (!now) {
    return State::kGone;
  }
  return now == before ? State::kSame : State::kOther;
}
