// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

// The device that a port's name leads to, remembered, as this machine shows it: the service tells
// nobody when a device leaves, and drops what is written meanwhile.
class PortDevice {
 public:
  enum class State { kUnknown, kSame, kOther, kGone };

  // Looks the name up as the service does; for an adapter udevadm is waited for.
  explicit PortDevice(const std::string& portName);

  // What is there now. kUnknown: there was nothing to be seen from here to begin with.
  State Now() const;

 private:
  struct Identity {
    dev_t fileSystem = 0;
    ino_t path = 0;  // of the link, where the path is one
    ino_t node = 0;
    bool operator==(const Identity&) const = default;
  };
  static std::optional<Identity> Identify(const std::string& path);

  const std::string path;
  const std::optional<Identity> before;
};
